#include "arguments.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "number.h"
#include "recording.h"
#include "simgateway/model.h"

namespace zulstatsim {

namespace {

constexpr std::uint16_t DEFAULT_PORT = 7531;
constexpr unsigned HIGHEST_PORT = std::numeric_limits<std::uint16_t>::max();
constexpr std::size_t MOST_GATEWAYS = 1000;

// ---- options ------------------------------------------------------------------------------------------------------

struct OptionWord {
    std::string_view name;
    std::string_view shortName;  // empty for none
    std::string_view value;      // what the value is, for the help; empty: it takes none
    std::string_view text;       // what it does, for the help
    void (*apply)(Arguments& arguments, const std::string& name, const std::string& value);
};

void setPort(Arguments& arguments, const std::string& name, const std::string& value) {
    arguments.options.port = parseNumber<std::uint16_t>(name, value, 0, HIGHEST_PORT);
}

void setPortFile(Arguments& arguments, const std::string& name, const std::string& value) {
    if (value.empty()) {
        throw UsageError(name + " needs a file name");
    }
    arguments.portFile = value;
}

void setGateways(Arguments& arguments, const std::string& name, const std::string& value) {
    arguments.gateways = parseNumber<std::size_t>(name, value, 1, MOST_GATEWAYS);
}

void setSeed(Arguments& arguments, const std::string& name, const std::string& value) {
    arguments.options.seed = parseNumber<std::uint64_t>(name, value, 0, std::numeric_limits<std::uint64_t>::max());
    arguments.ownFigures = name;
}

void setStats(Arguments& arguments, const std::string& name, const std::string& value) {
    arguments.options.stats = parseNumber<int>(name, value, 0, simgateway::Model::MAX_STATISTICS);
    arguments.ownFigures = name;
}

void setSpeed(Arguments& arguments, const std::string& name, const std::string& value) {
    arguments.options.speed = parseNumber<double>(name, value, 0, std::numeric_limits<double>::max());
}

void setProtocol(Arguments& arguments, const std::string& name, const std::string& value) {
    if (value.size() > 0xFFFF) {
        throw UsageError("the text of " + name + " is longer than 65535 bytes");
    }
    arguments.options.protocolVersion = value;
    arguments.ownFigures = name;
}

void addFault(Arguments& arguments, const std::string& name, const std::string& value) {
    try {
        arguments.faults.push_back(parseFaultOrder(value));
    } catch (const UsageError& error) {
        throw UsageError(name + " " + value + ": " + error.what());
    }
}

void setReplay(Arguments& arguments, const std::string& name, const std::string& value) {
    if (!CAN_REPLAY) {
        throw UsageError(name + " is not in this program: it was built without nlohmann-json");
    }
    if (value.empty()) {
        throw UsageError(name + " needs a file name");
    }
    arguments.replay = value;
}

constexpr std::string_view REPLAY_TEXT =
    CAN_REPLAY ? "answer with the samples of a file that 'zulstat watch -o jsonl' wrote, on the recorded clock"
               : "not in this program: it was built without nlohmann-json";

constexpr OptionWord OPTION_TABLE[] = {
    {"--port", "", "N", "port to listen on, 0 for any free one (default 7531)", setPort},
    {"--port-file", "", "F", "write the port to file F once listening", setPortFile},
    {"--gateways", "", "N",
     "number of Gateways, 1 to 1000 (default 1): on consecutive ports, each with a seed of its own, one more than the "
     "one before; the port file has a line for each",
     setGateways},
    {"--seed", "", "N", "equal seeds give equal figures (default 1)", setSeed},
    {"--stats", "", "N", "number of statistics, 0 to 100000 (default 150)", setStats},
    {"--speed", "", "X", "model seconds per second, 0 to stand still (default 1)", setSpeed},
    {"--protocol", "", "TEXT", "protocol version to report (default 1_0_0_0)", setProtocol},
    {"--fault", "", "FAULT", "what goes wrong, see below; may be repeated", addFault},
    {"--replay", "", "FILE", REPLAY_TEXT, setReplay},
    {"--loop", "", "", "start the recording again at its end, instead of staying there",
     [](Arguments& arguments, const std::string&, const std::string&) { arguments.loop = true; }},
    {"--help", "-h", "", "print this text",
     [](Arguments& arguments, const std::string&, const std::string&) { arguments.help = true; }},
    {"--version", "-V", "", "print the version",
     [](Arguments& arguments, const std::string&, const std::string&) { arguments.version = true; }},
};

const OptionWord* findOption(std::string_view name) {
    for (const OptionWord& option : OPTION_TABLE) {
        if (name == option.name || (name == option.shortName && !name.empty())) {
            return &option;
        }
    }
    return nullptr;
}

void checkTogether(const Arguments& arguments) {
    if (arguments.options.port != 0 && arguments.options.port + arguments.gateways - 1 > HIGHEST_PORT) {
        throw UsageError("the ports of " + std::to_string(arguments.gateways) + " Gateways from " +
                         std::to_string(arguments.options.port) + " on end beyond 65535");
    }
    for (const FaultOrder& order : arguments.faults) {
        checkGateway(order, arguments.gateways);
    }
    if (arguments.loop && arguments.replay.empty()) {
        throw UsageError("--loop goes with --replay only");
    }
    if (!arguments.replay.empty() && !arguments.ownFigures.empty()) {
        throw UsageError(arguments.ownFigures + " does not go with --replay, which has figures of its own");
    }
}

// ---- help ---------------------------------------------------------------------------------------------------------

constexpr std::size_t HELP_WIDTH = 79;

// A row of two columns; the text goes on below itself.
std::string helpRow(const std::string& head, std::string_view text, std::size_t column) {
    std::string row = "  " + head;
    std::size_t used = row.size();
    const auto startText = [&] {
        row += std::string(column > used ? column - used : 1, ' ');
        used = column;
    };
    startText();
    bool first = true;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        if (!first && used + 1 + word.size() > HELP_WIDTH) {
            row += '\n';
            used = 0;
            startText();
        } else if (!first) {
            row += ' ';
            ++used;
        }
        row += word;
        used += word.size();
        first = false;
    }
    return row + "\n";
}

struct HelpEntry {
    std::string head;
    std::string text;
};

// The second column begins two characters behind the longest head.
std::string helpTable(const std::vector<HelpEntry>& entries) {
    std::size_t longest = 0;
    for (const HelpEntry& entry : entries) {
        longest = std::max(longest, entry.head.size());
    }
    std::string text;
    for (const HelpEntry& entry : entries) {
        text += helpRow(entry.head, entry.text, longest + 4);
    }
    return text;
}

}  // namespace

const char* const versionText = "zulstat-sim " ZULSTAT_SIM_VERSION "\n";

std::string helpText() {
    std::vector<HelpEntry> options;
    for (const OptionWord& option : OPTION_TABLE) {
        std::string head(option.name);
        head = (option.shortName.empty() ? "" : std::string(option.shortName) + ", ") + head;
        head += (option.value.empty() ? "" : " ") + std::string(option.value);
        options.push_back({head, std::string(option.text)});
    }
    std::vector<HelpEntry> exchanges;
    for (const ExchangeWord& exchange : exchangeWords()) {
        exchanges.push_back({std::string(exchange.name), std::string(exchange.text)});
    }
    std::vector<HelpEntry> faults;
    for (const FaultWord& fault : faultWords()) {
        const std::string only = exchangesOf(fault);
        faults.push_back({std::string(fault.name) + (fault.value.empty() ? "" : "=") + std::string(fault.value),
                          std::string(fault.text) + (only.empty() ? "" : " (" + only + ")")});
    }
    return "Usage: zulstat-sim [OPTION]...\n"
           "A simulated Gateway: answers the statistics protocol with the figures of a\n"
           "made-up busy daemon. It listens on 127.0.0.1 only and ends on SIGINT or SIGTERM.\n"
           "\n" +
           helpTable(options) +
           "\n"
           "An option's value follows as the next word or after '='.\n"
           "Exit status: 0 ended by a signal, 1 cannot listen, write the port file or read\n"
           "a file, 2 bad usage.\n"
           "\n"
           "FAULT is [GATEWAY/]EXCHANGE:FAULT[=VALUE][,FAULT[=VALUE]]...[:N], for the next\n"
           "N exchanges of that kind (default 1), or with 'always' as N for all from then\n"
           "on. Lines of the same form on standard input are faults too while it runs; each\n"
           "is printed again once it holds. GATEWAY counts from 1; without it all are meant.\n"
           "\n"
           "Exchanges, in the order of a connection:\n" +
           helpTable(exchanges) +
           "\n"
           "Faults, in parentheses the exchanges that have them where not all do; numbers\n"
           "are decimal, or hexadecimal behind 0x:\n" +
           helpTable(faults);
}

void checkGateway(const FaultOrder& order, std::size_t gateways) {
    if (order.gateway > gateways) {
        throw UsageError("there is no Gateway " + std::to_string(order.gateway) + ", the last one is " +
                         std::to_string(gateways));
    }
}

Arguments parseArguments(const std::vector<std::string>& words) {
    Arguments arguments;
    arguments.options.port = DEFAULT_PORT;
    arguments.options.speed = 1;
    arguments.options.keepRequests = false;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        const std::size_t equals = word.find('=');
        const OptionWord* const option = findOption(word.substr(0, equals));
        if (option == nullptr) {
            throw UsageError("unknown argument '" + word + "'");
        }
        const std::string name(option->name);
        if (option->value.empty()) {
            if (equals != std::string::npos) {
                throw UsageError(name + " takes no value");
            }
            option->apply(arguments, name, "");
        } else if (equals != std::string::npos) {
            option->apply(arguments, name, word.substr(equals + 1));
        } else if (++index < words.size()) {
            option->apply(arguments, name, words[index]);
        } else {
            throw UsageError(name + " needs a value");
        }
    }
    if (!arguments.help && !arguments.version) {
        checkTogether(arguments);
    }
    return arguments;
}

}  // namespace zulstatsim
