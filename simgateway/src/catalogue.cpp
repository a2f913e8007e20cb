#include "catalogue.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "series.h"

namespace simgateway {

namespace {

// The daemon was started at this moment plus some hours that the seed decides; model time counts from there.
constexpr std::uint64_t EPOCH = 1704067200;  // 2024-01-01T00:00:00Z
constexpr std::uint64_t LATEST_START = 86400;

constexpr std::uint64_t STATE_SECONDS = 300;  // a state name lasts at least this long

// Fills one group. Statistic identifiers are the group's identifier and a suffix.
class GroupWriter {
public:
    GroupWriter(ResourceGroup& target, std::uint64_t modelSeed) : group(target), seed(modelSeed) {
    }

    Counter counterOf(std::string_view suffix, std::uint64_t rate) const {
        return Counter(keyOf(seed, idOf(suffix)), rate);
    }

    Gauge gaugeOf(std::string_view suffix, std::int64_t low, std::int64_t high) const {
        return Gauge(keyOf(seed, idOf(suffix)), low, high);
    }

    template <typename Function>
    void add(std::string_view suffix, Function value) {
        group.statistics.push_back({idOf(suffix), std::move(value)});
    }

    void text(std::string_view suffix, std::string_view value) {
        add(suffix, [kept = std::string(value)](std::uint64_t) { return kept; });
    }

    void number(std::string_view suffix, std::uint64_t low, std::uint64_t high) {
        text(suffix, std::to_string(low + mix(keyOf(seed, idOf(suffix)), 0) % (high - low + 1)));
    }

    void counter(std::string_view suffix, std::uint64_t rate) {
        add(suffix, [series = counterOf(suffix, rate)](std::uint64_t t) { return std::to_string(series.at(t)); });
    }

    void gauge(std::string_view suffix, std::int64_t low, std::int64_t high) {
        add(suffix, [series = gaugeOf(suffix, low, high)](std::uint64_t t) { return std::to_string(series.at(t)); });
    }

    void hundredths(std::string_view suffix, std::int64_t low, std::int64_t high) {
        add(suffix, [series = gaugeOf(suffix, low, high)](std::uint64_t t) { return formatHundredths(series.at(t)); });
    }

    // A counter that trails another one by what a gauge holds: closed = accepted - open.
    void trailing(std::string_view suffix, Counter ahead, Gauge held) {
        add(suffix, [ahead, held](std::uint64_t t) {
            return std::to_string(ahead.at(t) - static_cast<std::uint64_t>(held.at(t)));
        });
    }

    // Mostly the first name.
    void state(std::string_view suffix, std::array<std::string_view, 3> names) {
        add(suffix, [names, key = keyOf(seed, idOf(suffix))](std::uint64_t t) {
            const auto draw = static_cast<std::size_t>(mix(key, t / STATE_SECONDS) % 16);
            return std::string(names[draw < 14 ? 0 : draw - 13]);
        });
    }

private:
    std::string idOf(std::string_view suffix) const {
        return group.id + "." + std::string(suffix);
    }

    ResourceGroup& group;
    const std::uint64_t seed;
};

std::uint64_t startTime(std::uint64_t seed) {
    return EPOCH + mix(keyOf(seed, "daemon.start.time"), 0) % LATEST_START;
}

void fillDaemon(GroupWriter group, std::uint64_t seed) {
    const std::uint64_t start = startTime(seed);
    group.text("version", "3.4.1");
    group.text("build.date", "2023-11-20");
    group.state("state", {"RUNNING", "BUSY", "CHECKPOINT"});
    group.text("start.time", formatTime(start));
    group.add("time.now", [start](std::uint64_t t) { return formatTime(start + t); });
    group.add("uptime.seconds", [](std::uint64_t t) { return std::to_string(t); });
    group.number("pid", 1000, 32000);
    group.gauge("threads.now", 40, 90);
    group.gauge("memory.used.kb", 120000, 480000);
    group.text("memory.limit.kb", "524288");
    group.gauge("files.open.now", 60, 400);
    group.counter("requests.total", 140);
    group.counter("errors.total", 1);
    group.counter("warnings.total", 2);
    group.counter("log.bytes.total", 900);
    group.hundredths("cpu.percent", 150, 7400);
}

void fillHost(GroupWriter group, std::uint64_t seed) {
    group.text("name", "zulhost");
    group.text("cpu.count", "8");
    group.hundredths("cpu.busy.percent", 500, 9800);
    group.hundredths("load.1m", 10, 1190);
    group.hundredths("load.5m", 20, 950);
    group.hundredths("load.15m", 30, 720);
    group.text("memory.total.kb", "16777216");
    group.gauge("memory.free.kb", 900000, 9000000);
    group.gauge("swap.used.kb", 0, 300000);
    group.counter("net.in.bytes.total", 250000);
    group.counter("net.out.bytes.total", 410000);
    group.text("boot.time", formatTime(startTime(seed) - LATEST_START));
}

void fillConnectionManager(GroupWriter group, std::uint64_t seed) {
    const Counter accepted = group.counterOf("accepted.total", 20);
    const Gauge open = group.gaugeOf("open.now", 40, 160);
    group.state("state", {"LISTENING", "THROTTLED", "DRAINING"});
    group.text("limit", "200");
    group.gauge("open.now", 40, 160);
    group.text("open.peak", "163");
    group.gauge("idle.now", 2, 38);
    group.counter("accepted.total", 20);
    group.trailing("closed.total", accepted, open);
    group.counter("refused.total", 1);
    group.counter("timeout.total", 1);
    group.counter("reset.total", 1);
    group.counter("bytes.in.total", 36000);
    group.counter("bytes.out.total", 88000);
    group.counter("requests.total", 120);
    group.trailing("replies.total", group.counterOf("requests.total", 120), group.gaugeOf("inflight", 0, 60));
    group.gauge("backlog.now", 0, 12);
    group.add("last.accepted.time", [start = startTime(seed)](std::uint64_t t) { return formatTime(start + t); });
}

void fillWorkers(GroupWriter group) {
    const Counter started = group.counterOf("started.total", 4);
    const Gauge count = group.gaugeOf("count.now", 24, 56);
    const std::array lanes{"lane1", "lane2", "lane3"};
    std::vector<Gauge> busyLanes;
    std::vector<Counter> taskLanes;
    for (const std::string lane : lanes) {
        busyLanes.push_back(group.gaugeOf(lane + ".busy.now", 0, 8));
        taskLanes.push_back(group.counterOf(lane + ".tasks.total", 60));
    }
    const auto busy = [busyLanes](std::uint64_t t) {
        std::int64_t sum = 0;
        for (const Gauge& lane : busyLanes) {
            sum += lane.at(t);
        }
        return sum;
    };
    group.state("state", {"READY", "SATURATED", "GROWING"});
    group.text("limit", "64");
    group.gauge("count.now", 24, 56);
    group.add("busy.now", [busy](std::uint64_t t) { return std::to_string(busy(t)); });
    group.add("idle.now", [count, busy](std::uint64_t t) { return std::to_string(count.at(t) - busy(t)); });
    group.gauge("queue.now", 0, 45);
    group.text("queue.peak", "48");
    group.counter("started.total", 4);
    group.trailing("ended.total", started, count);
    group.add("tasks.total", [taskLanes](std::uint64_t t) {
        std::uint64_t sum = 0;
        for (const Counter& lane : taskLanes) {
            sum += lane.at(t);
        }
        return std::to_string(sum);
    });
    group.counter("tasks.failed.total", 1);
    group.counter("tasks.retried.total", 2);
    group.hundredths("wait.ms.avg", 2, 1900);
    group.hundredths("run.ms.avg", 80, 5200);
    group.gauge("run.ms.max", 60, 900);
    group.counter("cpu.ms.total", 700);
    for (const std::string lane : lanes) {
        group.gauge(lane + ".busy.now", 0, 8);
        group.counter(lane + ".tasks.total", 60);
    }
}

void fillServer(GroupWriter group, std::uint64_t seed, int index) {
    group.state("state", {"ACTIVE", "SUSPENDED", "RECOVERING"});
    group.text("version", "5." + std::to_string(1 + index % 4));
    group.text("address", "10.20.0." + std::to_string(10 + index % 240) + ":7600");
    group.text("connect.time", formatTime(startTime(seed) + static_cast<std::uint64_t>(index) % 60));
    group.gauge("sessions.now", 0, 32);
    group.counter("sessions.total", 3);
    group.counter("requests.total", 30);
    group.trailing("replies.total", group.counterOf("requests.total", 30), group.gaugeOf("queue.now", 0, 40));
    group.counter("errors.total", 1);
    group.counter("bytes.in.total", 9000);
    group.counter("bytes.out.total", 21000);
    group.hundredths("reply.ms.avg", 40, 3100);
    group.gauge("reply.ms.max", 35, 700);
    group.gauge("queue.now", 0, 40);
}

std::string serverName(int index) {
    constexpr std::array names{"alpha", "bravo", "charlie", "delta", "echo", "foxtrot"};
    const auto position = static_cast<std::size_t>(index);
    if (position < names.size()) {
        return names[position];
    }
    std::string name = std::to_string(index + 1);
    name.insert(name.begin(), 's');
    return name;
}

}  // namespace

std::vector<ResourceGroup> makeCatalogue(std::uint64_t seed, int statistics) {
    std::vector<ResourceGroup> groups;
    auto wanted = static_cast<std::size_t>(statistics);
    // Takes over a filled group, cut to what is still wanted. True while more is wanted.
    const auto take = [&groups, &wanted](ResourceGroup group) {
        if (group.statistics.size() > wanted) {
            group.statistics.resize(wanted);
        }
        wanted -= group.statistics.size();
        if (!group.statistics.empty()) {
            groups.push_back(std::move(group));
        }
        return wanted > 0;
    };
    ResourceGroup daemon{"daemon", {}};
    fillDaemon(GroupWriter(daemon, seed), seed);
    take(std::move(daemon));
    ResourceGroup host{"host", {}};
    fillHost(GroupWriter(host, seed), seed);
    take(std::move(host));
    ResourceGroup connectionManager{"conn", {}};
    fillConnectionManager(GroupWriter(connectionManager, seed), seed);
    take(std::move(connectionManager));
    ResourceGroup workers{"worker", {}};
    fillWorkers(GroupWriter(workers, seed));
    bool more = take(std::move(workers));
    for (int index = 0; more; ++index) {
        ResourceGroup server{"server." + serverName(index), {}};
        fillServer(GroupWriter(server, seed), seed, index);
        more = take(std::move(server));
    }
    return groups;
}

}  // namespace simgateway
