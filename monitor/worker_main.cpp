// zulstats-worker: talks to one Gateway for the program that started it. Not for people to start.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "worker.h"

int main() {
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(STDIN_FILENO, SOL_SOCKET, SO_TYPE, &type, &size) != 0) {
        std::fputs("zulstats-worker: programs start it, with a socket as its standard input\n", stderr);
        return EXIT_FAILURE;
    }
    // Its parent kills it once it has said all: nothing runs at its exit that this could cut short.
    _exit(monitor::runWorker());
}
