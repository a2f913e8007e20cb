// Messages between a Collector and its worker: a 4-byte length, a type byte and fields, in the machine's byte order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "collector.h"
#include "sample.h"

namespace monitor {

enum class MessageType : std::uint8_t {
    open,    // to the worker: target and trace settings, once
    query,   // to the worker
    close,   // to the worker, the last one
    phase,   // from the worker, before each step
    opened,  // from the worker, once: protocol version and how long opening took
    sample,  // from the worker: the answer to a query
    failed,  // from the worker, which ends
    closed,  // from the worker, which ends
};

class FrameWriter {
public:
    explicit FrameWriter(MessageType type);

    template <typename Value>
    requires std::is_arithmetic_v<Value> || std::is_enum_v<Value> FrameWriter& add(Value value) {
        frame.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    FrameWriter& add(std::string_view text);
    FrameWriter& add(const Query& query);
    FrameWriter& add(const Sample& sample);
    FrameWriter& add(const Failure& failure);

    std::string finish();

private:
    std::string frame;
};

// Reads fields in the order in which they were added. Throws std::runtime_error where the frame is too short.
class FrameReader {
public:
    // A whole frame, without its length.
    explicit FrameReader(std::string content);

    MessageType type() const {
        return messageType;
    }

    template <typename Value>
    requires std::is_arithmetic_v<Value> || std::is_enum_v<Value> Value take() {
        Value value;
        takeBytes(&value, sizeof value);
        return value;
    }
    std::string takeText();
    Query takeQuery();
    Sample takeSample();
    Failure takeFailure();

private:
    void takeBytes(void* target, std::size_t size);

    std::string frame;
    std::size_t position = 0;
    MessageType messageType;
};

// Removes the first whole frame from what was received; nothing when it is not complete yet.
std::optional<FrameReader> takeFrame(std::string& received);

}  // namespace monitor
