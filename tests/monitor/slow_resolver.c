/* Loaded before the C library: a name server that does not answer. */
#include <netdb.h>
#include <unistd.h>

int getaddrinfo(const char* node, const char* service, const struct addrinfo* hints, struct addrinfo** res) {
    (void)node, (void)service, (void)hints, (void)res;
    sleep(600);
    return EAI_AGAIN;
}
