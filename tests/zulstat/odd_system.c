/* Loaded before the C library: a system that is slow or short of something, for a program but not for its worker.
 * ODD_SYSTEM says how:
 *
 *     late_send    every send but the first waits before it begins
 *     failed_send  every send arrives, and fails a while later as if the peer had gone
 *     no_process   no process can be started
 */
#define _GNU_SOURCE
#include <errno.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

static const char* mode = "";

__attribute__((constructor)) static void look(int argc, char** argv) {
    const char* const wanted = getenv("ODD_SYSTEM");
    const int worker = argc > 0 && strcmp(argv[0], "zulstats-worker") == 0;
    mode = wanted == NULL || worker ? "" : wanted;
}

static void wait_a_while(void) {
    const struct timespec while_long = {0, 300000000};
    nanosleep(&while_long, NULL);
}

ssize_t send(int socket, const void* bytes, size_t size, int flags) {
    static int sends = 0;
    if (strcmp(mode, "late_send") == 0 && sends++ > 0) {
        wait_a_while();
    }
    const ssize_t sent = sendto(socket, bytes, size, flags, NULL, 0);
    if (strcmp(mode, "failed_send") == 0) {
        wait_a_while();
        errno = EPIPE;
        return -1;
    }
    return sent;
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
    return strcmp(mode, "no_process") == 0 ? EAGAIN : posix_spawnp(pid, path, actions, attributes, argv, envp);
}
