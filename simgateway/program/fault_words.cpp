#include "fault_words.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "number.h"

namespace zulstatsim {

namespace {

using simgateway::Bytes;
using simgateway::Exchange;
using simgateway::Fault;

constexpr std::size_t MOST_TIMES = 1'000'000'000;
constexpr std::size_t LARGEST_GATEWAY = 1'000'000;
constexpr std::size_t LARGEST_FILE = std::size_t{16} << 20;
constexpr double LONGEST_PAUSE = 86400;

constexpr std::string_view ALWAYS = "always";

// ---- values -------------------------------------------------------------------------------------------------------

// Decimal, or hexadecimal behind 0x.
std::int64_t parseInteger(std::string_view what, std::string_view text, std::int64_t low, std::int64_t high) {
    if (!text.starts_with("0x")) {
        return parseNumber<std::int64_t>(what, text, low, high);
    }
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + 2, end, value, 16);
    if (error != std::errc{} || rest != end || text[2] == '-' || value < low || value > high) {
        throw UsageError("bad value '" + std::string(text) + "' for " + std::string(what));
    }
    return value;
}

Bytes readFile(std::string_view what, std::string_view name) {
    if (name.empty()) {
        throw UsageError(std::string(what) + " needs a file name");
    }
    const std::string path(name);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    Bytes bytes;
    std::uint8_t chunk[16384];
    while (const std::size_t got = std::fread(chunk, 1, sizeof chunk, file.get())) {
        bytes.insert(bytes.end(), chunk, chunk + got);
        if (bytes.size() > LARGEST_FILE) {
            throw std::runtime_error(path + ": longer than " + std::to_string(LARGEST_FILE) + " bytes");
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return bytes;
}

template <typename Type>
struct Held {
    using type = Type;
};
template <typename Type>
struct Held<std::optional<Type>> {
    using type = Type;
};

// What a word of 32 bits may be written as: with a sign or without.
constexpr std::int64_t LOWEST_WORD = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t HIGHEST_WORD = std::numeric_limits<std::uint32_t>::max();

template <auto member, std::int64_t low = LOWEST_WORD, std::int64_t high = HIGHEST_WORD>
void setNumber(Fault& fault, std::string_view name, std::string_view value) {
    using Number = typename Held<std::remove_cvref_t<decltype(fault.*member)>>::type;
    fault.*member = static_cast<Number>(parseInteger(name, value, low, high));
}

template <auto member>
void setByte(Fault& fault, std::string_view name, std::string_view value) {
    setNumber<member, 0, 0xFF>(fault, name, value);
}

template <auto member, std::int64_t low = 0>
void setSize(Fault& fault, std::string_view name, std::string_view value) {
    setNumber<member, low, LARGEST_FILE>(fault, name, value);
}

template <auto member>
void setSeconds(Fault& fault, std::string_view name, std::string_view value) {
    const std::chrono::duration<double> seconds(parseNumber<double>(name, value, 0, LONGEST_PAUSE));
    fault.*member = std::chrono::ceil<std::chrono::milliseconds>(seconds);
}

template <auto member>
void setFile(Fault& fault, std::string_view name, std::string_view value) {
    fault.*member = readFile(name, value);
}

template <auto member>
void setTrue(Fault& fault, std::string_view, std::string_view) {
    fault.*member = true;
}

void setEyecatcher(Fault& fault, std::string_view name, std::string_view value) {
    if (value.size() != 4) {
        throw UsageError(std::string(name) + " has 4 characters, unlike '" + std::string(value) + "'");
    }
    fault.eyecatcher = value;
}

void setName(Fault& fault, std::string_view, std::string_view value) {
    fault.name = value;
}

void setProtocol(Fault& fault, std::string_view name, std::string_view value) {
    if (value.size() > 0xFFFF) {
        throw UsageError("the text of " + std::string(name) + " is longer than 65535 bytes");
    }
    fault.payload = simgateway::attributePayload(value);
}

// ---- tables -------------------------------------------------------------------------------------------------------

constexpr ExchangeWord EXCHANGE_TABLE[] = {
    {"handshake", "the first exchange of a connection", Exchange::handshake},
    {"auth-first", "the first step of the authorisation", Exchange::authFirst},
    {"auth-second", "its second step", Exchange::authSecond},
    {"admin-init", "the begin of the management requests", Exchange::adminInit},
    {"get-attribute", "the question for the protocol version, the last one of opening a connection",
     Exchange::getAttribute},
    {"invoke", "a query", Exchange::invoke},
    {"close", "the close request", Exchange::close},
};

constexpr unsigned bitOf(Exchange exchange) {
    return 1U << static_cast<unsigned>(exchange);
}

constexpr unsigned QUERIES = bitOf(Exchange::invoke);
constexpr unsigned ATTRIBUTES = bitOf(Exchange::getAttribute);
constexpr unsigned CALLS = ATTRIBUTES | QUERIES;
constexpr unsigned AUTHS = bitOf(Exchange::authFirst) | bitOf(Exchange::authSecond);
constexpr unsigned WITH_WORDS = AUTHS | bitOf(Exchange::adminInit) | CALLS;
constexpr unsigned ALL = WITH_WORDS | bitOf(Exchange::handshake) | bitOf(Exchange::close);

constexpr FaultWord FAULT_TABLE[] = {
    {"healthy", "", "nothing goes wrong", ALL, [](Fault&, std::string_view, std::string_view) {}},

    {"array-flag", "BYTE", "first byte of the query's payload; the number of elements follows 1 alone", QUERIES,
     setByte<&Fault::arrayFlag>},
    {"block-tag", "BYTE", "tag of every element's block: 0x77 for a short length, others for a long one", QUERIES,
     setByte<&Fault::blockTag>},
    {"element-rc", "RC", "return code of one query element; a negative one drops its items", QUERIES,
     setNumber<&Fault::elementRc>},
    {"element-index", "N", "the element that element-rc is for, counted from 0, which is the default", QUERIES,
     setSize<&Fault::elementIndex>, "element-rc"},

    {"payload", "FILE", "the file's bytes in place of the payload: the whole body, or what follows the exception flag",
     ALL, setFile<&Fault::payload>},
    {"protocol", "TEXT", "the protocol version reported", ATTRIBUTES, setProtocol},
    {"auth-refused", "", "the authorisation is refused", AUTHS, setTrue<&Fault::authRefused>},
    {"word0", "WORD", "first word of the body", WITH_WORDS, setNumber<&Fault::word0>},
    {"reply-rc", "RC", "second word of the body, the return code of the request", WITH_WORDS,
     setNumber<&Fault::replyRc>},
    {"exception-flag", "BYTE", "the byte before the payload; the request failed where it is not 0", CALLS,
     setByte<&Fault::exceptionFlag>},
    {"no-body", "", "the header alone, with a data length of 0", ALL, setTrue<&Fault::noBody>},
    {"body-size", "N", "the body cut, or filled with zeros, to this size", ALL, setSize<&Fault::bodySize>},

    {"eyecatcher", "TEXT", "4 other characters where a header begins", ALL, setEyecatcher},
    {"version", "WORD", "version word of the header", ALL, setNumber<&Fault::version>},
    {"flow-type", "WORD", "flow type of the header", ALL, setNumber<&Fault::flowType>},
    {"echo-word", "WORD", "word that the next request brings back", ALL, setNumber<&Fault::echoWord>},
    {"header-rc", "RC", "return code of the header; 0xF004 tells that the connection is lost", ALL,
     setNumber<&Fault::headerRc>},
    {"name", "TEXT", "name in the header, with its length", ALL, setName},
    {"name-length", "WORD", "length of the name, and the name as it is", ALL, setNumber<&Fault::nameLength>},
    {"header-flag", "BYTE", "flag byte of the header", ALL, setByte<&Fault::headerFlag>},
    {"data-length", "WORD", "length of the body, and the body as it is", ALL, setNumber<&Fault::dataLength>},

    {"raw-reply", "FILE", "the file's bytes in place of the whole reply", ALL, setFile<&Fault::rawReply>},

    {"silent", "", "no reply, and the connection stays open", ALL, setTrue<&Fault::silent>},
    {"delay", "SECONDS", "a wait before the reply, up to 86400 seconds", ALL, setSeconds<&Fault::delay>},
    {"write-size", "N", "the reply in pieces of this size", ALL, setSize<&Fault::writeSize, 1>},
    {"write-pause", "SECONDS", "a wait between two pieces", ALL, setSeconds<&Fault::writePause>, "write-size"},
    {"close-after", "N", "the connection is closed after this many bytes of the reply", ALL,
     setSize<&Fault::closeAfter>},
    {"reset", "", "that close is a reset", ALL, setTrue<&Fault::reset>, "close-after"},
};

// ---- parsing ------------------------------------------------------------------------------------------------------

template <typename Word>
const Word* find(std::span<const Word> table, std::string_view name) {
    const auto found = std::find_if(table.begin(), table.end(), [&](const Word& word) { return word.name == name; });
    return found == table.end() ? nullptr : &*found;
}

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Cuts off and returns what stands before the first separator; everything where there is none.
std::string_view takeUpTo(std::string_view& text, char separator) {
    const std::size_t end = text.find(separator);
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return piece;
}

// Cuts off the count at the end, if there is one.
std::optional<std::size_t> takeTimes(std::string_view& text) {
    const std::size_t colon = text.rfind(':');
    const std::string_view count = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    if (count != ALWAYS && !isNumber(count)) {
        return 1;
    }
    text = text.substr(0, colon);
    return count == ALWAYS ? std::nullopt
                           : std::optional(parseNumber<std::size_t>("the number of exchanges", count, 1, MOST_TIMES));
}

void applyFault(FaultOrder& order, std::string_view exchange, std::string_view words,
                std::vector<std::string_view>& names) {
    const bool hasValue = words.find('=') != std::string_view::npos;
    const std::string_view name = takeUpTo(words, '=');
    const FaultWord* const word = find(faultWords(), name);
    if (word == nullptr) {
        throw UsageError("unknown fault '" + std::string(name) + "'");
    }
    if (hasValue == word->value.empty()) {
        throw UsageError(std::string(name) + (hasValue ? " takes no value" : " needs a value"));
    }
    if ((word->exchanges & bitOf(order.exchange)) == 0) {
        throw UsageError(std::string(name) + " changes nothing in " + std::string(exchange) + ", only in " +
                         exchangesOf(*word));
    }
    if (std::find(names.begin(), names.end(), name) != names.end()) {
        throw UsageError(std::string(name) + " is given twice");
    }
    names.push_back(name);
    word->apply(order.fault, name, words);
}

}  // namespace

std::span<const ExchangeWord> exchangeWords() {
    return EXCHANGE_TABLE;
}

std::span<const FaultWord> faultWords() {
    return FAULT_TABLE;
}

std::string exchangesOf(const FaultWord& word) {
    std::string names;
    for (const ExchangeWord& exchange : EXCHANGE_TABLE) {
        if (word.exchanges != ALL && (word.exchanges & bitOf(exchange.exchange)) != 0) {
            names += (names.empty() ? "" : ", ") + std::string(exchange.name);
        }
    }
    return names;
}

FaultOrder parseFaultOrder(std::string_view words) {
    FaultOrder order;
    const std::size_t slash = words.find('/');
    if (slash != std::string_view::npos && isNumber(words.substr(0, slash))) {
        order.gateway = parseNumber<std::size_t>("the Gateway", takeUpTo(words, '/'), 1, LARGEST_GATEWAY);
    }
    if (words.find(':') == std::string_view::npos) {
        throw UsageError("no EXCHANGE:FAULT in '" + std::string(words) + "'");
    }
    const std::string_view name = takeUpTo(words, ':');
    const ExchangeWord* const exchange = find(exchangeWords(), name);
    if (exchange == nullptr) {
        throw UsageError("unknown exchange '" + std::string(name) + "'");
    }
    order.exchange = exchange->exchange;
    order.times = takeTimes(words);
    std::vector<std::string_view> names;
    for (bool more = true; more;) {
        more = words.find(',') != std::string_view::npos;
        applyFault(order, name, takeUpTo(words, ','), names);
    }
    for (const std::string_view given : names) {
        const std::string_view needed = find(faultWords(), given)->needs;
        if (!needed.empty() && std::find(names.begin(), names.end(), needed) == names.end()) {
            throw UsageError(std::string(given) + " does nothing without " + std::string(needed));
        }
    }
    return order;
}

}  // namespace zulstatsim
