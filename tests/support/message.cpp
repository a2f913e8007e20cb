#include "message.h"

namespace support {

namespace {

Bytes length(std::size_t size) {
    return word(static_cast<std::uint32_t>(size));
}

Bytes chars(std::string_view characters) {
    return {characters.begin(), characters.end()};
}

Bytes text(std::string_view characters) {
    return slice(length(characters.size()), 2) + chars(characters);
}

Bytes callRequest(std::uint32_t type, std::uint32_t echo, std::uint32_t handle, std::string_view member,
                  const Bytes& parameters) {
    const Bytes call = hex("00 02 'US' 00 02 'en' 00 00") +
                       text("DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats") + text(member) + parameters;
    return request(1, echo, "Admin", word(type) + word(handle) + length(call.size()) + call);
}

}  // namespace

Bytes message(const Header& header, const Bytes& body) {
    const auto dataLength = header.dataLength.value_or(static_cast<std::int32_t>(body.size()));
    return chars(header.eyecatcher) + word(header.version) + word(header.flowType) + word(header.word12) +
           word(header.word16) + length(header.nameLength.value_or(static_cast<std::uint32_t>(header.name.size()))) +
           chars(header.name) + Bytes{header.flag} + word(static_cast<std::uint32_t>(dataLength)) + body;
}

Bytes initBody(std::uint32_t handle) {
    return word(0) + word(0) + word(handle);
}

Bytes callBody(const Bytes& payload) {
    return word(1) + word(0) + Bytes{0} + payload;
}

Bytes request(std::uint32_t flowType, std::uint32_t echo, const std::string& name, const Bytes& body) {
    return message({.name = name, .word16 = echo, .flowType = flowType}, body);
}

Bytes authSecondRequest(std::uint32_t echo, const Bytes& authData) {
    return request(1, echo, "Auth", word(1) + authData + word(0));
}

Bytes getAttributeRequest(std::uint32_t echo, std::uint32_t handle, std::string_view attribute) {
    return callRequest(1, echo, handle, attribute, {});
}

Bytes invokeRequest(std::uint32_t echo, std::uint32_t handle, std::string_view operation, std::string_view query) {
    return callRequest(5, echo, handle, operation,
                       word(1) + hex("AC ED 00 05 74") + text(query) + word(1) + text("java.lang.String"));
}

}  // namespace support
