// Framed messages: the header that every request and reply begins with, and the bodies of the requests.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "simgateway/sim_gateway.h"

namespace simgateway {

inline constexpr std::uint32_t PROTOCOL_LEVEL = 0x00700000;  // the version word
inline constexpr std::string_view EYECATCHER_TEXT = "Gate";

inline constexpr std::int32_t FLOW_TYPE_REQUEST = 1;  // auth and admin
inline constexpr std::int32_t FLOW_TYPE_HANDSHAKE = 5;
inline constexpr std::int32_t FLOW_TYPE_CLOSE = 10;

inline constexpr std::uint32_t CALL_TYPE_INIT = 0;
inline constexpr std::uint32_t CALL_TYPE_GET_ATTRIBUTE = 1;
inline constexpr std::uint32_t CALL_TYPE_INVOKE = 5;

inline constexpr std::size_t FIXED_HEADER_SIZE = 24;  // up to the name
inline constexpr std::size_t HEADER_TAIL_SIZE = 5;    // flag byte and data length
inline constexpr std::uint32_t LONGEST_NAME = 24;
inline constexpr std::int32_t LARGEST_BODY = 1 << 20;

// Offsets of header words that a peer hands back.
inline constexpr std::size_t VERSION_OFFSET = 4;
inline constexpr std::size_t ECHO_WORD_OFFSET = 12;

struct Header {
    std::string eyecatcher{EYECATCHER_TEXT};
    std::uint32_t version = PROTOCOL_LEVEL;
    std::int32_t flowType = FLOW_TYPE_REQUEST;
    std::uint32_t word12 = 0;  // request: 0; reply: the echo word
    std::uint32_t word16 = 0;  // request: the echo word; reply: the return code
    std::uint32_t nameLength = 0;
    std::string name;
    std::uint8_t flag = 0;
    std::int32_t dataLength = 0;
};

// Bytes of a header: the words as they are, whether or not they agree with the name and a body.
Bytes encodeHeader(const Header& header);

// Decodes a whole header. Throws std::out_of_range when the bytes end early.
Header decodeHeader(const Bytes& message);

// The kind of a whole request, from its name, its flow type and the first word of its body.
Exchange classify(const Header& header, const Bytes& message);

struct AuthBody {
    std::array<std::uint32_t, 3> data{};
    std::uint32_t lastWord = 0;
};

struct AdminBody {
    std::uint32_t handle = 0;
    std::string objectName;
    std::string member;     // attribute or operation
    std::string query;      // invoke only
    std::string signature;  // invoke only
};

// Request bodies. Each throws MalformedRequest when the body is not exactly of its form.
struct MalformedRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void checkHandshakeBody(const Header& header, const Bytes& message);
AuthBody decodeAuthBody(const Header& header, const Bytes& message);
AdminBody decodeAdminBody(const Header& header, const Bytes& message, Exchange exchange);

}  // namespace simgateway
