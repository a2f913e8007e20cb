#include "stapi_zul_gwycon.h"

#include "stapi_zul_descriptor.h"
#include "stapi_zul_diag.h"
#include "stapi_zul_wait.h"

#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "stapi_zul_gwycon_trace.h"

namespace {

constexpr int CONNECT_TIMEOUT_SECONDS = 60;

std::int32_t sockOptOn = 1;
std::int32_t sockOptOff = 0;

void setNonBlocking(std::int32_t socketDescriptor, std::int32_t option) {
    // Kept: the option goes by value where its address is expected, so the call fails, the socket stays blocking and
    // errno is EFAULT afterwards.
    ioctl(socketDescriptor, FIONBIO, option);
}

int connectError(int error) {
    switch (error) {
    case ENETUNREACH:
        return STAPI_RC_SOCKET_NETWORK_UNREACHABLE;
    case ECONNREFUSED:
        return STAPI_RC_SOCKET_CONNECT_REFUSED;
    default:
        return STAPI_RC_SOCKET_CONNECT_ERROR;
    }
}

void introduce(std::uint32_t port, const char* host, std::int32_t socketDescriptor) {
    TRACE(connectToGateway_connected, host, port);
    setNonBlocking(socketDescriptor, sockOptOff);
    FlowReasons reasons{};
    const int rc = flowHandshakeRequest(socketDescriptor, &reasons);
    if (rc != 0) {
        // Kept: connecting succeeds; the first admin exchange fails.
        TRACE(connectToGateway_handshakeFailed, rc, std::strerror(reasons.errNum), reasons.gwyRc, reasons.authRc);
        return;
    }
    TRACE(connectToGateway_handshakeFlowed);
    // Kept: so does connecting when the authorisation fails.
    static_cast<void>(authorizeConnection(socketDescriptor, &reasons));
}

int connectTo(std::uint32_t port, const char* host, const addrinfo& address, std::int32_t* socketDescriptorPtr) {
    TRACE(connectToGateway_creatingSocket, address.ai_family, address.ai_socktype, address.ai_protocol);
    // Not for the application's child programs.
    const int descriptor =
        aboveStandardStreams(socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol));
    std::int32_t error = errno;
    const bool isWanted = publishSocket(socketDescriptorPtr, descriptor);
    if (descriptor < 0) {
        TRACE(connectToGateway_socketFailed, std::strerror(error), error);
        return STAPI_RC_SOCKET_CREATE_FAILED;
    }
    if (!isWanted) {
        return STAPI_RC_SOCKET_CREATE_FAILED;
    }
    TRACE(connectToGateway_createdSocket, descriptor);
    setNonBlocking(descriptor, sockOptOn);

    int result = connect(descriptor, address.ai_addr, address.ai_addrlen);
    error = errno;
    if (result == -1 && error == EINPROGRESS) {
        TRACE(connectToGateway_waiting);
        result = waitForConnection(socketDescriptorPtr, &error);
    }
    if (result == 0) {
        introduce(port, host, descriptor);
        return 0;
    }
    TRACE(connectToGateway_connectFailed, std::strerror(error));
    if (result == -1 || result == STAPI_RC_SOCKET_CONNECT_ERROR) {
        return connectError(error);
    }
    // Kept: a wait that timed out counts as connected; the first exchange fails.
    return 0;
}

int resolveAndConnect(std::uint32_t port, const char* host, std::int32_t* socketDescriptorPtr) {
    char portText[16] = "";
    std::snprintf(portText, sizeof portText, "%d", static_cast<int>(port));
    addrinfo hints{};
    hints.ai_flags = AI_ALL | AI_ADDRCONFIG;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    const int resolved = getaddrinfo(host, portText, &hints, &addresses);
    if (resolved != 0) {
        TRACE(getHostInfo_unresolved, host, portText, gai_strerror(resolved), resolved);
        return STAPI_RC_SOCKET_RESOLVE_FAILED;
    }
    // Kept: only the first address is tried.
    const int rc = connectTo(port, host, *addresses, socketDescriptorPtr);
    freeaddrinfo(addresses);
    return rc;
}

// Seconds left of the wait, as the next select is given them.
int remainingSeconds(std::time_t start) {
    const int elapsed = static_cast<int>(std::difftime(std::time(nullptr), start));
    // Kept: within the first second, and past the limit, the next wait is one second.
    return elapsed >= 1 && elapsed < CONNECT_TIMEOUT_SECONDS ? CONNECT_TIMEOUT_SECONDS - elapsed : 1;
}

AuthRequest firstAuthRequest() {
    AuthRequest request{};
    request.header = newRequestHeader(AUTH_REQUEST_NAME, FLOW_CALL, 4);
    return request;
}

// The second step goes out of the record that holds the first reply: what is not set here is the reply's.
void prepareSecondAuth(AuthRequest* request) {
    request->header.returnCode = 0;
    request->header.flowType = FLOW_CALL;
    request->header.requestName = AUTH_REQUEST_NAME;
    request->header.dataLength = 20;
    request->authCallType = 1;
    request->authData4 = 0;
}

}  // namespace

bool publishSocket(std::int32_t* socketDescriptorPtr, std::int32_t descriptor) {
    return __atomic_exchange_n(socketDescriptorPtr, descriptor, __ATOMIC_ACQ_REL) != SOCKET_SHUT;
}

void shutSocket(std::int32_t* socketDescriptorPtr) {
    std::int32_t descriptor = __atomic_load_n(socketDescriptorPtr, __ATOMIC_ACQUIRE);
    if (descriptor >= 0 || !__atomic_compare_exchange_n(socketDescriptorPtr, &descriptor, SOCKET_SHUT, false,
                                                        __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
        shutdown(descriptor, SHUT_RDWR);
    }
}

int connectToGateway(std::uint32_t port, const char* host, std::int32_t* socketDescriptorPtr) {
    TRACE(connectToGateway_entry, static_cast<int>(port), host, socketDescriptorPtr);
    const int rc = resolveAndConnect(port, host, socketDescriptorPtr);
    TRACE(connectToGateway_exit, static_cast<int>(port), host, socketDescriptorPtr, rc);
    return rc;
}

int waitForConnection(const std::int32_t* socketDescriptorPtr, std::int32_t* errorPtr) {
    const std::int32_t descriptor = *socketDescriptorPtr;
    const std::time_t start = std::time(nullptr);
    bool writable = false;
    TRACE(waitForConnection_selecting, descriptor);
    int ready = waitForDescriptor(descriptor, WaitFor::CONNECTED, CONNECT_TIMEOUT_SECONDS, &writable);
    while (ready == -1 && errno == EINTR) {
        const int seconds = remainingSeconds(start);
        TRACE(waitForConnection_selecting, descriptor);
        ready = waitForDescriptor(descriptor, WaitFor::CONNECTED, seconds, &writable);
    }
    if (ready == 0) {
        TRACE(waitForConnection_timedOut, descriptor);
        return STAPI_RC_SOCKET_CONNECT_TIMEOUT;
    }
    if (ready < 0) {
        *errorPtr = errno;
        TRACE(waitForConnection_selectFailed, *errorPtr);
        return STAPI_RC_SOCKET_CONNECT_ERROR;
    }
    if (!writable) {
        // Kept: a descriptor with nothing but an exception counts as connected.
        return 0;
    }
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
    if (error == 0) {
        return 0;
    }
    TRACE(waitForConnection_socketError, descriptor, error);
    *errorPtr = error;
    return STAPI_RC_SOCKET_CONNECT_ERROR;
}

int authorizeConnection(std::int32_t socketDescriptor, FlowReasons* reasons) {
    TRACE(authorizeConnection_entry, socketDescriptor, reasons);
    AuthRequest request = firstAuthRequest();
    int rc = flowAuthRequest(socketDescriptor, &request, reasons);
    if (rc == 0) {
        prepareSecondAuth(&request);
        rc = flowAuthRequest(socketDescriptor, &request, reasons);
    }
    TRACE(authorizeConnection_exit, socketDescriptor, reasons, rc);
    return rc;
}

int closeConnection(const std::int32_t* socketDescriptorPtr) {
    TRACE(closeConnection_entry, socketDescriptorPtr);
    FlowReasons reasons{};
    static_cast<void>(flowCloseRequest(*socketDescriptorPtr, &reasons));
    const int rc = close(*socketDescriptorPtr);
    TRACE(closeConnection_exit, socketDescriptorPtr, rc);
    return rc;
}
