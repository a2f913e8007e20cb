// The Gateway's side of one connection: which words it handed out, and how it answers each request.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "message.h"
#include "simgateway/model.h"
#include "simgateway/sim_gateway.h"

namespace simgateway {

// Belongs to the thread of its connection.
class Session {
public:
    explicit Session(std::uint32_t connection);

    // True when the whole message that was classified as this kind is well-formed, so that it has an answer.
    bool accepts(Exchange exchange, const Bytes& message) const;

    // The whole reply to a request that accepts() took; the scene has a model. What later requests have to hand back is
    // read from the bytes of this reply, so that it is what really went out, faults included.
    Bytes answer(Exchange exchange, const Bytes& message, const Fault& fault, const std::optional<Bytes>& payload,
                 const Scene& scene);

private:
    struct Answer;

    void checkForm(Exchange exchange, const Bytes& message) const;
    bool echoFits(Exchange exchange, const Header& request) const;
    Answer usualAnswer(Exchange exchange, const Header& header, const Bytes& message, const Fault& fault,
                       const Scene& scene) const;
    Answer answerCall(Exchange exchange, const AdminBody& body, const Fault& fault, const Scene& scene) const;
    Header replyHeader(const Header& request, const Answer& answer, const Fault& fault) const;
    void remember(Exchange exchange, const Bytes& reply);

    const std::uint32_t number;
    std::uint32_t replies = 0;

    // From the replies sent so far.
    std::string eyecatcher{EYECATCHER_TEXT};
    std::uint32_t version = PROTOCOL_LEVEL;
    std::uint32_t authEcho = 0;
    std::uint32_t adminEcho = 0;
    std::optional<std::array<std::uint32_t, 3>> authData;
    std::optional<std::uint32_t> adminHandle;
};

}  // namespace simgateway
