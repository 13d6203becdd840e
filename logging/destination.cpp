// Where a logger writes: choosing a file, a standard stream or a descriptor, and reopening.
//
// All that can take time or fail (copies, conversions, open) happens first, on the side; then
// the logger changes over in one step with the registry locked and SIGHUP blocked; then what it
// had before is released.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <vncommon/failure.h>
#include <vncommon/file_logger.h>
#include <vncommon/process.h>
#include <vncommon/utf8.h>

#include "logging/logger_registry.h"
#include "logging/registry_lock.h"
#include "logging/reopening.h"
#include "logging/shared_field.h"

using namespace vncommon;

namespace {

enum class Before { closed, leftOpen };  // the descriptor that the logger wrote to

struct Destination {
    char* fileName;
    char* utf8FileName;
    int fd;
    bool justOpened;
    int failure;  // for FileLogger::openFailure; 0 for none
};

Destination standardStreamDestination(const char* name, int failure) {
    return {vn_strdup(name), vn_strdup(name), standardStream(name), false, failure};
}

// What open() says to a null name, without asking it.
int refuseNullName(bool nameIsUTF8, char*& errorText) {
    char text[1024];
    vn_strerror(text, sizeof text, EFAULT);
    errorText = nameIsUTF8 ? vn_strdup(text) : nullptr;
    errno = EFAULT;
    return -1;
}

// open(), with the text of its error where the name is UTF-8. errno tells the error too.
int openOnce(const char* name, int flags, bool nameIsUTF8, char*& errorText) {
    errorText = nullptr;
    if (name == nullptr) {
        return refuseNullName(nameIsUTF8, errorText);
    }
    if (!nameIsUTF8) {
        return open(name, flags, logFileMode);
    }
    int fd;
    errorText = vn_openFileUTF8(&fd, name, flags, logFileMode);
    return fd;
}

bool makeRoom(FileLogger* logger, int error) {
    const RegistryLock lock;
    return makeRoomForDescriptor(logger, error);
}

Destination openDestination(FileLogger* logger, const char* name, int truncate, bool nameIsUTF8) {
    const int flags = logFileFlags | (truncate != 0 ? O_TRUNC : 0);
    char* errorText;
    int fd = openOnce(name, flags, nameIsUTF8, errorText);
    if (fd < 0 && makeRoom(logger, errno)) {
        vn_free(errorText);
        fd = openOnce(name, flags, nameIsUTF8, errorText);
    }
    if (fd >= 0) {
        char* utf8Name = nameIsUTF8 ? vn_strdup(name) : vn_CstrToUTF8(name);
        vn_checkMemory(utf8Name);
        return {vn_strdup(name), utf8Name, fd, true, 0};
    }
    if (errorText != nullptr) {
        fprintf(stderr, "Unable to open logfile \"%s\": %s\n", name == nullptr ? "(null)" : name,
                errorText);
        fflush(stderr);
        vn_free(errorText);
    }
    return standardStreamDestination(standardErrorName, nameIsUTF8 ? 1 : 2);
}

void changeDescriptor(FileLogger* logger, const Destination& to, Before before)
    VN_REQUIRES(loggerMutex) {
    if (to.justOpened) {
        adoptDescriptor(logger, to.fd);
        return;
    }
    const bool closes = before == Before::closed && ownsDescriptor(logger);
    const int old = logger->fd;
    storeField(logger->fd, to.fd);
    if (closes) {
        close(old);
    }
}

// A failure with a message is remembered over one without.
void rememberFailure(FileLogger* logger, int failure) {
    if (failure == 1 || (failure == 2 && logger->openFailure == 0)) {
        storeField(logger->openFailure, failure);
    }
}

char* exchangeName(char*& field, char* name) {
    char* before = field;
    storeField(field, name);
    return before;
}

// The change-over: one step for the SIGHUP handler. Returns whether it is a terminal.
int changeDestination(FileLogger* logger, const Destination& to, Before before) {
    const int console = vn_isConsole(to.fd);
    ReopenPlan* plan = makeReopenPlan(to.fileName, to.utf8FileName);
    char* oldFileName;
    char* oldUTF8FileName;
    {
        const RegistryLock lock;
        changeDescriptor(logger, to, before);
        oldFileName = exchangeName(logger->fileName, to.fileName);
        oldUTF8FileName = exchangeName(logger->utf8FileName, to.utf8FileName);
        storeField(logger->console, console);
        rememberFailure(logger, to.failure);
        plan = exchangePlan(logger, plan);
    }
    vn_free(oldFileName);
    vn_free(oldUTF8FileName);
    destroyReopenPlan(plan);
    return console;
}

}  // namespace

int FileLogger_SetFilename(FileLogger* logger, const char* name, int truncate, int nameIsUTF8) {
    const bool isStandardStream = name != nullptr && standardStream(name) >= 0;
    const Destination to = isStandardStream
                               ? standardStreamDestination(name, 0)
                               : openDestination(logger, name, truncate, nameIsUTF8 != 0);
    return changeDestination(logger, to, Before::closed);
}

int FileLogger_SetFD(FileLogger* logger, int descriptor) {
    return changeDestination(logger, {nullptr, nullptr, descriptor, false, 0}, Before::leftOpen);
}

void FileLogger_ReOpen(FileLogger* logger) {
    const char* current = loadField(logger->utf8FileName);
    if (current == nullptr) {
        return;
    }
    char* name = vn_strdup(current);
    FileLogger_SetFilename(logger, name, 0, 1);
    vn_free(name);
}

int FileLogger_GetFD(const FileLogger* logger) {
    return loadField(logger->fd);
}

const char* FileLogger_GetFileName(const FileLogger* logger) {
    return loadField(logger->fileName);
}

const char* FileLogger_GetUTF8FileName(const FileLogger* logger) {
    return loadField(logger->utf8FileName);
}
