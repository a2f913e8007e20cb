#include "stapi_zul_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int aboveStandardStreams(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int raised = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(descriptor);
    errno = error;
    return raised;
}
