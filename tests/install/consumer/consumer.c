/* Uses the library from outside its tree, as C and as C++: the version texts, and a refused argument. */
#include <stdio.h>
#include <string.h>

#include <zulstats.h>

int main(void) {
    char* version = NULL;
    GatewayToken* gateway = NULL;
    char numbers[32];
    snprintf(numbers, sizeof numbers, "%d.%d.%d", ZULSTATS_VERSION_MAJOR, ZULSTATS_VERSION_MINOR,
             ZULSTATS_VERSION_PATCH);
    if (strcmp(ZULSTATS_VERSION, PACKAGE_VERSION) != 0 || strcmp(numbers, PACKAGE_VERSION) != 0 ||
        ZULSTATS_VERSION_NUMBER !=
            ZULSTATS_VERSION_MAJOR * 10000 + ZULSTATS_VERSION_MINOR * 100 + ZULSTATS_VERSION_PATCH) {
        printf("the header is of version %s (%s, %d), the package of %s\n", ZULSTATS_VERSION, numbers,
               ZULSTATS_VERSION_NUMBER, PACKAGE_VERSION);
        return 1;
    }
    if (getStatsAPIVersion(&version) != 0 || strcmp(version, "1_1_0_0") != 0) {
        return 2;
    }
    return openGatewayConnection(0, &gateway, &version) == STAPI_RC_INVALID_PORT ? 0 : 3;
}
