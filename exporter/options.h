// The command line.
#pragma once

#include <string>

#include "http.h"
#include "targets.h"

namespace exporter {

struct Options {
    monitor::Target listenAddress = {"127.0.0.1", 9753};
    std::string configFile;
    std::string webConfigFile;
    bool lifecycle = false;      // POST /-/reload
    double timeoutOffset = 0.5;  // seconds
    std::string portFile;
    bool dryRun = false;
    std::string dryRunTarget;
    bool quiet = false;
    HttpLimits http;
    TargetLimits targets;
};

// Thrown for -h and -V, and for what is not understood.
struct TextWanted {
    std::string text;
};
struct UsageError {
    std::string text;
};

Options parseOptions(int argc, const char* const* argv);

}  // namespace exporter
