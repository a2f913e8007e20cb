#include "frames.h"

#include <cstring>
#include <stdexcept>

namespace monitor {

namespace {

using Length = std::uint32_t;

}  // namespace

FrameWriter::FrameWriter(MessageType type) : frame(sizeof(Length), '\0') {
    add(type);
}

FrameWriter& FrameWriter::add(std::string_view text) {
    add(static_cast<Length>(text.size()));
    frame.append(text);
    return *this;
}

FrameWriter& FrameWriter::add(const Query& query) {
    add(query.what).add(static_cast<Length>(query.ids.size()));
    for (const std::string& id : query.ids) {
        add(std::string_view(id));
    }
    return *this;
}

// The collector knows target, query and what concerns the connection itself.
FrameWriter& FrameWriter::add(const Sample& sample) {
    add(sample.hasValues).add(sample.wallTime).add(sample.monotonicTime);
    add(static_cast<std::uint64_t>(sample.contentSize)).add(sample.querySeconds);
    add(static_cast<Length>(sample.elements.size()));
    for (const Element& element : sample.elements) {
        add(std::string_view(element.text)).add(element.rc).add(static_cast<Length>(element.items.size()));
        for (const Item& item : element.items) {
            add(std::string_view(item.id)).add(std::string_view(item.value));
        }
    }
    return *this;
}

FrameWriter& FrameWriter::add(const Failure& failure) {
    return add(failure.kind).add(failure.phase).add(failure.rc).add(std::string_view(failure.text));
}

std::string FrameWriter::finish() {
    const Length length = static_cast<Length>(frame.size() - sizeof(Length));
    std::memcpy(frame.data(), &length, sizeof length);
    return std::move(frame);
}

FrameReader::FrameReader(std::string content) : frame(std::move(content)), messageType(take<MessageType>()) {
}

void FrameReader::takeBytes(void* target, std::size_t size) {
    if (frame.size() - position < size) {
        throw std::runtime_error("a message of the worker is too short");
    }
    std::memcpy(target, frame.data() + position, size);
    position += size;
}

std::string FrameReader::takeText() {
    const Length length = take<Length>();
    if (frame.size() - position < length) {
        throw std::runtime_error("a message of the worker is too short");
    }
    position += length;
    return frame.substr(position - length, length);
}

Query FrameReader::takeQuery() {
    Query query;
    query.what = take<What>();
    for (Length count = take<Length>(); count > 0; --count) {
        query.ids.push_back(takeText());
    }
    return query;
}

Sample FrameReader::takeSample() {
    Sample sample;
    sample.hasValues = take<bool>();
    sample.wallTime = take<double>();
    sample.monotonicTime = take<double>();
    sample.contentSize = static_cast<std::size_t>(take<std::uint64_t>());
    sample.querySeconds = take<double>();
    for (Length count = take<Length>(); count > 0; --count) {
        Element element;
        element.text = takeText();
        element.rc = take<std::int32_t>();
        for (Length items = take<Length>(); items > 0; --items) {
            std::string id = takeText();
            element.items.push_back({std::move(id), takeText()});
        }
        sample.elements.push_back(std::move(element));
    }
    return sample;
}

Failure FrameReader::takeFailure() {
    Failure failure;
    failure.kind = take<FailureKind>();
    failure.phase = take<Phase>();
    failure.rc = take<int>();
    failure.text = takeText();
    return failure;
}

std::optional<FrameReader> takeFrame(std::string& received) {
    Length length = 0;
    if (received.size() < sizeof length) {
        return std::nullopt;
    }
    std::memcpy(&length, received.data(), sizeof length);
    if (received.size() - sizeof length < length) {
        return std::nullopt;
    }
    FrameReader reader(received.substr(sizeof length, length));
    received.erase(0, sizeof length + length);
    return reader;
}

}  // namespace monitor
