#include "message.h"

#include <algorithm>
#include <string_view>

#include "bytes.h"

namespace simgateway {

namespace {

// Precedes a single string in an invoke body: element count, then the head of an object stream.
constexpr std::uint32_t ONE_ELEMENT = 1;

constexpr std::size_t HANDSHAKE_PADDING = 10;

void require(bool holds, const char* what) {
    if (!holds) {
        throw MalformedRequest(what);
    }
}

std::size_t bodyOffset(const Header& header) {
    return FIXED_HEADER_SIZE + header.nameLength + HEADER_TAIL_SIZE;
}

bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

void requireLanguage(std::string_view text) {
    require(text.size() == 2 && std::all_of(text.begin(), text.end(), isLower), "not a language code");
}

void requireCountry(std::string_view text) {
    require(text.size() == 2 && std::all_of(text.begin(), text.end(), isUpper), "not a country code");
}

}  // namespace

Bytes encodeHeader(const Header& header) {
    Bytes out;
    putChars(out, header.eyecatcher);
    put32(out, header.version);
    put32(out, header.flowType);
    put32(out, header.word12);
    put32(out, header.word16);
    put32(out, header.nameLength);
    putChars(out, header.name);
    put8(out, header.flag);
    put32(out, header.dataLength);
    return out;
}

Header decodeHeader(const Bytes& message) {
    ByteReader reader(message);
    Header header;
    header.eyecatcher = reader.getChars(4);
    header.version = reader.get32();
    header.flowType = static_cast<std::int32_t>(reader.get32());
    header.word12 = reader.get32();
    header.word16 = reader.get32();
    header.nameLength = reader.get32();
    header.name = reader.getChars(header.nameLength);
    header.flag = reader.get8();
    header.dataLength = static_cast<std::int32_t>(reader.get32());
    return header;
}

Exchange classify(const Header& header, const Bytes& message) {
    if (header.name == "BASE") {
        if (header.flowType == FLOW_TYPE_HANDSHAKE) {
            return Exchange::handshake;
        }
        return header.flowType == FLOW_TYPE_CLOSE ? Exchange::close : Exchange::unknown;
    }
    if (header.flowType != FLOW_TYPE_REQUEST || header.dataLength < 4) {
        return Exchange::unknown;
    }
    const std::uint32_t callType = ByteReader(message, bodyOffset(header)).get32();
    if (header.name == "Auth") {
        if (callType == 0) {
            return Exchange::authFirst;
        }
        return callType == 1 ? Exchange::authSecond : Exchange::unknown;
    }
    if (header.name == "Admin") {
        switch (callType) {
        case CALL_TYPE_INIT:
            return Exchange::adminInit;
        case CALL_TYPE_GET_ATTRIBUTE:
            return Exchange::getAttribute;
        case CALL_TYPE_INVOKE:
            return Exchange::invoke;
        default:
            break;
        }
    }
    return Exchange::unknown;
}

void checkHandshakeBody(const Header& header, const Bytes& message) {
    try {
        ByteReader reader(message, bodyOffset(header));
        requireLanguage(reader.getText());
        requireCountry(reader.getText());
        require(reader.getChars(HANDSHAKE_PADDING) == std::string(HANDSHAKE_PADDING, '\0'), "padding is not zero");
        require(reader.left() == 0, "bytes after the handshake body");
    } catch (const std::out_of_range&) {
        throw MalformedRequest("handshake body ends early");
    }
}

AuthBody decodeAuthBody(const Header& header, const Bytes& message) {
    try {
        ByteReader reader(message, bodyOffset(header));
        AuthBody body;
        if (reader.get32() == 1) {
            for (std::uint32_t& word : body.data) {
                word = reader.get32();
            }
            body.lastWord = reader.get32();
        }
        require(reader.left() == 0, "bytes after the auth body");
        return body;
    } catch (const std::out_of_range&) {
        throw MalformedRequest("auth body ends early");
    }
}

AdminBody decodeAdminBody(const Header& header, const Bytes& message, Exchange exchange) {
    try {
        ByteReader reader(message, bodyOffset(header));
        AdminBody body;
        reader.get32();
        if (exchange == Exchange::adminInit) {
            require(reader.left() == 0, "bytes after the init body");
            return body;
        }
        body.handle = reader.get32();
        require(reader.get32() == reader.left(), "call length is not that of the call");
        requireCountry(reader.getText());
        requireLanguage(reader.getText());
        require(reader.getText().empty(), "unknown domain prefix");
        body.objectName = reader.getText();
        body.member = reader.getText();
        if (exchange == Exchange::invoke) {
            require(reader.get32() == ONE_ELEMENT, "not one parameter");
            require(reader.get32() == STREAM_MAGIC_AND_VERSION && reader.get8() == TC_STRING,
                    "parameter is not a string");
            body.query = reader.getText();
            require(reader.get32() == ONE_ELEMENT, "not one parameter type");
            body.signature = reader.getText();
        }
        require(reader.left() == 0, "bytes after the call");
        return body;
    } catch (const std::out_of_range&) {
        throw MalformedRequest("admin body ends early");
    }
}

}  // namespace simgateway
