// Completions of shells, made from the command line's own table.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace zulstat {

// Whole files for bash and zsh; `app` is what declareCommandLine filled.
std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);

}  // namespace zulstat
