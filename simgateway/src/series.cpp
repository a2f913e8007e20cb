#include "series.h"

#include <ctime>

namespace simgateway {

std::uint64_t mix(std::uint64_t key, std::uint64_t index) {
    std::uint64_t value = key + (index + 1) * 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

std::uint64_t keyOf(std::uint64_t seed, std::string_view name) {
    std::uint64_t key = mix(seed, 0);
    for (const char c : name) {
        key = mix(key, static_cast<unsigned char>(c));
    }
    return key;
}

Counter::Counter(std::uint64_t counterKey, std::uint64_t nominalRate)
    : key(counterKey),
      rate((nominalRate * (50 + mix(counterKey, 1) % 101) + 99) / 100),
      base(1000 + nominalRate * (mix(counterKey, 2) % 100000)) {
}

// The jitter stays at or below half the rate, the least step of a second.
std::uint64_t Counter::at(std::uint64_t seconds) const {
    return base + rate * seconds + mix(key, 3 + seconds) % (rate / 2 + 1);
}

Gauge::Gauge(std::uint64_t gaugeKey, std::int64_t lowest, std::int64_t highest)
    : key(gaugeKey), low(lowest), high(highest) {
}

std::int64_t Gauge::point(std::uint64_t index) const {
    const auto range = static_cast<std::uint64_t>(high - low) + 1;
    return low + static_cast<std::int64_t>(mix(key, index) % range);
}

std::int64_t Gauge::at(std::uint64_t seconds) const {
    const std::uint64_t leg = seconds / LEG_SECONDS;
    const auto into = static_cast<std::int64_t>(seconds % LEG_SECONDS);
    const std::int64_t from = point(leg);
    return from + (point(leg + 1) - from) * into / static_cast<std::int64_t>(LEG_SECONDS);
}

std::string formatTime(std::uint64_t moment) {
    const auto seconds = static_cast<std::time_t>(moment);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return std::string(text, size);
}

std::string formatHundredths(std::int64_t hundredths) {
    const std::int64_t fraction = hundredths % 100;
    return std::to_string(hundredths / 100) + (fraction < 10 ? ".0" : ".") + std::to_string(fraction);
}

}  // namespace simgateway
