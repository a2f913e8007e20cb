#include "session.h"

#include "bytes.h"

namespace simgateway {

namespace {

constexpr std::string_view STATS_OBJECT_NAME = "DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats";
constexpr std::string_view PROTOCOL_ATTRIBUTE = "protocol";
constexpr std::string_view STRING_SIGNATURE = "java.lang.String";

constexpr std::uint32_t CLOSE_ECHO = 0xFFFFFFFF;

// Size of a reply header with a usual name.
constexpr std::size_t AUTH_HEADER_SIZE = FIXED_HEADER_SIZE + 4 + HEADER_TAIL_SIZE;
constexpr std::size_t ADMIN_HEADER_SIZE = FIXED_HEADER_SIZE + 5 + HEADER_TAIL_SIZE;

bool isCall(Exchange exchange) {
    return exchange == Exchange::getAttribute || exchange == Exchange::invoke;
}

}  // namespace

// A reply before it is bytes. Auth and admin replies begin with two words, calls have the exception flag after them.
struct Session::Answer {
    std::int32_t headerRc = 0;
    bool hasWords = false;
    std::int32_t word0 = 0;
    std::int32_t rc = 0;
    bool hasFlag = false;
    std::uint8_t exceptionFlag = 0;
    Bytes rest;

    static Answer words(std::int32_t first, std::int32_t returnCode) {
        Answer answer;
        answer.hasWords = true;
        answer.word0 = first;
        answer.rc = returnCode;
        return answer;
    }

    void shape(Exchange exchange, const Fault& fault, const std::optional<Bytes>& payload) {
        const bool refused = headerRc != 0 || rc != 0 || exceptionFlag != 0;
        if (payload && !refused) {
            rest = *payload;
            hasWords = hasWords && isCall(exchange);
        }
        if (fault.authRefused && (exchange == Exchange::authFirst || exchange == Exchange::authSecond)) {
            *this = words(0, AUTH_REFUSED_RC);
        }
        word0 = fault.word0.value_or(word0);
        rc = fault.replyRc.value_or(rc);
        exceptionFlag = fault.exceptionFlag.value_or(exceptionFlag);
    }

    Bytes body() const {
        Bytes out;
        if (hasWords) {
            put32(out, word0);
            put32(out, rc);
        }
        if (hasFlag) {
            put8(out, exceptionFlag);
        }
        putBytes(out, rest);
        return out;
    }
};

Session::Session(std::uint32_t connection) : number(connection) {
}

bool Session::accepts(Exchange exchange, const Bytes& message) const {
    try {
        checkForm(exchange, message);
        return true;
    } catch (const MalformedRequest&) {
        return false;
    }
}

void Session::checkForm(Exchange exchange, const Bytes& message) const {
    const Header header = decodeHeader(message);
    const bool usual = header.eyecatcher == EYECATCHER_TEXT && header.version == PROTOCOL_LEVEL;
    const bool asReplied = header.eyecatcher == eyecatcher && header.version == version;
    if (!usual && !asReplied) {
        throw MalformedRequest("unknown eyecatcher or version");
    }
    if (header.word12 != 0) {
        throw MalformedRequest("a request with a return code");
    }
    switch (exchange) {
    case Exchange::handshake:
        checkHandshakeBody(header, message);
        break;
    case Exchange::authFirst:
    case Exchange::authSecond:
        decodeAuthBody(header, message);
        break;
    case Exchange::adminInit:
    case Exchange::getAttribute:
    case Exchange::invoke:
        decodeAdminBody(header, message, exchange);
        break;
    case Exchange::close:
        if (header.dataLength != 0) {
            throw MalformedRequest("a close request with a body");
        }
        break;
    case Exchange::unknown:
        throw MalformedRequest("unknown request");
    }
}

Bytes Session::answer(Exchange exchange, const Bytes& message, const Fault& fault, const std::optional<Bytes>& payload,
                      const Scene& scene) {
    ++replies;
    const Header request = decodeHeader(message);
    Answer answer;
    if (echoFits(exchange, request)) {
        answer = usualAnswer(exchange, request, message, fault, scene);
    } else {
        answer.headerRc = WRONG_ECHO_RC;
    }
    answer.shape(exchange, fault, fault.payload ? fault.payload : payload);

    Bytes body = answer.body();
    if (fault.noBody) {
        body.clear();
    }
    if (fault.bodySize) {
        body.resize(*fault.bodySize);
    }
    Header header = replyHeader(request, answer, fault);
    header.dataLength = fault.dataLength.value_or(static_cast<std::int32_t>(body.size()));
    Bytes reply = encodeHeader(header);
    putBytes(reply, body);
    if (fault.rawReply) {
        reply = *fault.rawReply;
    }
    remember(exchange, reply);
    return reply;
}

// First requests carry no echo word, the second Auth step and admin calls the one of the last reply under their name.
bool Session::echoFits(Exchange exchange, const Header& request) const {
    switch (exchange) {
    case Exchange::authSecond:
        return request.word16 == authEcho;
    case Exchange::getAttribute:
    case Exchange::invoke:
        return request.word16 == adminEcho;
    case Exchange::close:
        return request.word16 == CLOSE_ECHO;
    default:
        return request.word16 == 0;
    }
}

Session::Answer Session::usualAnswer(Exchange exchange, const Header& header, const Bytes& message, const Fault& fault,
                                     const Scene& scene) const {
    const std::uint32_t low24 = number & 0xFFFFFF;
    switch (exchange) {
    case Exchange::handshake: {
        // The locale that the client asked for is accepted.
        Answer answer;
        const auto body = message.end() - header.dataLength;
        answer.rest.assign(body, message.end());
        return answer;
    }
    case Exchange::authFirst: {
        Answer answer = Answer::words(0, 0);
        put32(answer.rest, 0xA1000000 + low24);
        put32(answer.rest, 0xA2000000 + low24);
        put32(answer.rest, 0xA3000000 + low24);
        return answer;
    }
    case Exchange::authSecond: {
        const AuthBody body = decodeAuthBody(header, message);
        if (!authData || body.data != *authData || body.lastWord != 0) {
            return Answer::words(0, AUTH_REFUSED_RC);
        }
        Answer answer = Answer::words(1, 0);
        put32(answer.rest, 0xB1000000 + low24);
        put32(answer.rest, 0xB2000000 + low24);
        return answer;
    }
    case Exchange::adminInit: {
        Answer answer = Answer::words(0, 0);
        put32(answer.rest, 0x9A000000 + low24);
        return answer;
    }
    case Exchange::getAttribute:
    case Exchange::invoke:
        return answerCall(exchange, decodeAdminBody(header, message, exchange), fault, scene);
    case Exchange::close:
    case Exchange::unknown:
        break;
    }
    return {};
}

Session::Answer Session::answerCall(Exchange exchange, const AdminBody& body, const Fault& fault,
                                    const Scene& scene) const {
    const bool attribute = exchange == Exchange::getAttribute;
    Answer answer = Answer::words(static_cast<std::int32_t>(attribute ? CALL_TYPE_GET_ATTRIBUTE : CALL_TYPE_INVOKE), 0);
    answer.hasFlag = true;
    if (!adminHandle || body.handle != *adminHandle) {
        answer.rc = WRONG_HANDLE_RC;
        return answer;
    }
    const auto refuse = [&answer](std::string_view reason) {
        answer.exceptionFlag = 1;
        answer.rest = attributePayload(reason);
        return answer;
    };
    if (body.objectName != STATS_OBJECT_NAME) {
        return refuse("no such object");
    }
    if (attribute) {
        if (body.member != PROTOCOL_ATTRIBUTE) {
            return refuse("no such attribute");
        }
        answer.rest = attributePayload(scene.protocolVersion);
        return answer;
    }
    if (body.signature != STRING_SIGNATURE) {
        return refuse("no such signature");
    }
    Reply reply;
    if (body.member == "GET_STATS") {
        reply = scene.model->stats(body.query, scene.moment);
    } else if (body.member == "STAT_IDS") {
        reply = scene.model->statIds(body.query);
    } else if (body.member == "RESOURCE_GROUPS") {
        reply = scene.model->resourceGroups(body.query);
    } else {
        return refuse("no such operation");
    }
    if (fault.arrayFlag) {
        reply.flag(*fault.arrayFlag);
    }
    if (fault.blockTag) {
        reply.everyBlockTag(*fault.blockTag);
    }
    if (fault.elementRc && fault.elementIndex < reply.elements()) {
        reply.elementRc(fault.elementIndex, *fault.elementRc);
    }
    answer.rest = reply.bytes();
    return answer;
}

Header Session::replyHeader(const Header& request, const Answer& answer, const Fault& fault) const {
    Header header;
    header.eyecatcher = fault.eyecatcher.value_or(header.eyecatcher);
    header.version = fault.version.value_or(header.version);
    header.flowType = fault.flowType.value_or(request.flowType);
    header.word12 = fault.echoWord.value_or(0xE5000000 + (number & 0xFFFF) * 0x100 + (replies & 0xFF));
    header.word16 = static_cast<std::uint32_t>(fault.headerRc.value_or(answer.headerRc));
    header.name = fault.name.value_or(request.name);
    header.nameLength = fault.nameLength.value_or(static_cast<std::uint32_t>(header.name.size()));
    header.flag = fault.headerFlag.value_or(0);
    return header;
}

void Session::remember(Exchange exchange, const Bytes& reply) {
    if (reply.size() < AUTH_HEADER_SIZE) {
        return;
    }
    ByteReader header(reply);
    eyecatcher = header.getChars(4);
    version = header.get32();
    const std::uint32_t echo = ByteReader(reply, ECHO_WORD_OFFSET).get32();
    if (exchange == Exchange::authFirst) {
        authEcho = echo;
        if (reply.size() >= AUTH_HEADER_SIZE + 20) {
            ByteReader body(reply, AUTH_HEADER_SIZE);
            if (body.get32() == 0 && body.get32() == 0) {
                authData.emplace();
                for (std::uint32_t& word : *authData) {
                    word = body.get32();
                }
            }
        }
    } else if (exchange == Exchange::adminInit) {
        adminEcho = echo;
        if (reply.size() >= ADMIN_HEADER_SIZE + 12) {
            ByteReader body(reply, ADMIN_HEADER_SIZE);
            if (body.get32() == 0 && body.get32() == 0) {
                adminHandle = body.get32();
            }
        }
    } else if (isCall(exchange)) {
        adminEcho = echo;
    }
}

}  // namespace simgateway
