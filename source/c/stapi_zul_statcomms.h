// Statistics exchanges: the admin requests that fetch the protocol version, statistics and identifiers, and the parsers
// that lay their replies into a result set buffer.
#pragma once

#include "stapi_zul_socketcomms.h"
#include "zulstats.h"

#include <cstddef>
#include <cstdint>

struct GatewayToken;

inline constexpr char ADMIN_CLIENT_LANGUAGE[] = "en";
inline constexpr char ADMIN_CLIENT_COUNTRY[] = "US";
inline constexpr char STATS_MBEAN_NAME[] = "DefaultDomain:ProdId=com.qal.zul,Activity=Control,type=Stats";
inline constexpr char STATS_MBEAN_PROTOCOL_VERSION[] = "protocol";
inline constexpr char STATS_MBEAN_SIG[] = "java.lang.String";
inline constexpr char STATS_MBEAN_ACTION_GET_STATS[] = "GET_STATS";
inline constexpr char STATS_MBEAN_ACTION_STAT_IDS[] = "STAT_IDS";
inline constexpr char STATS_MBEAN_ACTION_RESOURCE_GROUPS[] = "RESOURCE_GROUPS";

// Code of the parsers, beside those of the exchanges: the content does not fit the result set buffer.
inline constexpr int STAPI_RC_FLOW_CONTENT_TOO_LARGE = -5;

// Gateway return code that tells of a lost connection.
inline constexpr std::int32_t GATEWAY_RC_CONNECTION_LOST = 0xF004;

// What the code of a failed exchange means to a caller of the library: STAPI_RC_GATEWAY_CONNECTION_LOST or
// STAPI_RC_GATEWAY_REQUEST_FAILED; 0 stays 0.
[[nodiscard]] int foldExchangeCode(int exchangeCode, const FlowReasons& reasons);

// ---- requests -----------------------------------------------------------------------------------------------------

// Fills the record's header and performs the init exchange with it, with which every admin conversation begins: a code
// of flowAdminRequest.
[[nodiscard]] int getInitAdminRequest(std::int32_t socketDesc, AdminRequest* admin, FlowReasons* reasons);

// Length of the serialised call body behind its first three words.
[[nodiscard]] std::uint32_t calculateGetAttrCallLength(const AdminRequest& admin);
[[nodiscard]] std::uint32_t calculateCallLength(const AdminRequest& admin);

// Reads the Gateway's protocol version into the token's protocolVersion, which grows if need be: a code of
// flowAdminRequest, STAPI_RC_NULL_PARAMETER when the reply has no data, or STAPI_RC_NO_MEMORY.
[[nodiscard]] int statProtocolVer(GatewayToken* gatewayToken, FlowReasons* reasons);

// Invokes an operation and lays its reply into buffer (RESULT_SET_BUFFER_SIZE bytes): a code of flowAdminRequest,
// STAPI_RC_NULL_PARAMETER when the reply has no data, or STAPI_RC_FLOW_CONTENT_TOO_LARGE. A null queryString stands for
// the empty one.
[[nodiscard]] int statCommsString(std::int32_t socketDesc, const char* queryType, const char* queryString, char* buffer,
                                  FlowReasons* reasons);

// The same with the empty query string.
[[nodiscard]] int statComms(std::int32_t socketDesc, const char* queryType, char* buffer, FlowReasons* reasons);

// ---- replies ------------------------------------------------------------------------------------------------------

// Lay reply data into a result set buffer: 0 or STAPI_RC_FLOW_CONTENT_TOO_LARGE. Reply data that ends early or is
// malformed ends the content after its last complete entry. The content is terminated in every case; capacity is never
// less than the terminator.
[[nodiscard]] int parseStatsData(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity);
[[nodiscard]] int parseIdsData(const unsigned char* rawData, char* buffer, std::size_t rawSize, std::size_t capacity);
