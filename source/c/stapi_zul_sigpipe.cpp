#include "stapi_zul_sigpipe.h"

#include "stapi_zul_mutex.h"

#include <signal.h>

namespace {

// Guards the writers and what the first of them saved. Nothing is taken under it.
pthread_mutex_t sigpipeMutex = PTHREAD_MUTEX_INITIALIZER;
int sigpipeWriters;
struct sigaction sigpipeSaved;

// fork() holds the mutex, so that the child gets writers and disposition that belong together.
void beforeFork() {
    pthread_mutex_lock(&sigpipeMutex);
}

void inParent() {
    pthread_mutex_unlock(&sigpipeMutex);
}

void inChild() {
    if (sigpipeWriters != 0) {
        sigpipeWriters = 0;
        sigaction(SIGPIPE, &sigpipeSaved, nullptr);
    }
    pthread_mutex_unlock(&sigpipeMutex);
}

}  // namespace

void ignoreSigpipe() {
    const MutexHold hold(sigpipeMutex);
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    if (sigpipeWriters++ == 0) {
        sigpipeSaved = before;
    }
}

void restoreSigpipe() {
    const MutexHold hold(sigpipeMutex);
    // None is left for a thread that was forked while it wrote.
    if (sigpipeWriters != 0 && --sigpipeWriters == 0) {
        sigaction(SIGPIPE, &sigpipeSaved, nullptr);
    }
}

void restoreSigpipeInChildren() {
    pthread_atfork(beforeFork, inParent, inChild);
}
