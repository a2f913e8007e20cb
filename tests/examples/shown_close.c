/* Linked in front of the library's closeGatewayConnection: shows the code of every close. */
#include <stdio.h>

#include "zulstats.h"

int __real_closeGatewayConnection(GatewayToken** gwTokPtr);
int __wrap_closeGatewayConnection(GatewayToken** gwTokPtr);

int __wrap_closeGatewayConnection(GatewayToken** gwTokPtr) {
    const int rc = __real_closeGatewayConnection(gwTokPtr);
    fprintf(stderr, "close: %d\n", rc);
    return rc;
}
