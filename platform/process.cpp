// The process itself: its user, directory, environment and call stack.
#include "platform/process_sources.h"

#include <execinfo.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vncommon/utf8.h>

#include "platform/assertion.h"

namespace vncommon {
namespace {

char* userNumber(uid_t user) {
    char number[32];
    snprintf(number, sizeof number, "%d", static_cast<int>(user));
    return strdup(number);
}

char* toUTF8AndFree(char* systemText) {
    char* text = vn_CstrToUTF8(systemText);
    free(systemText);
    return text;
}

size_t environmentSize() {
    size_t count = 0;
    while (environ != nullptr && environ[count] != nullptr) {
        ++count;
    }
    return count;
}

// The return addresses of the last traces. Compat: never cleared; see vn_stackTrace in the header.
void* tracebuffer[maximumTraceFrames];

}  // namespace

char* userName(long recordSize, uid_t user) {
    if (recordSize == -1) {
        return strdup("unknown");
    }
    auto* strings = static_cast<char*>(malloc(static_cast<size_t>(recordSize)));
    passwd entry;
    passwd* found = nullptr;
    const bool failed =
        strings == nullptr ||
        getpwuid_r(user, &entry, strings, static_cast<size_t>(recordSize), &found) != 0;
    char* name = failed || found == nullptr ? userNumber(user) : vn_UTF8ToCstr(found->pw_name);
    free(strings);
    return name;
}

int printedTraceFrames(void* const (&frames)[maximumTraceFrames]) {
    for (int count = 0; count < maximumTraceFrames; ++count) {
        if (frames[count] == nullptr) {
            return count - 1;
        }
    }
    return maximumTraceFrames;
}

}  // namespace vncommon

using namespace vncommon;

char* vn_getUTF8UserName(void) {
    return userName(sysconf(_SC_GETPW_R_SIZE_MAX), geteuid());
}

char* vn_getUTF8CurrentDirectory(void) {
    char* path = nullptr;
    for (size_t size = 4096;; size *= 2) {
        auto* larger = static_cast<char*>(realloc(path, size + 1));
        if (larger == nullptr) {
            break;
        }
        path = larger;
        errno = 0;
        if (getcwd(path, size) != nullptr) {
            return toUTF8AndFree(path);
        }
        if (errno == 0) {  // failure without an error number: return the buffer as it is
            return path;
        }
        if (errno != ERANGE) {
            break;
        }
    }
    const int reason = errno;
    free(path);
    errno = reason;
    return nullptr;
}

int vn_getProcessId(void) {
    return getpid();
}

char** vn_getEnvironUTF8(void) {
    const size_t count = environmentSize();
    auto** copy = static_cast<char**>(malloc((count + 1) * sizeof(char*)));
    if (copy == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < count; ++i) {
        char* entry = vn_CstrToUTF8(environ[i]);
        copy[i] = entry != nullptr ? entry : strdup("Unknown");
        if (copy[i] == nullptr) {  // null ends the array, so a partial one would look complete
            vn_freeEnvironUTF8(copy);
            return nullptr;
        }
    }
    VN_ASSERT(count == 0 || copy[count - 1] != nullptr);
    copy[count] = nullptr;
    return copy;
}

void vn_freeEnvironUTF8(char** environment) {
    for (char** entry = environment; entry != nullptr && *entry != nullptr; ++entry) {
        free(*entry);
    }
    free(environment);
}

bool vn_canStackTrace(void) {
    return true;
}

void vn_stackTrace(int fd) {
    backtrace(tracebuffer, maximumTraceFrames);
    backtrace_symbols_fd(tracebuffer, printedTraceFrames(tracebuffer), fd);
}

void VN_dummyFunction(void) {}
