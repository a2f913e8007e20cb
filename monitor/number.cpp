#include "number.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <string>

namespace monitor {

namespace {

// A decimal number's parts: "-", "12", "50", "e3" of "-12.50e3".
struct Decimal {
    std::string_view sign;
    std::string_view integer;
    bool point = false;
    std::string_view fraction;
    std::string_view exponent;

    bool whole() const {
        return !point && exponent.empty();
    }
    // As JSON writes numbers.
    bool plain() const {
        const bool leadingZero = integer.size() > 1 && integer.front() == '0';
        return sign != "+" && !integer.empty() && !leadingZero && point == !fraction.empty();
    }
};

std::optional<Decimal> takeApart(std::string_view text) {
    const auto take = [&](std::size_t count) {
        const std::string_view taken = text.substr(0, count);
        text.remove_prefix(taken.size());
        return taken;
    };
    const auto startsWith = [&](std::string_view characters) {
        return !text.empty() && characters.find(text.front()) != std::string_view::npos;
    };
    const auto digits = [](std::string_view from) {
        return std::min(from.find_first_not_of("0123456789"), from.size());
    };
    Decimal decimal;
    decimal.sign = take(startsWith("+-") ? 1 : 0);
    decimal.integer = take(digits(text));
    decimal.point = !take(startsWith(".") ? 1 : 0).empty();
    decimal.fraction = take(decimal.point ? digits(text) : 0);
    if (startsWith("eE")) {
        const std::size_t lead = text.size() > 1 && (text[1] == '+' || text[1] == '-') ? 2 : 1;
        const std::size_t count = digits(text.substr(lead));
        decimal.exponent = take(count > 0 ? lead + count : 0);
    }
    const bool hasDigits = !decimal.integer.empty() || !decimal.fraction.empty();
    return hasDigits && text.empty() ? std::optional(decimal) : std::nullopt;
}

template <typename Value>
std::optional<Value> convert(std::string_view text) {
    Value value{};
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && rest == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// What strtod() makes of it where LC_NUMERIC is "C", as it need not be in the program.
double nearestDouble(std::string_view text) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(std::string(text).c_str(), nullptr, plain);
}

// Where the shape has a 0, the text has any digit.
bool hasShape(std::string_view text, std::string_view shape) {
    return std::equal(text.begin(), text.end(), shape.begin(), shape.end(),
                      [](char c, char wanted) { return wanted == '0' ? c >= '0' && c <= '9' : c == wanted; });
}

// "Z", "+01:00"
std::optional<std::chrono::minutes> parseZone(std::string_view text) {
    if (text == "Z") {
        return std::chrono::minutes(0);
    }
    if (!hasShape(text, "+00:00") && !hasShape(text, "-00:00")) {
        return std::nullopt;
    }
    const int hours = *convert<int>(text.substr(1, 2));
    const int minutes = *convert<int>(text.substr(4, 2));
    const std::chrono::minutes offset(hours * 60 + minutes);
    return hours > 23 || minutes > 59 ? std::nullopt : std::optional(text.front() == '-' ? -offset : offset);
}

}  // namespace

std::optional<Number> parseNumber(std::string_view text) {
    const std::optional<Decimal> decimal = takeApart(text);
    if (!decimal) {
        return std::nullopt;
    }
    if (decimal->whole()) {
        const std::string_view digits = text.substr(decimal->sign == "+" ? 1 : 0);
        if (const auto value = convert<std::int64_t>(digits)) {
            return *value;
        }
        if (const auto value = convert<std::uint64_t>(digits)) {
            return *value;
        }
    }
    const double value = nearestDouble(text);
    return std::isfinite(value) ? std::optional<Number>(value) : std::nullopt;
}

std::optional<Number> parseExactNumber(std::string_view text) {
    constexpr std::size_t longest = 64;
    constexpr std::ptrdiff_t exactDigits = 15;
    const std::optional<Decimal> decimal = takeApart(text);
    if (!decimal || text.size() > longest || !decimal->plain() || text == "-0") {
        return std::nullopt;
    }
    const std::optional<Number> number = parseNumber(text);
    if (decimal->whole()) {
        return number && !std::holds_alternative<double>(*number) ? number : std::nullopt;
    }
    std::string digits = std::string(decimal->integer) + std::string(decimal->fraction);
    digits.erase(0, digits.find_first_not_of('0'));
    const bool normal = number && (std::isnormal(toDouble(*number)) || digits.empty());
    return normal && std::ssize(digits) <= exactDigits ? number : std::nullopt;
}

double toDouble(const Number& number) {
    return std::visit([](auto value) { return static_cast<double>(value); }, number);
}

double difference(const Number& later, const Number& earlier) {
    if (std::holds_alternative<double>(later) || std::holds_alternative<double>(earlier)) {
        return toDouble(later) - toDouble(earlier);
    }
    const auto wide = [](const Number& number) {
        const auto* positive = std::get_if<std::uint64_t>(&number);
        return positive != nullptr ? static_cast<__int128>(*positive) : __int128{std::get<std::int64_t>(number)};
    };
    return static_cast<double>(wide(later) - wide(earlier));
}

std::optional<double> parseMoment(std::string_view text) {
    using namespace std::chrono;
    constexpr std::string_view shape = "0000-00-00T00:00:00";
    if (!hasShape(text.substr(0, shape.size()), shape)) {
        return std::nullopt;
    }
    const auto part = [&](std::size_t place, std::size_t size) { return *convert<int>(text.substr(place, size)); };
    const year_month_day date(year(part(0, 4)), month(static_cast<unsigned>(part(5, 2))),
                              day(static_cast<unsigned>(part(8, 2))));
    const int hour = part(11, 2);
    const int minute = part(14, 2);
    const int second = part(17, 2);

    std::string_view zone = text.substr(shape.size());
    double fraction = 0;
    if (zone.starts_with('.')) {
        const std::size_t size = std::min(zone.find_first_not_of("0123456789", 1), zone.size());
        fraction = size > 1 ? nearestDouble(zone.substr(0, size)) : NAN;
        zone.remove_prefix(size);
    }
    const std::optional<minutes> offset = parseZone(zone);
    // A leap second is the first of the next minute.
    if (!date.ok() || hour > 23 || minute > 59 || second > 60 || std::isnan(fraction) || !offset) {
        return std::nullopt;
    }
    const seconds whole = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute) + seconds(second) - *offset;
    return static_cast<double>(whole.count()) + fraction;
}

}  // namespace monitor
