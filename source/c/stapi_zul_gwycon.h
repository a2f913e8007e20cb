// The TCP connection to the Gateway: connecting, with the handshake and the authorisation, and closing.
#pragma once

#include "stapi_zul_socketcomms.h"

#include <cstdint>

// Codes of this layer.
inline constexpr int STAPI_RC_SOCKET_CONNECT_ERROR = -100;
inline constexpr int STAPI_RC_SOCKET_RESOLVE_FAILED = -101;
inline constexpr int STAPI_RC_SOCKET_CREATE_FAILED = -102;
inline constexpr int STAPI_RC_SOCKET_CONNECT_TIMEOUT = -103;
inline constexpr int STAPI_RC_SOCKET_CONNECT_REFUSED = -104;
inline constexpr int STAPI_RC_SOCKET_NETWORK_UNREACHABLE = -105;

// In place of a descriptor: whoever waits for the connection has given it up before there was one.
inline constexpr std::int32_t SOCKET_SHUT = -2;

// Connects, then flows handshake and authorisation, whose failures show in the first admin exchange only. Stores the
// descriptor as soon as there is one and never closes it; where it finds SOCKET_SHUT it goes no further and fails. 0 or
// a code of this layer but STAPI_RC_SOCKET_CONNECT_TIMEOUT.
[[nodiscard]] int connectToGateway(std::uint32_t port, const char* host, std::int32_t* socketDescriptorPtr);

// Makes a new socket known to other threads; false when one of them has given the connection up before.
[[nodiscard]] bool publishSocket(std::int32_t* socketDescriptorPtr, std::int32_t descriptor);

// Gives the connection up, in any thread: shuts its socket down, or stores SOCKET_SHUT while there is none.
void shutSocket(std::int32_t* socketDescriptorPtr);

// Waits up to 60 seconds for a connect in progress: 0, STAPI_RC_SOCKET_CONNECT_TIMEOUT, or
// STAPI_RC_SOCKET_CONNECT_ERROR with the error number stored.
[[nodiscard]] int waitForConnection(const std::int32_t* socketDescriptorPtr, std::int32_t* errorPtr);

// Both authorisation steps: a code of flowAuthRequest.
[[nodiscard]] int authorizeConnection(std::int32_t socketDescriptor, FlowReasons* reasons);

// Flows the close request and closes the descriptor: the result of close().
[[nodiscard]] int closeConnection(const std::int32_t* socketDescriptorPtr);
