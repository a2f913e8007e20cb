// What a scrape asks for: the parameters and headers of an HTTP request. Bytes in, records out.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "monitor/openmetrics.h"
#include "monitor/sample.h"

namespace exporter {

using Arguments = std::multimap<std::string, std::string>;

struct ProbeParameters {
    monitor::Target target;
    std::string module = "default";
    bool debug = false;
};

// The parameters of a probe, or what is wrong with them.
std::variant<ProbeParameters, std::string> parseProbe(const Arguments& arguments);

// The format that the header Accept asks for.
monitor::MetricsFormat formatAccepted(std::string_view accept);
std::string_view contentType(monitor::MetricsFormat format);

// The seconds of a header X-Prometheus-Scrape-Timeout-Seconds; nothing where it is no number above 0.
std::optional<double> parseScrapeTimeout(std::string_view header);

// How long a probe may take: the least of the scrape's time-out less the offset, the module's deadline and 8 s. Of a
// time-out that is not twice the offset, half is left.
double probeSeconds(std::optional<double> scrapeTimeout, double offset, std::optional<double> moduleDeadline);

// User and password of a header Authorization with the scheme Basic.
struct Credentials {
    std::string user;
    std::string password;
};
std::optional<Credentials> parseBasic(std::string_view header);

}  // namespace exporter
