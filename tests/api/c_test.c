/* A caller in plain C: opens a connection to the port given, queries, walks, copies, closes. 0 if all went well. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zulstats.h"

#define CHECK(condition)                                                              \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            exit(1);                                                                  \
        }                                                                             \
    } while (0)

static int countStats(ResultSetToken* result) {
    StatData stat;
    int count = 0;
    int rc;
    for (rc = getFirstStat(result, &stat); rc == 0; rc = getNextStat(result, &stat)) {
        CHECK(memcmp(stat.eyecatcher, "ZULSTSET", sizeof stat.eyecatcher) == 0);
        CHECK(stat.queryElementRC == 0 && stat.statIdLen > 0 && stat.statValueLen > 0);
        ++count;
    }
    CHECK(rc == STAPI_RC_END_OF_RESULT_SET);
    return count;
}

int main(int argc, char** argv) {
    GatewayToken* gateway = NULL;
    ResultSetToken* result = NULL;
    ResultSetToken* copy = NULL;
    char* version = NULL;
    char* query = NULL;
    IdData id;
    int ids = 0;
    int rc;
    CHECK(argc == 2);
    CHECK(openGatewayConnection(atoi(argv[1]), &gateway, &version) == 0);
    CHECK(strcmp(version, "1_0_0_0") == 0);
    free(version);
    CHECK(getStats(gateway, &result) == 0);
    CHECK(countStats(result) == 150);
    CHECK(copyResultSet(result, &copy) == 0);
    CHECK(getStatIds(gateway, &result) == 0);
    for (rc = getFirstId(result, &id); rc == 0; rc = getNextId(result, &id)) {
        ++ids;
    }
    CHECK(rc == STAPI_RC_END_OF_RESULT_SET && ids == 150);
    CHECK(getIdQuery(result, &query) == 0);
    CHECK(getStatsByStatId(gateway, query, &result) == 0);
    CHECK(countStats(result) == 150);
    CHECK(closeGatewayConnection(&gateway) == 0);
    CHECK(gateway == NULL);
    CHECK(countStats(copy) == 150);
    CHECK(freeResultSet(&copy) == 0);
    CHECK(copy == NULL);
    return 0;
}
