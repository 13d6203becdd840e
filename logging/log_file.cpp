#include "logging/log_file.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

#include "logging/shared_field.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr mode_t permissions = 0644;

// Replaces a descriptor that is in use; the new one is inherited on exec(). Linux: dup2() fails
// with EBUSY while an open() in another thread, which has not returned yet, has the number.
bool replaceDescriptor(int opened, int old) {
    int result;
    do {
        result = dup2(opened, old);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    return result >= 0;
}

}  // namespace

OpenResult openLogFile(const char* path, int flags) {
    VN_ASSERT(path != nullptr);
    int descriptor;
    do {
        descriptor = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | flags, permissions);
    } while (descriptor < 0 && errno == EINTR);
    return {descriptor, descriptor < 0 ? errno : 0};
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
    VN_ASSERT(loggerMutex.isHeldByCaller());
    VN_ASSERT(opened >= 0);
    const int old = logger->fd;
    // If the program closed the logger's descriptor, open() may have returned the same number.
    const bool owned = ownsDescriptor(logger) && opened != old;
    if (owned && replaceDescriptor(opened, old)) {
        close(opened);
        return;
    }
    fcntl(opened, F_SETFD, 0);  // clears FD_CLOEXEC
    storeField(logger->fd, opened);
    if (owned) {  // dup2() failed, for instance because RLIMIT_NOFILE was lowered
        close(old);
    }
}

bool makeRoomForDescriptor(FileLogger* logger, int error) {
    if ((error != EMFILE && error != ENFILE) || !ownsDescriptor(logger)) {
        return false;
    }
    VN_ASSERT(loggerMutex.isHeldByCaller());
    const int old = logger->fd;
    storeField(logger->fd, STDERR_FILENO);
    close(old);
    VN_ASSERT(!ownsDescriptor(logger));
    return true;
}

}  // namespace vncommon
