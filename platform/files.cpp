// Files with UTF-8 names, and the console: convert the text, make one system call, free the text.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/process.h>

#include "platform/assertion.h"
#include "platform/system_text.h"

namespace vncommon {
namespace {

// Whether there is no name to pass to the system, whose declarations forbid null. Then sets errno:
// EFAULT for a null path, as the kernel would; ENOMEM for a path that could not be converted.
bool isMissing(const SystemText& name, const char* path) {
    if (name.get() == nullptr) {
        errno = path == nullptr ? EFAULT : ENOMEM;
    }
    return name.get() == nullptr;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

char* vn_openFileUTF8(int* fd, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    VN_ASSERT(fd != nullptr);
    const SystemText name(path);
    *fd = isMissing(name, path) ? -1 : open(name.get(), flags, mode);
    if (*fd != -1) {
        return nullptr;
    }
    char message[1024];
    vn_strerror(message, sizeof message, errno);
    return vn_strdup(message);
}

FILE* vn_openStreamUTF8(const char* path, const char* mode) {
    const SystemText name(path);
    return isMissing(name, path) ? nullptr : fopen(name.get(), mode);
}

int vn_statUTF8(const char* path, struct stat* status) {
    const SystemText name(path);
    return isMissing(name, path) ? -1 : stat(name.get(), status);
}

void vn_writeToConsoleUTF8(int fd, const char* text) {
    const SystemText converted(text);
    if (converted.get() != nullptr) {
        [[maybe_unused]] const ssize_t ignored =
            write(fd, converted.get(), strlen(converted.get()));
    }
}
