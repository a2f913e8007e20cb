// How single values of the model move through time. Every value is a function of its key and the time in seconds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace simgateway {

// A well-mixed number for a key and an index.
std::uint64_t mix(std::uint64_t key, std::uint64_t index);

// Key of a named value under a seed.
std::uint64_t keyOf(std::uint64_t seed, std::string_view name);

// Rises by at least half its rate in every second and never falls. The rate is the nominal one times 0.5 to 1.5.
class Counter {
public:
    Counter(std::uint64_t counterKey, std::uint64_t nominalRate);
    std::uint64_t at(std::uint64_t seconds) const;

private:
    std::uint64_t key;
    std::uint64_t rate;
    std::uint64_t base;
};

// Moves within [low, high], in straight lines between points `legSeconds` apart.
class Gauge {
public:
    static constexpr std::uint64_t LEG_SECONDS = 32;

    Gauge(std::uint64_t gaugeKey, std::int64_t lowest, std::int64_t highest);
    std::int64_t at(std::uint64_t seconds) const;

private:
    std::int64_t point(std::uint64_t index) const;

    std::uint64_t key;
    std::int64_t low;
    std::int64_t high;
};

// "yyyy-mm-ddThh:mm:ssZ" of a moment in seconds since 1970.
std::string formatTime(std::uint64_t moment);

// A number of hundredths as a decimal, "3.07".
std::string formatHundredths(std::int64_t hundredths);

}  // namespace simgateway
