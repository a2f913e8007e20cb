// The program zulstat-sim as a child process.
#pragma once

#include <csignal>
#include <cstdio>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace simtest {

// Its options are words of a shell command; what it prints is what they leave of it.
class Program {
public:
    // `before` is a shell command; it sees the process number of the program as $$.
    explicit Program(const std::string& options, const std::string& before = ":")
        : output(::popen(("echo $$; " + before + "; exec '" ZULSTAT_SIM_PROGRAM "' " + options).c_str(), "re")) {
        EXPECT_EQ(std::fscanf(output, "%d%*c", &pid), 1);
    }
    ~Program() {
        if (output != nullptr) {
            end(SIGKILL);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // From the line that the program prints when it listens.
    std::uint16_t port() {
        std::uint16_t number = 0;
        EXPECT_EQ(std::fscanf(output, "listening on 127.0.0.1:%hu%*c", &number), 1);
        return number;
    }

    // The next line that it prints.
    std::string nextLine() {
        char line[1024] = "";
        EXPECT_NE(std::fgets(line, sizeof line, output), nullptr);
        return line;
    }

    // Exit status, or -1 when the program was killed. `printed` has what came after the port.
    int end(int signal = 0) {
        ::kill(pid, signal);
        for (int c = 0; (c = std::fgetc(output)) != EOF;) {
            printed += static_cast<char>(c);
        }
        const int status = ::pclose(output);
        output = nullptr;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string printed;

private:
    std::FILE* output;
    pid_t pid = 0;
};

}  // namespace simtest
