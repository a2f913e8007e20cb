// zulstat-completion: prints the completion of a shell, bash or zsh.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string_view>

#include "command_line.h"
#include "completion.h"

int main(int argc, char** argv) {
    using namespace zulstat;
    const std::string_view shell = argc == 2 ? argv[1] : "";
    if (shell != "bash" && shell != "zsh") {
        std::fputs("usage: zulstat-completion bash|zsh\n", stderr);
        return 2;
    }
    Options options;
    Words words;
    CLI::App app("", "zulstat");
    declareCommandLine(app, options, words);
    const std::string text = shell == "bash" ? bashCompletion(app) : zshCompletion(app);
    return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
