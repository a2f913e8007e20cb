/*
 * Watches chosen statistics: finds the identifiers of a group once, turns them into a query string with getIdQuery, and
 * asks for just these every second.
 *
 *     watch PORT GROUP [COUNT]
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "zulstats.h"

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

/* The query string lives in the result set, so a copy of that is kept while it is in use. */
static int chooseIds(GatewayToken** gateway, const char* group, ResultSetToken** kept, char** idQuery) {
    ResultSetToken* ids = NULL;
    int rc = checkQuery(getStatIdsByStatGroupId(*gateway, group, &ids), gateway);
    if (rc == 0) {
        rc = copyResultSet(ids, kept);
    }
    return rc == 0 ? getIdQuery(*kept, idQuery) : rc;
}

static int showOnce(GatewayToken** gateway, const char* idQuery) {
    ResultSetToken* result = NULL;
    StatData stat;
    int rc = checkQuery(getStatsByStatId(*gateway, idQuery, &result), gateway);
    if (rc != 0) {
        return rc;
    }
    while ((rc = getNextStat(result, &stat)) == 0) {
        if (stat.queryElementRC >= 0) {
            printf("%.*s=%.*s ", (int)stat.statIdLen, stat.statIdPtr, (int)stat.statValueLen, stat.statValuePtr);
        }
    }
    printf("\n");
    fflush(stdout);
    return rc == STAPI_RC_END_OF_RESULT_SET ? 0 : rc;
}

int main(int argc, char** argv) {
    GatewayToken* gateway = NULL;
    ResultSetToken* kept = NULL;
    char* version = NULL;
    char* idQuery = NULL;
    int count;
    int rc;
    if (argc < 3 || argc > 4) {
        fprintf(stderr, "usage: %s PORT GROUP [COUNT]\n", argv[0]);
        return 2;
    }
    count = argc == 4 ? atoi(argv[3]) : 10;
    rc = openGatewayConnection(atoi(argv[1]), &gateway, &version);
    if (rc != 0) {
        fprintf(stderr, "%s: cannot open a connection to the Gateway: code %d\n", argv[0], rc);
        return 1;
    }
    free(version);
    rc = chooseIds(&gateway, argv[2], &kept, &idQuery);
    while (rc == 0 && count-- > 0) {
        rc = showOnce(&gateway, idQuery);
        if (rc == 0 && count > 0) {
            sleep(1);
        }
    }
    if (rc == STAPI_RC_NO_GOOD_IDS) {
        fprintf(stderr, "%s: the Gateway knows no group %s\n", argv[0], argv[2]);
    } else if (rc != 0) {
        fprintf(stderr, "%s: a query failed: code %d\n", argv[0], rc);
    }
    if (kept != NULL) {
        freeResultSet(&kept);
    }
    if (gateway != NULL) {
        closeGatewayConnection(&gateway);
    }
    return rc == 0 ? 0 : 1;
}
