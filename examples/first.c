/*
 * A first program: opens a connection to a Gateway, shows all statistics, asks again for some of them, and closes.
 *
 *     first PORT [HOST]
 */
#include <stdio.h>
#include <stdlib.h>

#include "zulstats.h"

/* Prints the entries of a statistics result set. */
static int showStats(ResultSetToken* statistics) {
    StatData stat;
    int rc = getFirstStat(statistics, &stat);
    for (; rc == 0; rc = getNextStat(statistics, &stat)) {
        if (stat.queryElementRC < 0) {
            printf("%-34.*s  failed with %d\n", (int)stat.queryElementLen, stat.queryElementPtr,
                   (int)stat.queryElementRC);
        } else {
            printf("%-34.*s  %.*s\n", (int)stat.statIdLen, stat.statIdPtr, (int)stat.statValueLen, stat.statValuePtr);
        }
    }
    return rc == STAPI_RC_END_OF_RESULT_SET ? 0 : rc;
}

/*
 * Looks at the code of a query. With either of these two the query has closed and removed the connection: its token is
 * forgotten, because a connection opened later may get the same address.
 */
static int checkQuery(int rc, GatewayToken** gateway) {
    if (rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_REQUEST_FAILED) {
        *gateway = NULL;
    }
    return rc;
}

/* Shows everything, then the statistics of the last resource group only. */
static int showGateway(GatewayToken** gateway) {
    ResultSetToken* result = NULL;
    IdData group;
    char last[256] = "";
    int rc = checkQuery(getStats(*gateway, &result), gateway);
    if (rc == 0) {
        rc = showStats(result);
    }
    if (rc == 0) {
        rc = checkQuery(getResourceGroupIds(*gateway, &result), gateway);
    }
    if (rc != 0) {
        return rc;
    }
    for (rc = getFirstId(result, &group); rc == 0; rc = getNextId(result, &group)) {
        if (group.queryElementRC >= 0 && group.idLen < (int32_t)sizeof last) {
            snprintf(last, sizeof last, "%.*s", (int)group.idLen, group.idPtr);
        }
    }
    if (rc != STAPI_RC_END_OF_RESULT_SET) {
        return rc;
    }
    if (last[0] == '\0') {
        return 0; /* no groups; an empty query string would ask for everything */
    }
    printf("\nresource group %s:\n", last);
    rc = getStatsByStatGroupId(*gateway, last, &result); /* the one query that never removes the connection */
    return rc == 0 ? showStats(result) : rc;
}

int main(int argc, char** argv) {
    GatewayToken* gateway = NULL;
    char* version = NULL;
    int rc;
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s PORT [HOST]\n", argv[0]);
        return 2;
    }
    rc = openRemoteGatewayConnection(argc == 3 ? argv[2] : "127.0.0.1", atoi(argv[1]), &gateway, &version);
    if (rc != 0) {
        fprintf(stderr, "%s: cannot open a connection to the Gateway: code %d\n", argv[0], rc);
        return 1;
    }
    printf("statistics protocol %s\n\n", version != NULL ? version : "unknown");
    free(version);
    rc = showGateway(&gateway);
    if (rc != 0) {
        fprintf(stderr, "%s: a query failed: code %d\n", argv[0], rc);
    }
    if (gateway != NULL) {
        closeGatewayConnection(&gateway);
    }
    return rc == 0 ? 0 : 1;
}
