// Messages between a client and the Gateway, put together byte by byte: nothing of the library's own encoding, or of
// the simulated Gateway's, is used.
#pragma once

#include "hex.h"

namespace support {

// The length words are those of name and body unless given.
struct Header {
    std::string name = "Admin";
    std::uint32_t word12 = 0;  // a request's return code; in a reply what comes back at 16 of the next request
    std::uint32_t word16 = 0;  // what an earlier reply has at 12; a reply's return code
    std::uint8_t flag = 0;
    std::string eyecatcher = "Gate";
    std::uint32_t version = 0x00700000;
    std::uint32_t flowType = 1;
    std::optional<std::uint32_t> nameLength{};
    std::optional<std::int32_t> dataLength{};
};

[[nodiscard]] Bytes message(const Header& header, const Bytes& body = {});

// Bodies of the replies to an admin init and to an admin call.
[[nodiscard]] Bytes initBody(std::uint32_t handle);
[[nodiscard]] Bytes callBody(const Bytes& payload);

[[nodiscard]] Bytes request(std::uint32_t flowType, std::uint32_t echo, const std::string& name, const Bytes& body);
[[nodiscard]] Bytes authSecondRequest(std::uint32_t echo, const Bytes& authData);
[[nodiscard]] Bytes getAttributeRequest(std::uint32_t echo, std::uint32_t handle,
                                        std::string_view attribute = "protocol");
[[nodiscard]] Bytes invokeRequest(std::uint32_t echo, std::uint32_t handle, std::string_view operation,
                                  std::string_view query = "");

inline const Bytes handshakeRequest = request(5, 0, "BASE", hex("00 02 'en' 00 02 'GB' 00 00 00 00 00 00 00 00 00 00"));
inline const Bytes authFirstRequest = request(1, 0, "Auth", word(0));
inline const Bytes adminInitRequest = request(1, 0, "Admin", word(0));
inline const Bytes closeRequest = request(10, 0xFFFFFFFF, "BASE", {});

}  // namespace support
