// A Gateway for tests: speaks the server's side of the statistics protocol on a loopback port and misbehaves on demand.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simgateway/reply.h"

namespace simgateway {

// The kinds of exchange on a connection. `unknown` marks bytes that are not a request of any of the other kinds; they
// are recorded and end the connection without a reply.
enum class Exchange { handshake, authFirst, authSecond, adminInit, getAttribute, invoke, close, unknown };

// Return codes with which the Gateway answers a well-formed request that it refuses.
inline constexpr std::int32_t WRONG_ECHO_RC = 0xF001;       // header: the echo word is not the one that belongs here
inline constexpr std::int32_t CONNECTION_LOST_RC = 0xF004;  // header: never sent unasked; a value for Fault::headerRc
inline constexpr std::int32_t AUTH_REFUSED_RC = 17;         // auth rc: wrong or missing authorisation data
inline constexpr std::int32_t WRONG_HANDLE_RC = 33;         // admin rc: not the handle of this connection

// What goes wrong in one exchange. Every member left alone means health; members combine. They take effect in the
// order of their declaration: the body is shaped first, then the header, then the way the bytes travel.
struct Fault {
    // Query payload, applied to the replies that the model builds.
    std::optional<std::uint8_t> arrayFlag{};  // first payload byte; the element count follows only after 0x01
    std::optional<std::uint8_t> blockTag{};   // tag of every element's block: 0x77 short length, else long length
    std::optional<std::int32_t> elementRc{};  // return code of one query element; a negative one drops its items
    std::size_t elementIndex = 0;             // the element that elementRc is for

    // Body. For getAttribute and invoke the payload is what follows the exception flag; for the other kinds of
    // exchange it is the whole body.
    std::optional<Bytes> payload{};
    bool authRefused = false;                     // auth steps: word 0 = 0, auth rc = authRefusedRc, no auth data
    std::optional<std::int32_t> word0{};          // first body word of auth and admin replies
    std::optional<std::int32_t> replyRc{};        // second body word: auth rc, admin rc
    std::optional<std::uint8_t> exceptionFlag{};  // body byte 8 of getAttribute and invoke replies
    bool noBody = false;                          // data length 0
    std::optional<std::size_t> bodySize{};        // cut (or filled with zeros) to this size; the data length agrees

    // Header.
    std::optional<std::string> eyecatcher{};  // exactly 4 characters
    std::optional<std::uint32_t> version{};
    std::optional<std::int32_t> flowType{};
    std::optional<std::uint32_t> echoWord{};    // word at offset 12; a follow-up request brings it back
    std::optional<std::int32_t> headerRc{};     // word at offset 16
    std::optional<std::string> name{};          // the name; its length word agrees
    std::optional<std::uint32_t> nameLength{};  // the length word alone
    std::optional<std::uint8_t> headerFlag{};
    std::optional<std::int32_t> dataLength{};  // the length word alone

    // The whole message.
    std::optional<Bytes> rawReply{};

    // Travel.
    bool silent = false;                      // no reply; open until the peer closes or stop()
    std::chrono::milliseconds delay{0};       // before the first byte
    std::size_t writeSize = 0;                // bytes per write, 0 for the whole reply in one
    std::chrono::milliseconds writePause{0};  // between two writes
    std::optional<std::size_t> closeAfter{};  // bytes sent before the close; 0 sends no reply
    bool reset = false;                       // that close is a reset instead of an orderly end

    friend bool operator==(const Fault&, const Fault&) = default;
};

// One request as it arrived, header and body. Bytes of an incomplete request are there as far as they came.
struct Request {
    Exchange exchange = Exchange::unknown;
    Bytes bytes{};
    std::uint32_t connection = 0;  // 1 for the first connection that the server accepted
};

class Model;

// What a Gateway serves at one moment. The model and the text belong to whoever hands them out and outlive the server.
struct Scene {
    const Model* model = nullptr;        // nullptr: none; connections are lost and new ones refused
    std::uint64_t moment = 0;            // the time for which the model gives its values
    std::string_view protocolVersion{};  // up to 65535 bytes
    // The time in seconds up to which there goes on to be a model, or none, at least.
    double until = std::numeric_limits<double>::infinity();
};

struct Options {
    std::uint16_t port = 0;  // 0: any free port
    std::string protocolVersion = "1_0_0_0";
    std::uint64_t seed = 1;
    int stats = 150;           // number of statistics in the model
    double speed = 0;          // model seconds per real second; 0: time stands still but for advance()
    bool keepRequests = true;  // false: requests() stays empty
    // What is served at a time in seconds, which starts with 0 and runs at `speed`; replaces the model of seed and
    // stats and the protocol version. Called from many threads; never throws.
    std::function<Scene(double seconds)> scenes{};
};

// Listens on 127.0.0.1 from construction on. Every member may be called from any thread.
//
// Words in replies, for connection number c and the r-th reply on it: echo word 0xE5000000 + (c mod 65536) * 256 +
// (r mod 256), admin handle 0x9A000000 + (c mod 2^24), auth data 0xA1000000, 0xA2000000, 0xA3000000 + (c mod 2^24),
// auth results 0xB1000000 and 0xB2000000 + (c mod 2^24).
class Server {
public:
    // Throws std::system_error when it cannot listen, std::invalid_argument for options out of range.
    explicit Server(Options options = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;

    // The next `times` exchanges of this kind that have no fault waiting before them, on any connection, get the fault.
    // A request that requests() shows has taken its fault. Throws std::invalid_argument for a fault that makes no
    // sense.
    void inject(Exchange exchange, Fault fault, std::size_t times = 1);
    // Drops the faults that wait for this kind; from now on every exchange of it gets this fault, but for those that
    // inject() has one for.
    void setFault(Exchange exchange, Fault fault);
    // Exchanges of this kind for which inject() has a fault waiting.
    std::size_t pendingFaults(Exchange exchange) const;

    // Every further reply of this kind carries this payload (see Fault::payload) in place of the usual one.
    void setPayload(Exchange exchange, Bytes payload);
    void clearPayload(Exchange exchange);

    // Moves the model's time on by this many seconds. Throws std::logic_error where there are scenes.
    void advance(std::uint64_t seconds);

    std::vector<Request> requests() const;
    std::size_t connections() const;

    // True once at least `count` requests have been recorded, or exactly `count` connections are open; false when
    // `limit` has passed before.
    bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;
    bool waitForConnections(std::size_t count, std::chrono::milliseconds limit) const;

    // Ends every connection and the listening socket and waits for the threads. Further calls do nothing.
    void stop();

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace simgateway
