#include "recording.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "recording/reader.h"
#include "simgateway/model.h"

namespace zulstatsim {

namespace {

using simgateway::Model;
using simgateway::ResourceGroup;
using simgateway::Scene;

constexpr std::size_t LONGEST_TEXT = 0xFFFF;

// What is wrong with a sample.
struct Unfit : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void refuseLong(std::string_view text, const char* name) {
    if (text.size() > LONGEST_TEXT) {
        throw Unfit("the text '" + std::string(name) + "' is longer than 65535 bytes");
    }
}

// ---- samples ------------------------------------------------------------------------------------------------------

// What samples have in common that differ in their values alone.
struct Shape {
    std::string protocol;
    std::unique_ptr<const Model> model;
};

struct Sample {
    double time = 0;               // seconds after the first one
    double until = 0;              // the time up to which samples go on to be there, or to be missing
    const Shape* shape = nullptr;  // nullptr: failed
    // The values of all items, and where each of them ends.
    std::string values{};
    std::vector<std::uint32_t> ends{};

    std::string value(std::size_t item) const {
        const std::size_t begin = item == 0 ? 0 : ends[item - 1];
        return values.substr(begin, ends[item] - begin);
    }
};

// Whether the element stands for a resource group rather than for an identifier or for everything.
bool isGroup(const ResourceGroup& group) {
    const bool namesItsItem = group.statistics.size() == 1 && group.statistics[0].id == group.id;
    return group.rc >= 0 && group.id != "*" && !namesItsItem;
}

// Never changes once it is read. Models point into it.
class Recording {
public:
    // Returns how many lines are passed over.
    std::uint64_t read(const std::string& file, bool again) {
        recording::Reader reader(file);
        while (const std::optional<recording::Entry> entry = reader.next()) {
            if (!reader.complaint().empty()) {
                break;
            }
            try {
                add(*entry);
            } catch (const Unfit& error) {
                throw std::runtime_error(file + ":" + std::to_string(reader.line()) + ": " + error.what());
            }
        }
        if (!reader.complaint().empty()) {
            throw std::runtime_error(reader.complaint());
        }
        if (samples.empty()) {
            throw std::runtime_error(file + ": no sample");
        }
        finish(again);
        return reader.counts().torn;
    }

    Scene at(double seconds) const {
        const double begin = period > 0 ? std::floor(seconds / period) * period : 0;
        const double time = std::max(0.0, seconds - begin);
        const auto next = std::upper_bound(samples.begin(), samples.end(), time,
                                           [](double wanted, const Sample& sample) { return wanted < sample.time; });
        const Sample& sample = *(next - 1);
        Scene scene;
        scene.until = begin + sample.until;
        if (sample.shape != nullptr) {
            scene.model = sample.shape->model.get();
            scene.moment = static_cast<std::uint64_t>(next - 1 - samples.begin());
            scene.protocolVersion = sample.shape->protocol;
        }
        return scene;
    }

private:
    void add(const recording::Entry& entry) {
        const monitor::Sample& given = entry.sample;
        if (!monitor::asksForValues(given.query.what)) {
            throw Unfit("a sample of '" + std::string(monitor::whatName(given.query.what)) +
                        "', which has no statistics");
        }
        Sample sample;
        if (samples.empty()) {
            firstTarget = given.target;
            firstTime = given.monotonicTime;
        } else if (monitor::targetText(given.target) != monitor::targetText(firstTarget)) {
            throw Unfit("a sample of another Gateway than the first one");
        } else if (given.monotonicTime < former.monotonicTime) {
            // The machine that recorded was started anew.
            firstTime = given.monotonicTime - samples.back().time - recording::elapsed(former, given, entry.gap);
        }
        sample.time = std::max(given.monotonicTime - firstTime, samples.empty() ? 0 : samples.back().time);
        former.monotonicTime = given.monotonicTime;
        former.wallTime = given.wallTime;
        if (!entry.gap) {
            std::vector<ResourceGroup> groups;
            for (const monitor::Element& element : given.elements) {
                groups.push_back(readElement(element, given, sample));
            }
            refuseLong(given.protocol, "protocol");
            sample.shape = shapeOf(given.protocol, std::move(groups));
        }
        sample.values.shrink_to_fit();
        sample.ends.shrink_to_fit();
        samples.push_back(std::move(sample));
    }

    ResourceGroup readElement(const monitor::Element& element, const monitor::Sample& given, Sample& sample) const {
        refuseLong(element.text, "element");
        ResourceGroup group{.id = std::string(element.text), .statistics = {}, .rc = element.rc};
        for (const monitor::Item& item : given.itemsOf(element)) {
            refuseLong(item.id, "id");
            refuseLong(item.value, "value");
            const std::size_t index = sample.ends.size();
            group.statistics.push_back({std::string(item.id), [this, index](std::uint64_t moment) {
                                            return samples[static_cast<std::size_t>(moment)].value(index);
                                        }});
            sample.values += item.value;
            sample.ends.push_back(static_cast<std::uint32_t>(sample.values.size()));
        }
        group.isListed = isGroup(group);
        return group;
    }

    // The shape of these groups, a new one if there is none like it.
    const Shape* shapeOf(const std::string& protocol, std::vector<ResourceGroup> groups) {
        std::string key;
        const auto addToKey = [&key](std::string_view part) { key += std::to_string(part.size()) + ':' += part; };
        addToKey(protocol);
        for (const ResourceGroup& group : groups) {
            addToKey(group.id);
            key += std::to_string(group.rc) + '/' + std::to_string(group.statistics.size()) + '/';
            for (const simgateway::Statistic& statistic : group.statistics) {
                addToKey(statistic.id);
            }
        }
        std::unique_ptr<Shape>& shape = shapes[std::move(key)];
        if (shape == nullptr) {
            shape = std::make_unique<Shape>(Shape{protocol, std::make_unique<const Model>(std::move(groups))});
        }
        return shape.get();
    }

    void finish(bool again) {
        const double last = samples.back().time;
        const double step = samples.size() > 1 ? last - samples[samples.size() - 2].time : 0;
        period = again ? last + (step > 0 ? step : 1) : 0;
        double until = again ? period : std::numeric_limits<double>::infinity();
        for (std::size_t index = samples.size(); index-- > 0;) {
            const bool changes = index + 1 < samples.size() &&
                                 (samples[index].shape == nullptr) != (samples[index + 1].shape == nullptr);
            until = changes ? samples[index + 1].time : until;
            samples[index].until = until;
        }
    }

    std::vector<Sample> samples;
    std::unordered_map<std::string, std::unique_ptr<Shape>> shapes;
    monitor::Target firstTarget;
    double firstTime = 0;      // monotonic; since a restart of the machine such that time goes on
    monitor::Sample former{};  // its times
    double period = 0;         // 0: the last sample stays
};

}  // namespace

std::function<Scene(double)> readRecording(const std::string& file, bool loop, std::uint64_t* passedOver) {
    const auto recording = std::make_shared<Recording>();
    const std::uint64_t torn = recording->read(file, loop);
    if (passedOver != nullptr) {
        *passedOver = torn;
    }
    return [recording](double seconds) { return recording->at(seconds); };
}

}  // namespace zulstatsim
