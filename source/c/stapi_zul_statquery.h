// The six statistics queries on a connected socket. Each lays the Gateway's answer into buffer (RESULT_SET_BUFFER_SIZE
// bytes and slack) and folds the codes of the exchange into 0, STAPI_RC_GATEWAY_CONNECTION_LOST,
// STAPI_RC_GATEWAY_REQUEST_FAILED, or STAPI_RC_NULL_PARAMETER for a null buffer. A failed exchange leaves the buffer
// untouched; an answer that does not fit leaves it cut and terminated. Nothing guards a socket that two threads use.
#pragma once

#include "stapi_zul_statcomms.h"

#include <cstdint>

[[nodiscard]] int commsStats(std::int32_t socketDesc, char* buffer);
[[nodiscard]] int commsStatIds(std::int32_t socketDesc, char* buffer);
[[nodiscard]] int commsResourceGroupsIds(std::int32_t socketDesc, char* buffer);
[[nodiscard]] int commsStatsByStatGroupId(std::int32_t socketDesc, char* buffer, const char* ids);
[[nodiscard]] int commsStatsByStatId(std::int32_t socketDesc, char* buffer, const char* ids);
[[nodiscard]] int commsStatIdsByStatGroupId(std::int32_t socketDesc, char* buffer, const char* ids);
