// Files and the console under UTF-8 names: convert, make the one system call, release.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/process.h>

#include "platform/system_text.h"

using vncommon::SystemText;

namespace {

// What the system says of a null path, without handing it one: its declarations forbid that.
bool isBadAddress(const char* path) {
    if (path == nullptr) {
        errno = EFAULT;
    }
    return path == nullptr;
}

}  // namespace

char* vn_openFileUTF8(int* fd, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    const SystemText name(path);
    *fd = isBadAddress(path) ? -1 : open(name.get(), flags, mode);
    if (*fd != -1) {
        return nullptr;
    }
    char message[1024];
    vn_strerror(message, sizeof message, errno);
    return vn_strdup(message);
}

FILE* vn_openStreamUTF8(const char* path, const char* mode) {
    const SystemText name(path);
    return isBadAddress(path) ? nullptr : fopen(name.get(), mode);
}

int vn_statUTF8(const char* path, struct stat* status) {
    const SystemText name(path);
    return isBadAddress(path) ? -1 : stat(name.get(), status);
}

void vn_writeToConsoleUTF8(int fd, const char* text) {
    const SystemText converted(text);
    if (converted.get() != nullptr) {
        [[maybe_unused]] const ssize_t ignored =
            write(fd, converted.get(), strlen(converted.get()));
    }
}
