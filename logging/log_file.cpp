#include "logging/log_file.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "logging/shared_field.h"

namespace vncommon {
namespace {

constexpr mode_t permissions = 0644;

void letProgramsInherit(int descriptor) {
    fcntl(descriptor, F_SETFD, 0);
}

// dup2() that replaces a descriptor in use; its copy is inherited on exec(). EBUSY: Linux has
// allocated the number in another thread's open() that has not returned yet.
bool replaceDescriptor(int opened, int old) {
    int result;
    do {
        result = dup2(opened, old);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    return result >= 0;
}

}  // namespace

int openLogFile(const char* path, int flags) {
    int descriptor;
    do {
        descriptor = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | flags, permissions);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

int isTerminal(int descriptor) {
    termios attributes;  // isatty() is not async-signal-safe by POSIX; tcgetattr() is
    return tcgetattr(descriptor, &attributes) == 0 ? 1 : 0;
}

bool ownsDescriptor(const FileLogger* logger) {
    const int fd = logger->fd;
    return logger->fileName != nullptr && fd != STDOUT_FILENO && fd != STDERR_FILENO;
}

void adoptDescriptor(FileLogger* logger, int opened) {
    const bool owned = ownsDescriptor(logger);
    const int old = logger->fd;
    if (owned && replaceDescriptor(opened, old)) {
        close(opened);
        return;
    }
    letProgramsInherit(opened);
    storeField(logger->fd, opened);
    if (owned) {  // the old number is above a limit that was lowered, for instance
        close(old);
    }
}

bool makeRoomForDescriptor(FileLogger* logger, int error) {
    if ((error != EMFILE && error != ENFILE) || !ownsDescriptor(logger)) {
        return false;
    }
    const int old = logger->fd;
    storeField(logger->fd, STDERR_FILENO);
    close(old);
    return true;
}

}  // namespace vncommon
