#include "figures.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <variant>

namespace zulstat {

using namespace monitor;

namespace {

// A number below 1000, unless it is too large for a letter, and its letter of thousands or none.
struct Scaled {
    double value;
    char letter;
};

Scaled scaled(double value) {
    constexpr std::string_view letters = "kMGTPE";
    Scaled result{value, ' '};
    // 999.5 has no three digits either.
    for (const char letter : letters) {
        if (std::abs(result.value) < 999.5) {
            break;
        }
        result = {result.value / 1000, letter};
    }
    return result;
}

std::string threeDigits(double value) {
    const double size = std::abs(value);
    if (value == 0 || size >= 1e6 || size < 0.0005) {
        return value == 0 ? "0" : fmt::format("{:.2g}", value);
    }
    return size >= 99.95    ? fmt::format("{:.0f}", value)
           : size >= 9.995  ? fmt::format("{:.1f}", value)
           : size >= 0.9995 ? fmt::format("{:.2f}", value)
                            : fmt::format("{:.3f}", value);
}

std::string withoutZeros(std::string digits) {
    if (digits.find('.') != std::string::npos && digits.find('e') == std::string::npos) {
        digits.resize(digits.find_last_not_of('0') + 1);
        if (digits.ends_with('.')) {
            digits.pop_back();
        }
    }
    return digits;
}

// The point stands behind four characters: a sign and three digits.
std::string aligned(double value) {
    const auto [number, letter] = scaled(std::abs(value) < 0.0005 ? 0 : value);
    const std::string digits = withoutZeros(threeDigits(number));
    const std::size_t point =
        digits.find('e') != std::string::npos ? digits.size() : std::min(digits.find('.'), digits.size());
    return fmt::format("{:>4}{:<{}}{}", digits.substr(0, point), digits.substr(point),
                       point > 4 ? 8 - std::min<std::size_t>(point, 8) : 4, letter);
}

std::string bytes(double size) {
    constexpr std::array<std::string_view, 7> units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    while (std::abs(size) >= 999.5 && unit + 1 < units.size()) {
        size /= 1024;
        ++unit;
    }
    return fmt::format("{} {}", withoutZeros(threeDigits(size)), units[unit]);
}

// How an axis writes its numbers.
struct AxisScale {
    double divisor = 1;
    std::string ending;
    bool durations = false;  // of seconds, once divided
};

AxisScale axisScale(double largest, Unit unit) {
    largest = std::abs(largest);
    const auto inBytes = [largest](double factor) {
        constexpr std::array<std::string_view, 7> units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
        AxisScale result{1 / factor, " B"};
        for (std::size_t index = 1; index < units.size() && largest / result.divisor >= 999.5; ++index) {
            result.divisor *= 1024;
            result.ending = fmt::format(" {}", units[index]);
        }
        return result;
    };
    switch (unit) {
    case Unit::bytes:
        return inBytes(1);
    case Unit::kilobytes:
        return inBytes(1024);
    case Unit::megabytes:
        return inBytes(1024.0 * 1024);
    case Unit::milliseconds:
        return largest < 10000 ? AxisScale{1, " ms"} : AxisScale{1000, "", true};
    case Unit::seconds:
    case Unit::uptime:
        return largest < 120 ? AxisScale{1, " s"} : AxisScale{1, "", true};
    case Unit::percent:
        return {1, " %"};
    case Unit::none:
        break;
    }
    constexpr double mostWhole = 10000;
    AxisScale result;
    for (const char letter : std::string_view("kMGTPE")) {
        if (largest / result.divisor < (result.divisor > 1 ? 999.5 : mostWhole)) {
            break;
        }
        result = {result.divisor * 1000, fmt::format(" {}", letter)};
    }
    return result;
}

std::string compact(double value) {
    const auto [number, letter] = scaled(value);
    const std::string digits = withoutZeros(threeDigits(number));
    return letter == ' ' ? digits : digits + letter;
}

}  // namespace

Unit unitOf(std::string_view id) {
    struct Word {
        std::string_view word;
        Unit unit;
    };
    constexpr std::array<Word, 16> words = {{{"bytes", Unit::bytes},
                                             {"kb", Unit::kilobytes},
                                             {"kib", Unit::kilobytes},
                                             {"mb", Unit::megabytes},
                                             {"mib", Unit::megabytes},
                                             {"ms", Unit::milliseconds},
                                             {"millis", Unit::milliseconds},
                                             {"milliseconds", Unit::milliseconds},
                                             {"seconds", Unit::seconds},
                                             {"secs", Unit::seconds},
                                             {"sec", Unit::seconds},
                                             {"percent", Unit::percent},
                                             {"pct", Unit::percent},
                                             // They say how a number came about, and the word before has the unit.
                                             {"total", Unit::none},
                                             {"avg", Unit::none},
                                             {"max", Unit::none}}};
    const std::string_view separators = "._-/:";
    bool uptime = false;
    std::optional<Unit> unit;
    for (std::string_view rest = id; !rest.empty();) {
        const std::size_t begin = rest.find_last_of(separators);
        std::string word(begin == std::string_view::npos ? rest : rest.substr(begin + 1));
        rest = rest.substr(0, begin == std::string_view::npos ? 0 : begin);
        std::transform(word.begin(), word.end(), word.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        uptime = uptime || word == "uptime";
        if (!unit) {
            const auto* const known =
                std::find_if(words.begin(), words.end(), [&](const Word& one) { return one.word == word; });
            const bool passes = known != words.end() && known->unit == Unit::none;
            // "bytes.in.total": a direction says as little about the unit.
            if (!passes && word != "in" && word != "out") {
                unit = known != words.end() ? known->unit : Unit::none;
            }
        }
    }
    return unit == Unit::seconds && uptime ? Unit::uptime : unit.value_or(Unit::none);
}

std::string_view unitName(Unit unit) {
    switch (unit) {
    case Unit::bytes:
        return "B";
    case Unit::kilobytes:
        return "KiB";
    case Unit::megabytes:
        return "MiB";
    case Unit::milliseconds:
        return "ms";
    case Unit::seconds:
    case Unit::uptime:
        return "s";
    case Unit::percent:
        return "%";
    case Unit::none:
        break;
    }
    return "";
}

std::string shortFigure(double value) {
    if (value == std::floor(value) && std::abs(value) < 100000) {
        return fmt::format("{:.0f}", value == 0 ? 0 : value);
    }
    const auto [number, letter] = scaled(value);
    return letter == ' ' ? withoutZeros(threeDigits(number)) : fmt::format("{} {}", threeDigits(number), letter);
}

std::string figure(const Number& number, Unit unit) {
    const double value = toDouble(number);
    switch (unit) {
    case Unit::bytes:
        return bytes(value);
    case Unit::kilobytes:
        return bytes(value * 1024);
    case Unit::megabytes:
        return bytes(value * 1024 * 1024);
    case Unit::milliseconds:
        return std::abs(value) < 10000 ? shortFigure(value) + " ms" : duration(value / 1000);
    case Unit::seconds:
        return std::abs(value) < 120 ? shortFigure(value) + " s" : duration(value);
    case Unit::uptime:
        return "up " + duration(value);
    case Unit::percent:
        return shortFigure(value) + " %";
    case Unit::none:
        break;
    }
    return shortFigure(value);
}

std::string alignedRate(double perSecond) {
    return aligned(perSecond) + "/s";
}

std::string alignedFigure(double value) {
    return aligned(value);
}

std::string figureRange(double low, double high, Unit unit) {
    std::string from = unit == Unit::none ? compact(low) : figure(low, unit);
    const std::string to = unit == Unit::none ? compact(high) : figure(high, unit);
    // A unit that both have stands once.
    const std::string_view ending = std::string_view(to).substr(to.find_last_of("0123456789") + 1);
    if (from != to && from.ends_with(ending)) {
        from.resize(from.size() - ending.size());
    }
    return from == to ? to : from + "-" + to;
}

std::string axisFigure(double value, double step, double largest, Unit unit) {
    const AxisScale scale = axisScale(largest, unit);
    if (scale.durations) {
        return value == 0 ? "0" : duration(value / scale.divisor);
    }
    const double shown = value / scale.divisor;
    if (std::abs(shown) >= 1e6 || (step != 0 && std::abs(step / scale.divisor) < 1e-6)) {
        return fmt::format("{:.3g}{}", shown, scale.ending);
    }
    const int decimals =
        step == 0 ? 0 : std::clamp(static_cast<int>(std::ceil(-std::log10(step / scale.divisor) - 1e-9)), 0, 6);
    return fmt::format("{:.{}f}{}", shown == 0 ? 0 : shown, decimals, scale.ending);
}

double roundStep(double span, std::size_t most, double largest, Unit unit) {
    const AxisScale scale = axisScale(largest, unit);
    const double least = span / scale.divisor / static_cast<double>(std::max<std::size_t>(most, 1));
    if (!(least > 0) || !std::isfinite(least)) {
        return scale.divisor;
    }
    if (scale.durations && least > 1 && least <= 43200) {
        constexpr std::array<double, 15> steps = {2,   5,    10,   15,   30,    60,    120,  300,
                                                  600, 1800, 3600, 7200, 10800, 21600, 43200};
        return *std::lower_bound(steps.begin(), steps.end(), least) * scale.divisor;
    }
    const double day = scale.durations && least > 43200 ? 86400 : 1;
    const double power = std::pow(10, std::floor(std::log10(least / day)));
    for (const double factor : {1, 2, 5}) {
        if (factor * power * day >= least * (1 - 1e-9)) {
            return factor * power * day * scale.divisor;
        }
    }
    return 10 * power * day * scale.divisor;
}

std::string duration(double seconds) {
    const double size = std::abs(seconds);
    const char* const sign = seconds < 0 && size >= 0.5 ? "-" : "";
    if (size >= 1e15) {
        return fmt::format("{}{:.2g} d", sign, size / 86400);
    }
    const auto whole = static_cast<long long>(size + 0.5);
    return sign + (whole < 120      ? fmt::format("{} s", whole)
                   : whole < 7200   ? fmt::format("{} m", whole / 60)
                   : whole < 172800 ? fmt::format("{} h {} m", whole / 3600, whole % 3600 / 60)
                                    : fmt::format("{} d {} h", whole / 86400, whole % 86400 / 3600));
}

}  // namespace zulstat
