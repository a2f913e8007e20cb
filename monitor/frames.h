// Messages between a Collector and its worker: a 4-byte length, a type byte and fields, in the machine's byte order.
//
// Both sides begin with a hello, whose form never changes, so that each notices another version of the other. The
// program then sends open once, and queries one at a time, each after the answer to the one before; close is its last
// message. The worker tells each phase before it begins, and answers a query with a sample, close with closed. failed
// is its last message. What is read was perhaps written by another program: every length and number is looked at, and
// what makes no sense is a FrameError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "failure.h"
#include "sample.h"

namespace monitor {

inline constexpr std::uint32_t FRAME_VERSION = 2;
inline constexpr std::size_t FRAME_LIMIT = 1 << 20;  // no message is as long

enum class MessageType : std::uint8_t { hello, open, query, close, phase, opened, sample, failed, closed };

struct FrameError : std::runtime_error {
    FrameError() : std::runtime_error("a message between program and worker is not understood") {
    }
};

class FrameWriter {
public:
    explicit FrameWriter(MessageType type);

    template <typename Value>
    requires std::is_arithmetic_v<Value> || std::is_enum_v<Value> FrameWriter& add(Value value) {
        frame.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    // Length and bytes.
    FrameWriter& addText(std::string_view text);
    // The last field needs no length.
    FrameWriter& addRest(std::string_view text);

    std::string finish();

private:
    std::string frame;
};

// Reads fields in the order in which they were added; texts are views of the message. Throws FrameError where the
// message is too short, or a field is none of its kind.
class FrameReader {
public:
    // A whole message, without its length, which outlives this record.
    explicit FrameReader(std::string_view content);

    MessageType type() const {
        return messageType;
    }

    template <typename Value>
    requires(std::is_arithmetic_v<Value> && !std::is_same_v<Value, bool>) Value take() {
        Value value;
        takeBytes(&value, sizeof value);
        return value;
    }
    // `last` is the last value of the enumeration, whose values begin with 0.
    template <typename Enum>
    Enum takeEnum(Enum last) {
        const auto value = take<std::underlying_type_t<Enum>>();
        if (value > static_cast<std::underlying_type_t<Enum>>(last)) {
            throw FrameError();
        }
        return static_cast<Enum>(value);
    }
    std::string_view takeText();
    std::string_view takeRest();
    // What stands behind the next fields, which take `size` bytes. Takes nothing.
    std::string_view behind(std::size_t size) const;
    // A number of entries that take at least this many bytes each.
    std::size_t takeCount(std::size_t entrySize);

private:
    void takeBytes(void* target, std::size_t size);

    std::string_view left;
    MessageType messageType;
};

// What one side has received so far.
class FrameBuffer {
public:
    enum class Received { bytes, nothing, end };

    // Takes what the socket has. It waits for it unless `flags`, those of recv(), say otherwise; `nothing` where there
    // is nothing yet, or a signal came.
    Received receive(int socket, int flags);
    void append(std::string_view bytes);
    // The next whole message, whose bytes stay where they are until the next call of another member; nothing while it
    // is not complete. Throws FrameError for one over frameLimit.
    std::optional<FrameReader> next();
    void clear();

private:
    std::string bytes;
    std::size_t position = 0;  // of the next message
};

// Each message's writing and reading.

std::string writeHello(std::uint32_t version = FRAME_VERSION);
std::uint32_t readHello(FrameReader& frame);  // the version

struct OpenRequest {
    std::string host;
    int port = 0;
    int traceLevel = 0;
    std::string traceFile;
    std::string networks{};  // with blanks between; empty: any
};
std::string writeOpen(const OpenRequest& request);
OpenRequest readOpen(FrameReader& frame);

// The identifiers as the library takes them, with ":" between.
struct QueryRequest {
    What what = What::stats;
    std::string ids;
};
std::string writeQuery(const Query& query);
QueryRequest readQuery(FrameReader& frame);

std::string writeClose();

std::string writePhase(Phase phase);
Phase readPhase(FrameReader& frame);

struct Opened {
    std::string protocol;
    double seconds = 0;
};
std::string writeOpened(const Opened& opened);
Opened readOpened(FrameReader& frame);

// What a worker knows of a sample but its entries.
struct SampleFacts {
    bool hasValues = true;
    double wallTime = 0;
    double monotonicTime = 0;
    double querySeconds = 0;
    std::uint64_t contentSize = 0;
};
// Takes the entries of an answer, which it copies, in their order. The message has the lengths of all texts first and
// then the texts in one piece.
class SampleWriter {
public:
    void addElement(std::string_view text, std::int32_t rc);
    void addItem(std::string_view id, std::string_view value);  // to the element added last
    std::string finish(const SampleFacts& facts) const;

private:
    void addLength(std::string_view text);

    std::string table;
    std::string texts;
    std::size_t itemCountPlace = 0;  // in the table, that of the element added last
    std::uint32_t elements = 0;
    std::uint32_t items = 0;
    std::uint32_t itemsOfElement = 0;
};
// What the message has of a sample. Its texts are one block.
Sample readSample(FrameReader& frame);

std::string writeFailed(const Failure& failure);
Failure readFailed(FrameReader& frame);

std::string writeClosed();

}  // namespace monitor
