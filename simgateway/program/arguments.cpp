#include "arguments.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "simgateway/model.h"

namespace zulstatsim {

namespace {

constexpr std::uint16_t defaultPort = 7531;

template <typename Number>
Number parseNumber(std::string_view option, std::string_view text, Number low, Number high) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || rest != end || !(value >= low && value <= high)) {
        throw UsageError("bad value '" + std::string(text) + "' for " + std::string(option));
    }
    return value;
}

void apply(Arguments& arguments, std::string_view option, const std::string& value) {
    simgateway::Options& options = arguments.options;
    if (option == "--port") {
        options.port = parseNumber<std::uint16_t>(option, value, 0, std::numeric_limits<std::uint16_t>::max());
    } else if (option == "--port-file") {
        if (value.empty()) {
            throw UsageError("--port-file needs a file name");
        }
        arguments.portFile = value;
    } else if (option == "--seed") {
        options.seed = parseNumber<std::uint64_t>(option, value, 0, std::numeric_limits<std::uint64_t>::max());
    } else if (option == "--stats") {
        options.stats = parseNumber<int>(option, value, 0, simgateway::Model::maxStatistics);
    } else if (option == "--speed") {
        options.speed = parseNumber<double>(option, value, 0, std::numeric_limits<double>::max());
    } else if (option == "--protocol") {
        if (value.size() > 0xFFFF) {
            throw UsageError("the text of --protocol is longer than 65535 bytes");
        }
        options.protocolVersion = value;
    }
}

bool takesValue(std::string_view option) {
    return option == "--port" || option == "--port-file" || option == "--seed" || option == "--stats" ||
           option == "--speed" || option == "--protocol";
}

}  // namespace

const char* const versionText = "zulstat-sim " ZULSTAT_SIM_VERSION "\n";

const char* const helpText =
    "Usage: zulstat-sim [OPTION]...\n"
    "A simulated Gateway: answers the statistics protocol with the figures of a\n"
    "made-up busy daemon. It listens on 127.0.0.1 only and ends on SIGINT or SIGTERM.\n"
    "\n"
    "  --port N         port to listen on, 0 for any free one (default 7531)\n"
    "  --port-file F    write the port to file F once listening\n"
    "  --seed N         equal seeds give equal figures (default 1)\n"
    "  --stats N        number of statistics, 0 to 100000 (default 150)\n"
    "  --speed X        model seconds per second, 0 to stand still (default 1)\n"
    "  --protocol TEXT  protocol version to report (default 1_0_0_0)\n"
    "  -h, --help       print this text\n"
    "  -V, --version    print the version\n"
    "\n"
    "An option's value follows as the next word or after '='.\n"
    "Exit status: 0 ended by a signal, 1 cannot listen or write the port file,\n"
    "2 bad usage.\n";

Arguments parseArguments(const std::vector<std::string>& words) {
    Arguments arguments;
    arguments.options.port = defaultPort;
    arguments.options.speed = 1;
    arguments.options.keepRequests = false;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const std::string option = name == "-h" ? "--help" : name == "-V" ? "--version" : name;
        if (option == "--help" || option == "--version") {
            if (equals != std::string::npos) {
                throw UsageError(option + " takes no value");
            }
            (option == "--help" ? arguments.help : arguments.version) = true;
        } else if (!takesValue(option)) {
            throw UsageError("unknown argument '" + word + "'");
        } else if (equals != std::string::npos) {
            apply(arguments, option, word.substr(equals + 1));
        } else if (++index < words.size()) {
            apply(arguments, option, words[index]);
        } else {
            throw UsageError(option + " needs a value");
        }
    }
    return arguments;
}

}  // namespace zulstatsim
