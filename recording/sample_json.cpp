#include "sample_json.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "monitor/number.h"
#include "time.h"

namespace recording {

using namespace monitor;

namespace {

constexpr std::string_view SCHEMA = "zulstat/1";

// ---- writing ------------------------------------------------------------------------------------------------------

using Json = nlohmann::ordered_json;

Json itemJson(const Item& item, const Sample& sample) {
    Json json = {{"id", item.id}};
    if (holdsCounts(sample)) {
        json["statistics"] = std::stol(std::string(item.value));
    } else if (sample.hasValues) {
        json["value"] = item.value;
        if (const std::optional<Number> number = parseExactNumber(item.value)) {
            std::visit([&](auto value) { json["number"] = value; }, *number);
        }
    }
    return json;
}

Json elementsJson(const Sample& sample) {
    Json elements = Json::array();
    for (const Element& element : sample.elements) {
        Json items = Json::array();
        for (const Item& item : sample.itemsOf(element)) {
            items.push_back(itemJson(item, sample));
        }
        elements.push_back({{"element", element.text}, {"rc", element.rc}, {"items", std::move(items)}});
    }
    return elements;
}

// ---- reading ------------------------------------------------------------------------------------------------------

// The objects and arrays of a document that are looked into.
enum class In : std::uint8_t { line, document, target, query, ids, elements, element, items, item };

enum class Kind : std::uint8_t { text, number, wholeNumber, truth, object, array, other };

constexpr std::string_view kindName(Kind kind) {
    constexpr std::array<std::string_view, 7> names = {"text",   "number", "whole number", "truth value",
                                                       "object", "array",  "value"};
    return names[static_cast<std::size_t>(kind)];
}

enum class Name : std::uint8_t {
    schema,
    target,
    protocol,
    query,
    wall,
    monotonic,
    openSeconds,
    querySeconds,
    fresh,
    size,
    gap,
    elements,
    host,
    port,
    what,
    ids,
    element,
    rc,
    items,
    id,
    value,
    statistics,
    unknown
};

struct Field {
    In in;
    std::string_view text;
    Kind kind;
    bool required;
};

// The fields that are read, in the order of Name.
constexpr std::array<Field, 22> FIELDS = {{
    {In::document, "schema", Kind::text, true},
    {In::document, "target", Kind::object, true},
    {In::document, "protocol", Kind::text, true},
    {In::document, "query", Kind::object, true},
    {In::document, "wall", Kind::number, true},
    {In::document, "monotonic", Kind::number, true},
    {In::document, "open_seconds", Kind::number, false},
    {In::document, "query_seconds", Kind::number, false},
    {In::document, "fresh_connection", Kind::truth, false},
    {In::document, "size", Kind::wholeNumber, false},
    {In::document, "gap", Kind::text, false},
    {In::document, "elements", Kind::array, true},
    {In::target, "host", Kind::text, true},
    {In::target, "port", Kind::wholeNumber, true},
    {In::query, "what", Kind::text, true},
    {In::query, "ids", Kind::array, false},
    {In::element, "element", Kind::text, true},
    {In::element, "rc", Kind::wholeNumber, true},
    {In::element, "items", Kind::array, true},
    {In::item, "id", Kind::text, true},
    {In::item, "value", Kind::text, false},
    {In::item, "statistics", Kind::wholeNumber, false},
}};

constexpr std::uint32_t bit(std::size_t field) {
    return std::uint32_t{1} << field;
}
constexpr std::uint32_t bit(Name name) {
    return bit(static_cast<std::size_t>(name));
}

constexpr std::uint32_t fieldsOf(In in, bool requiredOnly) {
    std::uint32_t fields = 0;
    for (std::size_t index = 0; index < FIELDS.size(); ++index) {
        fields |= FIELDS[index].in == in && (FIELDS[index].required || !requiredOnly) ? bit(index) : 0;
    }
    return fields;
}

constexpr std::size_t LONGEST_HOST = 1024;
constexpr double LONGEST_UPTIME = 1e12;  // seconds

[[noreturn]] void refuse(const std::string& what) {
    throw BadLine(what, false);
}

[[noreturn]] void refuseLacking(std::size_t field) {
    refuse("no " + std::string(kindName(FIELDS[field].kind)) + " '" + std::string(FIELDS[field].text) + "'");
}

// A whole number of either sign.
struct Whole {
    std::uint64_t size = 0;  // without its sign
    bool negative = false;
};

// Takes what the parser of JSON finds, and makes an entry of it.
class Reading {
public:
    // The texts take no more than the line does, so they are never moved.
    Reading(std::string_view given, std::size_t elementsBefore, std::size_t itemsBefore)
        : line(given), texts(std::make_shared<std::string>()) {
        texts->reserve(line.size());
        sample().texts.push_back(texts);
        sample().elements.reserve(elementsBefore);
        sample().items.reserve(itemsBefore);
    }

    bool null() {
        found(Kind::other);
        return true;
    }
    bool boolean(bool value) {
        if (found(Kind::truth) == Name::fresh) {
            sample().freshConnection = value;
        }
        return true;
    }
    bool number_integer(std::int64_t value) {
        whole({value < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value),
               value < 0},
              static_cast<double>(value));
        return true;
    }
    bool number_unsigned(std::uint64_t value) {
        whole({value, false}, static_cast<double>(value));
        return true;
    }
    bool number_float(double value, const std::string&) {
        measure(found(Kind::number), value);
        return true;
    }
    bool string(std::string& value) {
        text(value);
        return true;
    }
    bool binary(Json::binary_t&) {
        return false;
    }
    bool start_object(std::size_t) {
        open(Kind::object);
        return true;
    }
    bool start_array(std::size_t) {
        open(Kind::array);
        return true;
    }
    bool end_object() {
        if (passedOver > 0) {
            --passedOver;
            return true;
        }
        const std::uint32_t lacking = fieldsOf(in(), true) & ~seen;
        if (lacking != 0) {
            refuseLacking(firstOf(lacking));
        }
        closeItem();
        --depth;
        return true;
    }
    bool end_array() {
        passedOver > 0 ? --passedOver : --depth;
        return true;
    }
    bool key(std::string& name) {
        if (passedOver > 0) {
            return true;
        }
        field = Name::unknown;
        for (std::size_t index = 0; index < FIELDS.size(); ++index) {
            if (FIELDS[index].in == in() && FIELDS[index].text == name) {
                if ((seen & bit(index)) != 0) {
                    refuse("two fields '" + name + "'");
                }
                seen |= bit(index);
                field = static_cast<Name>(index);
            }
        }
        return true;
    }
    template <typename Exception>
    bool parse_error(std::size_t position, const std::string&, const Exception& error) {
        constexpr int numberTooLarge = 406;
        if (error.id == numberTooLarge) {
            refuse("no JSON: a number is too large");
        }
        throw BadLine("no JSON from byte " + std::to_string(position) + " on", position > line.size());
    }

    Entry finish() {
        if ((seen & bit(Name::schema)) == 0) {
            refuseLacking(static_cast<std::size_t>(Name::schema));
        }
        checkItems();
        const std::vector<Element>& elements = sample().elements;
        entry.gap = elements.size() == 1 && elements[0].text.empty() && elements[0].rc < 0 && sample().items.empty();
        if (!entry.gap) {
            entry.reason.clear();
            return std::move(entry);
        }
        entry.rc = elements[0].rc;
        Sample kept;
        kept.target = std::move(sample().target);
        kept.query = std::move(sample().query);
        kept.wallTime = sample().wallTime;
        kept.monotonicTime = sample().monotonicTime;
        entry.sample = std::move(kept);
        return std::move(entry);
    }

private:
    Sample& sample() {
        return entry.sample;
    }
    In in() const {
        return stack[depth];
    }
    static std::size_t firstOf(std::uint32_t fields) {
        std::size_t index = 0;
        while ((fields & bit(index)) == 0) {
            ++index;
        }
        return index;
    }

    // The field that a value of this kind is for, after a look at whether it may be.
    Name found(Kind kind) {
        if (passedOver > 0) {
            return Name::unknown;
        }
        switch (in()) {
        case In::line:
            refuseLacking(static_cast<std::size_t>(Name::schema));
        case In::ids:
            if (kind != Kind::text) {
                refuse("no text in 'ids'");
            }
            return Name::ids;
        case In::elements:
        case In::items:
            if (kind != Kind::object) {
                refuse(in() == In::items ? "no object in 'items'" : "no object in 'elements'");
            }
            return Name::unknown;
        default:
            break;
        }
        const auto index = static_cast<std::size_t>(field);
        if (field == Name::unknown) {
            return field;
        }
        const Kind wanted = FIELDS[index].kind;
        if (wanted != kind && !(wanted == Kind::number && kind == Kind::wholeNumber)) {
            refuseLacking(index);
        }
        return field;
    }

    void open(Kind kind) {
        if (passedOver > 0) {
            ++passedOver;
            return;
        }
        if (in() == In::line && kind == Kind::object) {
            stack[++depth] = In::document;
            return;
        }
        const In outer = in();
        const Name name = found(kind);
        if (outer == In::elements || outer == In::items) {
            stack[++depth] = outer == In::elements ? In::element : In::item;
            seen &= ~(fieldsOf(in(), false));
            outer == In::elements ? sample().addElement("", 0) : sample().addItem("", "");
            return;
        }
        switch (name) {
        case Name::target:
            stack[++depth] = In::target;
            break;
        case Name::query:
            stack[++depth] = In::query;
            break;
        case Name::ids:
            stack[++depth] = In::ids;
            break;
        case Name::elements:
            stack[++depth] = In::elements;
            break;
        case Name::items:
            stack[++depth] = In::items;
            break;
        default:
            passedOver = 1;
            break;
        }
    }

    std::string_view keep(const std::string& text) {
        const std::size_t begin = texts->size();
        texts->append(text);
        return std::string_view(*texts).substr(begin);
    }

    void text(const std::string& value) {
        switch (found(Kind::text)) {
        case Name::schema:
            if (value != SCHEMA) {
                refuse("its schema is not " + std::string(SCHEMA));
            }
            break;
        case Name::protocol:
            sample().protocol = value;
            break;
        case Name::gap:
            entry.reason = value;
            break;
        case Name::host:
            if (value.size() > LONGEST_HOST) {
                refuse("the text 'host' is longer than " + std::to_string(LONGEST_HOST) + " bytes");
            }
            sample().target.host = value;
            break;
        case Name::what:
            what(value);
            break;
        case Name::ids:
            sample().query.ids.push_back(value);
            break;
        case Name::element:
            sample().elements.back().text = keep(value);
            break;
        case Name::id:
            sample().items.back().id = keep(value);
            break;
        case Name::value:
            sample().items.back().value = keep(value);
            break;
        default:
            break;
        }
    }

    void what(const std::string& value) {
        for (const What known :
             {What::stats, What::statsById, What::statsByGroup, What::ids, What::idsByGroup, What::groups}) {
            if (whatName(known) == value) {
                sample().query.what = known;
                return;
            }
        }
        refuse("no query is '" + value.substr(0, 40) + "'");
    }

    void whole(Whole number, double value) {
        const Name name = found(Kind::wholeNumber);
        switch (name) {
        case Name::port:
            if (number.negative || number.size > std::numeric_limits<std::uint16_t>::max()) {
                refuse("the number 'port' is none of a port");
            }
            sample().target.port = static_cast<int>(number.size);
            break;
        case Name::rc:
            if (number.size > std::uint64_t{std::numeric_limits<std::int32_t>::max()} + (number.negative ? 1 : 0)) {
                refuse("the number 'rc' has more than 32 bits");
            }
            sample().elements.back().rc = static_cast<std::int32_t>(
                number.negative ? -static_cast<std::int64_t>(number.size) : static_cast<std::int64_t>(number.size));
            break;
        case Name::size:
            if (number.negative) {
                refuse("the number 'size' is negative");
            }
            sample().contentSize = number.size;
            break;
        case Name::statistics:
            if (number.size > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
                refuse("the number 'statistics' is too large");
            }
            sample().items.back().value = keep((number.negative ? "-" : "") + std::to_string(number.size));
            break;
        default:
            measure(name, value);
            break;
        }
    }

    void measure(Name name, double value) {
        switch (name) {
        case Name::wall:
            if (!(value >= 0 && value <= LATEST_TIME)) {
                refuse("the number 'wall' is no time");
            }
            sample().wallTime = value;
            break;
        case Name::monotonic:
            if (!(value >= -LONGEST_UPTIME && value <= LONGEST_UPTIME)) {
                refuse("the number 'monotonic' is no time");
            }
            sample().monotonicTime = value;
            break;
        case Name::openSeconds:
            sample().openSeconds = value;
            break;
        case Name::querySeconds:
            sample().querySeconds = value;
            break;
        default:
            break;
        }
    }

    void closeItem() {
        if (in() == In::item) {
            itemsWithValue += (seen & bit(Name::value)) != 0 ? 1 : 0;
            itemsWithCount += (seen & bit(Name::statistics)) != 0 ? 1 : 0;
        }
    }

    // Whether the items have what the query asked for, known once both have been read.
    void checkItems() {
        const std::size_t count = sample().items.size();
        const What asked = sample().query.what;
        sample().hasValues = asksForValues(asked) || (asked == What::groups && count > 0 && itemsWithCount == count);
        if (asksForValues(asked) && itemsWithValue < count) {
            refuseLacking(static_cast<std::size_t>(Name::value));
        }
        if (!asksForValues(asked) && !sample().hasValues) {
            for (Item& item : sample().items) {
                item.value = {};
            }
        }
    }

    const std::string_view line;
    Entry entry;
    std::shared_ptr<std::string> texts;
    std::array<In, 8> stack{};  // as deep as documents are looked into
    std::size_t depth = 0;
    std::size_t passedOver = 0;  // objects and arrays that are not looked into
    std::uint32_t seen = 0;      // fields, of the innermost element and item
    Name field = Name::unknown;  // of the value that comes next
    std::size_t itemsWithValue = 0;
    std::size_t itemsWithCount = 0;
};

}  // namespace

std::string sampleLine(const Sample& sample, const Layout& layout) {
    Json document = {
        {"schema", SCHEMA},
        {"target", {{"host", sample.target.host}, {"port", sample.target.port}}},
        {"protocol", sample.protocol},
        {"query", {{"what", whatName(sample.query.what)}, {"ids", sample.query.ids}}},
        {"time", isoTime(sample.wallTime)},
        {"wall", sample.wallTime},
        {"monotonic", sample.monotonicTime},
        {"open_seconds", sample.openSeconds},
        {"query_seconds", sample.querySeconds},
        {"fresh_connection", sample.freshConnection},
        {"size", sample.contentSize},
    };
    if (!layout.gap.empty()) {
        document["gap"] = layout.gap;
    }
    document["elements"] = elementsJson(sample);
    // The library's own repair of UTF-8 may differ from repairUtf8 in the number of marks; neither loses a byte's
    // place.
    return document.dump(layout.indented ? 2 : -1, ' ', layout.ascii, Json::error_handler_t::replace) + "\n";
}

Sample gapSample(const Target& target, double wallTime, double monotonicTime, std::int32_t rc) {
    Sample sample;
    sample.target = target;
    sample.wallTime = wallTime;
    sample.monotonicTime = monotonicTime;
    sample.addElement("", rc);
    return sample;
}

double elapsed(const Sample& from, const Sample& to, bool gapBetween) {
    const double monotonic = to.monotonicTime - from.monotonicTime;
    const double wall = to.wallTime - from.wallTime;
    const double seconds = gapBetween ? (wall >= 0 ? wall : monotonic) : monotonic >= 0 ? monotonic : wall;
    return std::max(seconds, 0.0);
}

Entry LineParser::parse(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.remove_suffix(1);
    }
    Reading reading(line, elements, items);
    if (!Json::sax_parse(line.data(), line.data() + line.size(), &reading)) {
        refuse("no JSON");
    }
    Entry entry = reading.finish();
    if (!entry.gap) {
        elements = entry.sample.elements.size();
        items = entry.sample.items.size();
    }
    return entry;
}

}  // namespace recording
