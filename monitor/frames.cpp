#include "frames.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace monitor {

namespace {

using Length = std::uint32_t;

void appendNumber(std::string& bytes, auto number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// The bytes that an element, an item take at least in a sample's table.
constexpr std::size_t ELEMENT_SIZE = sizeof(Length) + sizeof(std::int32_t) + sizeof(Length);
constexpr std::size_t ITEM_SIZE = sizeof(Length) + sizeof(Length);

}  // namespace

FrameWriter::FrameWriter(MessageType type) : frame(sizeof(Length), '\0') {
    add(type);
}

FrameWriter& FrameWriter::addText(std::string_view text) {
    add(static_cast<Length>(text.size()));
    return addRest(text);
}

FrameWriter& FrameWriter::addRest(std::string_view text) {
    frame.append(text);
    return *this;
}

std::string FrameWriter::finish() {
    const Length length = static_cast<Length>(frame.size() - sizeof(Length));
    std::memcpy(frame.data(), &length, sizeof length);
    return std::move(frame);
}

FrameReader::FrameReader(std::string_view content) : left(content), messageType(takeEnum(MessageType::closed)) {
}

void FrameReader::takeBytes(void* target, std::size_t size) {
    if (left.size() < size) {
        throw FrameError();
    }
    std::memcpy(target, left.data(), size);
    left.remove_prefix(size);
}

std::string_view FrameReader::takeText() {
    const Length length = take<Length>();
    if (left.size() < length) {
        throw FrameError();
    }
    const std::string_view text = left.substr(0, length);
    left.remove_prefix(length);
    return text;
}

std::string_view FrameReader::takeRest() {
    return std::exchange(left, {});
}

std::string_view FrameReader::behind(std::size_t size) const {
    if (left.size() < size) {
        throw FrameError();
    }
    return left.substr(size);
}

std::size_t FrameReader::takeCount(std::size_t entrySize) {
    const std::size_t count = take<Length>();
    if (count > left.size() / entrySize) {
        throw FrameError();
    }
    return count;
}

FrameBuffer::Received FrameBuffer::receive(int socket, int flags) {
    std::array<char, 32768> block;
    const ssize_t size = recv(socket, block.data(), block.size(), flags);
    if (size > 0) {
        append({block.data(), static_cast<std::size_t>(size)});
        return Received::bytes;
    }
    return size < 0 && (errno == EAGAIN || errno == EINTR) ? Received::nothing : Received::end;
}

void FrameBuffer::append(std::string_view more) {
    bytes.erase(0, std::exchange(position, 0));
    bytes.append(more);
}

std::optional<FrameReader> FrameBuffer::next() {
    Length length = 0;
    const std::string_view left = std::string_view(bytes).substr(position);
    if (left.size() < sizeof length) {
        return std::nullopt;
    }
    std::memcpy(&length, left.data(), sizeof length);
    if (length >= FRAME_LIMIT) {
        throw FrameError();
    }
    if (left.size() - sizeof length < length) {
        return std::nullopt;
    }
    position += sizeof length + length;
    return FrameReader(left.substr(sizeof length, length));
}

void FrameBuffer::clear() {
    bytes.clear();
    position = 0;
}

std::string writeHello(std::uint32_t version) {
    return FrameWriter(MessageType::hello).add(version).finish();
}

std::uint32_t readHello(FrameReader& frame) {
    return frame.take<std::uint32_t>();
}

std::string writeOpen(const OpenRequest& request) {
    FrameWriter writer(MessageType::open);
    writer.addText(request.host).add(request.port).add(request.traceLevel).addText(request.networks);
    writer.addRest(request.traceFile);
    return writer.finish();
}

OpenRequest readOpen(FrameReader& frame) {
    OpenRequest request;
    request.host = frame.takeText();
    request.port = frame.take<int>();
    request.traceLevel = frame.take<int>();
    request.networks = frame.takeText();
    request.traceFile = frame.takeRest();
    return request;
}

std::string writeQuery(const Query& query) {
    std::string ids;
    for (const std::string& id : query.ids) {
        ids += &id == &query.ids.front() ? "" : ":";
        ids += id;
    }
    return FrameWriter(MessageType::query).add(query.what).addRest(ids).finish();
}

QueryRequest readQuery(FrameReader& frame) {
    const What what = frame.takeEnum(What::groups);
    return {what, std::string(frame.takeRest())};
}

std::string writeClose() {
    return FrameWriter(MessageType::close).finish();
}

std::string writePhase(Phase phase) {
    return FrameWriter(MessageType::phase).add(phase).finish();
}

Phase readPhase(FrameReader& frame) {
    return frame.takeEnum(Phase::closing);
}

std::string writeOpened(const Opened& opened) {
    return FrameWriter(MessageType::opened).add(opened.seconds).addRest(opened.protocol).finish();
}

Opened readOpened(FrameReader& frame) {
    Opened opened;
    opened.seconds = frame.take<double>();
    opened.protocol = frame.takeRest();
    return opened;
}

void SampleWriter::addLength(std::string_view text) {
    appendNumber(table, static_cast<Length>(text.size()));
    texts.append(text);
}

void SampleWriter::addElement(std::string_view text, std::int32_t rc) {
    addLength(text);
    appendNumber(table, rc);
    itemCountPlace = table.size();
    itemsOfElement = 0;
    appendNumber(table, itemsOfElement);
    ++elements;
}

void SampleWriter::addItem(std::string_view id, std::string_view value) {
    addLength(id);
    addLength(value);
    ++items;
    ++itemsOfElement;
    std::memcpy(table.data() + itemCountPlace, &itemsOfElement, sizeof itemsOfElement);
}

std::string SampleWriter::finish(const SampleFacts& facts) const {
    FrameWriter writer(MessageType::sample);
    writer.add(static_cast<std::uint8_t>(facts.hasValues)).add(facts.wallTime).add(facts.monotonicTime);
    writer.add(facts.querySeconds).add(facts.contentSize).add(elements).add(items);
    return writer.addRest(table).addRest(texts).finish();
}

Sample readSample(FrameReader& frame) {
    Sample sample;
    sample.hasValues = frame.take<std::uint8_t>() != 0;
    sample.wallTime = frame.take<double>();
    sample.monotonicTime = frame.take<double>();
    sample.querySeconds = frame.take<double>();
    sample.contentSize = static_cast<std::size_t>(frame.take<std::uint64_t>());
    const std::size_t elements = frame.takeCount(ELEMENT_SIZE);
    const std::size_t items = frame.takeCount(ITEM_SIZE);
    sample.elements.reserve(elements);
    sample.items.reserve(items);

    std::string_view text = sample.keep(std::string(frame.behind(elements * ELEMENT_SIZE + items * ITEM_SIZE)));
    const auto takeText = [&] {
        const std::size_t length = frame.take<Length>();
        if (length > text.size()) {
            throw FrameError();
        }
        const std::string_view taken = text.substr(0, length);
        text.remove_prefix(length);
        return taken;
    };
    for (std::size_t element = 0; element < elements; ++element) {
        const std::string_view name = takeText();
        sample.addElement(name, frame.take<std::int32_t>());
        for (std::size_t left = frame.takeCount(ITEM_SIZE); left > 0; --left) {
            const std::string_view id = takeText();
            sample.addItem(id, takeText());
        }
    }
    if (sample.items.size() != items || !text.empty()) {
        throw FrameError();
    }
    return sample;
}

std::string writeFailed(const Failure& failure) {
    FrameWriter writer(MessageType::failed);
    return writer.add(failure.kind).add(failure.phase).add(failure.rc).addRest(failure.text).finish();
}

Failure readFailed(FrameReader& frame) {
    Failure failure;
    failure.kind = frame.takeEnum(FailureKind::forbidden);
    failure.phase = frame.takeEnum(Phase::closing);
    failure.rc = frame.take<int>();
    failure.text = frame.takeRest();
    return failure;
}

std::string writeClosed() {
    return FrameWriter(MessageType::closed).finish();
}

}  // namespace monitor
