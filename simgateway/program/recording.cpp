#include "recording.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "simgateway/model.h"

namespace zulstatsim {

namespace {

using Json = nlohmann::json;
using simgateway::Model;
using simgateway::ResourceGroup;
using simgateway::Scene;

constexpr std::string_view SCHEMA = "zulstat/1";
constexpr std::size_t LONGEST_LINE = std::size_t{64} << 20;
constexpr std::size_t LONGEST_TEXT = 0xFFFF;

// What is wrong with a line.
struct BadLine : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The lines of a file, without their ends.
class LineReader {
public:
    explicit LineReader(const std::string& file) : name(file), input(std::fopen(file.c_str(), "re"), std::fclose) {
        if (input == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
    }

    // Holds until the next call; nothing at the end of the file.
    std::optional<std::string_view> next() {
        rest.erase(0, used);
        ++number;
        std::size_t searched = 0;
        std::size_t end = 0;
        while ((end = rest.find('\n', searched)) == std::string::npos) {
            searched = rest.size();
            if (searched > LONGEST_LINE) {
                throw failure("longer than " + std::to_string(LONGEST_LINE) + " bytes");
            }
            rest.resize(searched + CHUNK);
            rest.resize(searched + std::fread(rest.data() + searched, 1, CHUNK, input.get()));
            if (std::ferror(input.get()) != 0) {
                throw std::system_error(errno, std::generic_category(), name);
            }
            if (rest.size() == searched) {
                used = searched;
                return rest.empty() ? std::nullopt : std::optional<std::string_view>(rest);
            }
        }
        used = end + 1;
        return std::string_view(rest).substr(0, end);
    }

    // What is wrong with the line that next() gave.
    std::runtime_error failure(const std::string& what) const {
        return std::runtime_error(name + ":" + std::to_string(number) + ": " + what);
    }

private:
    static constexpr std::size_t CHUNK = 65536;

    const std::string name;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> input;
    std::string rest;      // what was read and not yet given, behind the line given last
    std::size_t used = 0;  // the size of that line
    std::size_t number = 0;
};

// ---- a line -------------------------------------------------------------------------------------------------------

const Json& member(const Json& object, const char* name, const char* kind, bool (Json::*isKind)() const noexcept) {
    const auto found = object.find(name);
    if (found == object.end() || !((*found).*isKind)()) {
        throw BadLine("no " + std::string(kind) + " '" + name + "'");
    }
    return *found;
}

const std::string& text(const Json& object, const char* name) {
    const auto& value = member(object, name, "text", &Json::is_string).get_ref<const std::string&>();
    if (value.size() > LONGEST_TEXT) {
        throw BadLine("the text '" + std::string(name) + "' is longer than 65535 bytes");
    }
    return value;
}

const Json& list(const Json& object, const char* name) {
    return member(object, name, "array", &Json::is_array);
}

std::int32_t returnCode(const Json& element) {
    const Json& value = member(element, "rc", "whole number", &Json::is_number_integer);
    const bool isLarge = value.is_number_unsigned() &&
                         value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int32_t>::max()};
    if (isLarge || value.get<std::int64_t>() < std::numeric_limits<std::int32_t>::min()) {
        throw BadLine("the number 'rc' has more than 32 bits");
    }
    return value.get<std::int32_t>();
}

Json parseLine(std::string_view line) {
    try {
        return Json::parse(line);
    } catch (const Json::parse_error& error) {
        throw BadLine("no JSON from byte " + std::to_string(error.byte) + " on");
    } catch (const Json::exception&) {
        throw BadLine("no JSON: a number is too large");
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

// A gap is written as one element without a name, with a code of the client's.
bool isGap(const std::vector<ResourceGroup>& groups) {
    return groups.size() == 1 && groups[0].id.empty() && groups[0].rc < 0;
}

// Whether the element stands for a resource group rather than for an identifier or for everything.
bool isGroup(const ResourceGroup& group) {
    const bool namesItsItem = group.statistics.size() == 1 && group.statistics[0].id == group.id;
    return group.rc >= 0 && group.id != "*" && !namesItsItem;
}

// Never changes once it is read. Models point into it.
class Recording {
public:
    void read(const std::string& file, bool again) {
        LineReader lines(file);
        while (const std::optional<std::string_view> line = lines.next()) {
            if (line->find_first_not_of(" \t\r") == std::string_view::npos) {
                continue;
            }
            try {
                add(parseLine(*line));
            } catch (const BadLine& error) {
                throw lines.failure(error.what());
            }
        }
        if (samples.empty()) {
            throw std::runtime_error(file + ": no sample");
        }
        finish(again);
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
    void add(const Json& document) {
        if (text(document, "schema") != SCHEMA) {
            throw BadLine("its schema is not " + std::string(SCHEMA));
        }
        const Json& query = member(document, "query", "object", &Json::is_object);
        if (!text(query, "what").starts_with("stats")) {
            throw BadLine("a sample of '" + text(query, "what") + "', which has no statistics");
        }
        const Json& target = member(document, "target", "object", &Json::is_object);
        if (firstTarget.is_null()) {
            firstTarget = target;
        } else if (target != firstTarget) {
            throw BadLine("a sample of another Gateway than the first one");
        }
        Sample sample;
        const double time = member(document, "monotonic", "number", &Json::is_number).get<double>();
        if (samples.empty()) {
            firstTime = time;
        }
        sample.time = time - firstTime;
        if (!samples.empty() && sample.time < samples.back().time) {
            throw BadLine("its time (monotonic) lies before that of the sample above");
        }
        std::vector<ResourceGroup> groups;
        for (const Json& element : list(document, "elements")) {
            groups.push_back(readElement(element, sample));
        }
        if (!isGap(groups)) {
            sample.shape = shapeOf(text(document, "protocol"), std::move(groups));
        }
        sample.values.shrink_to_fit();
        sample.ends.shrink_to_fit();
        samples.push_back(std::move(sample));
    }

    ResourceGroup readElement(const Json& element, Sample& sample) const {
        ResourceGroup group{.id = text(element, "element"), .statistics = {}, .rc = returnCode(element)};
        for (const Json& item : list(element, "items")) {
            const std::size_t index = sample.ends.size();
            group.statistics.push_back({text(item, "id"), [this, index](std::uint64_t moment) {
                                            return samples[static_cast<std::size_t>(moment)].value(index);
                                        }});
            sample.values += text(item, "value");
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
    Json firstTarget;
    double firstTime = 0;
    double period = 0;  // 0: the last sample stays
};

}  // namespace

std::function<Scene(double)> readRecording(const std::string& file, bool loop) {
    const auto recording = std::make_shared<Recording>();
    recording->read(file, loop);
    return [recording](double seconds) { return recording->at(seconds); };
}

}  // namespace zulstatsim
