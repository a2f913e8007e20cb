#include "request.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "allow.h"

namespace exporter {

using namespace monitor;

namespace {

constexpr double LONGEST_PROBE = 8;
constexpr std::size_t LONGEST_MODULE = 200;

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(" \t") + 1));
    return text;
}

// The text up to the separator, which is taken with it.
std::string_view takePiece(std::string_view& text, char separator) {
    const std::string_view piece = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
    return trimmed(piece);
}

bool equalAnyCase(std::string_view one, std::string_view other) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

std::optional<double> parseDouble(std::string_view text) {
    double value = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && rest == text.data() + text.size();
    return whole && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

int sextet(char c) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t place = digits.find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

std::optional<std::string> decodeBase64(std::string_view text) {
    while (text.ends_with('=')) {
        text.remove_suffix(1);
    }
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char c : text) {
        const int value = sextet(c);
        if (value < 0) {
            return std::nullopt;
        }
        bits = (bits << 6) | static_cast<unsigned>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>((bits >> count) & 0xFF);
        }
    }
    return bytes;
}

}  // namespace

std::variant<ProbeParameters, std::string> parseProbe(const Arguments& arguments) {
    for (const char* const name : {"target", "module", "debug"}) {
        if (arguments.count(name) > 1) {
            return std::string("The parameter '") + name + "' is given more than once.";
        }
    }
    ProbeParameters parameters;
    const auto target = arguments.find("target");
    if (target == arguments.end() || target->second.empty()) {
        return std::string("The parameter 'target' is missing: /probe?target=HOST:PORT.");
    }
    const std::optional<Target> parsed = parseTarget(target->second);
    if (!parsed) {
        return std::string("The parameter 'target' is not ") + targetExpected(target->second) + ".";
    }
    parameters.target = *parsed;
    if (const auto module = arguments.find("module"); module != arguments.end() && !module->second.empty()) {
        if (module->second.size() > LONGEST_MODULE) {
            return std::string("The parameter 'module' is too long.");
        }
        parameters.module = module->second;
    }
    if (const auto debug = arguments.find("debug"); debug != arguments.end()) {
        if (debug->second != "true" && debug->second != "false") {
            return std::string("The parameter 'debug' is neither 'true' nor 'false'.");
        }
        parameters.debug = debug->second == "true";
    }
    return parameters;
}

MetricsFormat formatAccepted(std::string_view accept) {
    while (!accept.empty()) {
        std::string_view range = takePiece(accept, ',');
        if (!equalAnyCase(takePiece(range, ';'), "application/openmetrics-text")) {
            continue;
        }
        bool wanted = true;
        while (!range.empty()) {
            const std::string_view parameter = takePiece(range, ';');
            if (parameter.starts_with("q=") && parseDouble(parameter.substr(2)).value_or(1) <= 0) {
                wanted = false;
            }
            if (parameter.starts_with("version=") && parameter != "version=1.0.0" && parameter != "version=0.0.1") {
                wanted = false;
            }
        }
        if (wanted) {
            return MetricsFormat::openMetrics;
        }
    }
    return MetricsFormat::text;
}

std::string_view contentType(MetricsFormat format) {
    return format == MetricsFormat::openMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                                : "text/plain; version=0.0.4; charset=utf-8";
}

std::optional<double> parseScrapeTimeout(std::string_view header) {
    const std::optional<double> seconds = parseDouble(trimmed(header));
    return seconds && *seconds > 0 ? seconds : std::nullopt;
}

double probeSeconds(std::optional<double> scrapeTimeout, double offset, std::optional<double> moduleDeadline) {
    double seconds = std::min(LONGEST_PROBE, moduleDeadline.value_or(LONGEST_PROBE));
    if (scrapeTimeout) {
        seconds = std::min(seconds, std::max(*scrapeTimeout - offset, *scrapeTimeout / 2));
    }
    return seconds;
}

std::optional<Credentials> parseBasic(std::string_view header) {
    header = trimmed(header);
    const std::string_view scheme = takePiece(header, ' ');
    const std::optional<std::string> text = decodeBase64(trimmed(header));
    if (!equalAnyCase(scheme, "Basic") || !text) {
        return std::nullopt;
    }
    const std::size_t colon = text->find(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

}  // namespace exporter
