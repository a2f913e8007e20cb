// A Gateway that sends anything: every exchange ends with a documented code and the reason that belongs to it.
#include "peer.h"

#include "stapi_zul_gwycon.h"
#include "stapi_zul_gwytok.h"
#include "stapi_zul_resultsetbuffer.h"
#include "stapi_zul_statcomms.h"

#include <cstring>

namespace {

constexpr std::int32_t DESCRIPTOR = 1000;  // of no file; the wrapped calls do not look at it
char content[RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK];

int runVersion(FlowReasons* reasons) {
    GatewayToken token{};
    token.socket = DESCRIPTOR;
    token.protocolVersion = static_cast<char*>(std::calloc(PROTOCOL_VERSION_SIZE, 1));
    const int rc = statProtocolVer(&token, reasons);
    REQUIRE(token.protocolVersion == nullptr || std::strlen(token.protocolVersion) < 0x8000);
    std::free(token.protocolVersion);
    return rc;
}

int runQuery(const char* action, FlowReasons* reasons) {
    std::memset(content, 0, EYECATCHER_SIZE);
    const int rc = statCommsString(DESCRIPTOR, action, "ids", content, reasons);
    const bool laid = hasContent(content, STATS_CONTENT_MARKER) || hasContent(content, IDS_CONTENT_MARKER);
    REQUIRE(laid == isOneOf(rc, 0, STAPI_RC_FLOW_CONTENT_TOO_LARGE));
    return rc;
}

int runExchange(unsigned choice, FlowReasons* reasons) {
    return choice == 0   ? flowHandshakeRequest(DESCRIPTOR, reasons)
           : choice == 1 ? flowCloseRequest(DESCRIPTOR, reasons)
           : choice == 2 ? authorizeConnection(DESCRIPTOR, reasons)
           : choice == 3 ? runVersion(reasons)
           : choice == 4 ? runQuery(STATS_MBEAN_ACTION_STAT_IDS, reasons)
                         : runQuery(STATS_MBEAN_ACTION_GET_STATS, reasons);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in = {data, size};
    const unsigned allocations = in.byte();
    const unsigned choice = allocations % 6;
    chooseTrace(in);
    const Input choices = in.take(in.byte());
    peer = {Peer::SCRIPTED, in, choices, 0, -1, allocations / 6};
    FlowReasons reasons{};
    const int rc = runExchange(choice, &reasons);
    REQUIRE(isOneOf(rc, 0, STAPI_RC_FLOW_COMMS_FAILED, STAPI_RC_FLOW_GATEWAY_ERROR, STAPI_RC_NO_MEMORY) ||
            (choice == 2 && rc == STAPI_RC_FLOW_AUTH_FAILED) || (choice > 2 && rc == STAPI_RC_FLOW_ADMIN_FAILED) ||
            (choice > 2 && rc == STAPI_RC_NULL_PARAMETER) || (choice > 3 && rc == STAPI_RC_FLOW_CONTENT_TOO_LARGE));
    REQUIRE((reasons.gwyRc != 0) == (rc == STAPI_RC_FLOW_GATEWAY_ERROR));
    REQUIRE((reasons.authRc != 0) == (rc == STAPI_RC_FLOW_AUTH_FAILED));
    REQUIRE(reasons.adminRc == 0 || rc == STAPI_RC_FLOW_ADMIN_FAILED);
    REQUIRE(reasons.errNum == 0 || rc == STAPI_RC_FLOW_COMMS_FAILED);
    REQUIRE(setAPITraceLevel(0) == 0);
    return 0;
}
