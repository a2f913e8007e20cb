/* Uses the library from outside its tree, as C and as C++: the version text, and a refused argument. */
#include <string.h>

#include <zulstats.h>

int main(void) {
    char* version = NULL;
    GatewayToken* gateway = NULL;
    if (getStatsAPIVersion(&version) != 0 || strcmp(version, "1_1_0_0") != 0) {
        return 1;
    }
    return openGatewayConnection(0, &gateway, &version) == STAPI_RC_INVALID_PORT ? 0 : 2;
}
