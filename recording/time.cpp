#include "time.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <optional>
#include <system_error>

namespace recording {

namespace {

constexpr int SECONDS_OF_HOUR = 3600;
constexpr int SECONDS_OF_DAY = 86400;

// Takes a number of so many digits from the begin of a text.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
    if (text.size() < count || text.substr(0, count).find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    int value = 0;
    std::from_chars(text.data(), text.data() + count, value);
    text.remove_prefix(count);
    return value;
}

bool take(std::string_view& text, char wanted) {
    if (!text.starts_with(wanted)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

// The whole text as a number without sign and exponent.
std::optional<double> decimal(std::string_view text) {
    double value = 0;
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) {
        return std::nullopt;
    }
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return error == std::errc() && rest == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// 03:12, 03:12:00, 03:12:00.5
std::optional<double> secondsOfDay(std::string_view text) {
    const std::optional<int> hour = takeDigits(text, 2);
    const bool colon = take(text, ':');
    const std::optional<int> minute = takeDigits(text, 2);
    if (!hour || !colon || !minute || *hour > 23 || *minute > 59) {
        return std::nullopt;
    }
    double second = 0;
    if (take(text, ':')) {
        const std::string_view whole = text;
        const std::optional<int> digits = takeDigits(text, 2);
        const std::optional<double> value = decimal(whole);
        if (!digits || (!text.empty() && text[0] != '.') || !value || *value >= 61) {
            return std::nullopt;
        }
        second = *value;
        text = {};
    }
    return text.empty() ? std::optional(*hour * SECONDS_OF_HOUR + *minute * 60 + second) : std::nullopt;
}

// The begin of a day, as mktime and timegm take it; what they make of it is looked at for days that are none.
std::optional<std::tm> day(std::string_view text) {
    const std::optional<int> year = takeDigits(text, 4);
    const bool first = take(text, '-');
    const std::optional<int> month = takeDigits(text, 2);
    const bool second = take(text, '-');
    const std::optional<int> ofMonth = takeDigits(text, 2);
    if (!year || !first || !month || !second || !ofMonth || !text.empty() || *year < 1970) {
        return std::nullopt;
    }
    std::tm fields{};
    fields.tm_year = *year - 1900;
    fields.tm_mon = *month - 1;
    fields.tm_mday = *ofMonth;
    std::tm again = fields;
    timegm(&again);
    const bool same = again.tm_mon == fields.tm_mon && again.tm_mday == fields.tm_mday;
    return same ? std::optional(fields) : std::nullopt;
}

double localTime(std::tm fields, double ofDay) {
    const double whole = std::floor(ofDay);
    fields.tm_hour = static_cast<int>(whole) / SECONDS_OF_HOUR;
    fields.tm_min = static_cast<int>(whole) % SECONDS_OF_HOUR / 60;
    fields.tm_sec = static_cast<int>(whole) % 60;
    fields.tm_isdst = -1;
    return static_cast<double>(std::mktime(&fields)) + (ofDay - whole);
}

std::optional<TimeWord> dateAndTime(std::string_view word) {
    constexpr std::size_t dateSize = 10;
    if (word.size() <= dateSize || (word[dateSize] != 'T' && word[dateSize] != ' ')) {
        return std::nullopt;
    }
    const std::optional<std::tm> date = day(word.substr(0, dateSize));
    std::string_view rest = word.substr(dateSize + 1);
    const bool utc = rest.ends_with('Z');
    rest.remove_suffix(utc ? 1 : 0);
    const std::optional<double> ofDay = secondsOfDay(rest);
    if (!date || !ofDay) {
        return std::nullopt;
    }
    std::tm fields = *date;
    return TimeWord{TimeWord::Kind::moment,
                    utc ? static_cast<double>(timegm(&fields)) + *ofDay : localTime(fields, *ofDay)};
}

std::optional<TimeWord> beforeEnd(std::string_view word) {
    constexpr std::string_view units = "smhd";
    constexpr double seconds[] = {1, 60, SECONDS_OF_HOUR, SECONDS_OF_DAY};
    const std::size_t unit = word.empty() ? std::string_view::npos : units.find(word.back());
    if (unit == std::string_view::npos) {
        return std::nullopt;
    }
    const std::optional<double> count = decimal(word.substr(0, word.size() - 1));
    return count && *count * seconds[unit] <= LATEST_TIME
               ? std::optional(TimeWord{TimeWord::Kind::beforeEnd, *count * seconds[unit]})
               : std::nullopt;
}

}  // namespace

TimeWord parseTime(std::string_view word) {
    std::optional<TimeWord> time;
    std::string_view rest = word;
    if (take(rest, '@')) {
        const std::optional<double> seconds = decimal(rest);
        time = seconds && *seconds <= LATEST_TIME ? std::optional(TimeWord{TimeWord::Kind::moment, *seconds})
                                                  : std::nullopt;
    } else if (take(rest, '-')) {
        time = beforeEnd(rest);
    } else if (const std::optional<double> ofDay = secondsOfDay(word)) {
        time = TimeWord{TimeWord::Kind::ofDay, *ofDay};
    } else {
        time = dateAndTime(word);
    }
    if (!time) {
        throw BadTime("'" + std::string(word) +
                      "' is not a time such as 2026-11-21T03:12:00Z, '2026-11-21 03:12', 03:12, -10m or @1795231920");
    }
    return *time;
}

double resolveTime(const TimeWord& time, double end) {
    switch (time.kind) {
    case TimeWord::Kind::moment:
        break;
    case TimeWord::Kind::beforeEnd:
        return end - time.seconds;
    case TimeWord::Kind::ofDay: {
        const auto whole = static_cast<std::time_t>(end);
        std::tm fields{};
        localtime_r(&whole, &fields);
        return localTime(fields, time.seconds);
    }
    }
    return time.seconds;
}

}  // namespace recording
