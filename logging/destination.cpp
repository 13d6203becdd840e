// Where a logger writes: choosing a file, a standard stream or a descriptor, and reopening.
//
// Everything that can take time or fail (copies, conversions, open) happens first, without changing
// the logger. Then the logger changes in one step under the lock of the registry. Its previous
// resources are released last.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <vncommon/failure.h>
#include <vncommon/file_logger.h>
#include <vncommon/utf8.h>

#include "logging/log_file.h"
#include "logging/registry.h"
#include "logging/reopening.h"
#include "logging/shared_field.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

struct Names {
    char* fileName;
    char* utf8FileName;
};

void freeNames(const Names& names) {
    vn_free(names.fileName);
    vn_free(names.utf8FileName);
}

Names exchangeNames(FileLogger* logger, const Names& names) VN_REQUIRES(loggerMutex) {
    const Names before = {logger->fileName, logger->utf8FileName};
    storePointer(logger->fileName, names.fileName);
    storePointer(logger->utf8FileName, names.utf8FileName);
    return before;
}

// A file named by a caller: the plan for it, and how it is opened the first time.
struct NamedFile {
    Names names;
    ReopenPlan* plan;
    const char* path;  // in the code page; the caller's own if not UTF-8; null for a null name
    int flags;
    bool reportsFailure;
};

NamedFile prepareFile(const char* name, int truncate, bool nameIsUTF8) {
    NamedFile file;
    const char* shownName = name == nullptr ? "(null)" : name;
    file.names.fileName = vn_strdup(shownName);
    file.names.utf8FileName = nameIsUTF8 ? vn_strdup(shownName) : vn_CstrToUTF8(shownName);
    vn_checkMemory(file.names.utf8FileName);
    file.plan = makeReopenPlan(file.names.fileName, file.names.utf8FileName);
    file.path = nameIsUTF8 && name != nullptr ? file.plan->path : name;
    file.flags = truncate != 0 ? O_TRUNC : 0;
    file.reportsFailure = nameIsUTF8;
    VN_ASSERT(file.names.fileName != nullptr && isValid(file.plan));
    return file;
}

bool lockAndMakeRoom(FileLogger* logger, int error) {
    const RegistryLock lock;
    return makeRoomForDescriptor(logger, error);
}

OpenResult openFile(FileLogger* logger, const NamedFile& file) {
    if (file.plan->stream >= 0) {
        return nothingToOpen;
    }
    if (file.path == nullptr) {
        return {-1, EFAULT};
    }
    VN_ASSERT(file.flags == 0 || file.flags == O_TRUNC);
    const OpenResult opened = openLogFile(file.path, file.flags);
    const bool retry = opened.error != 0 && lockAndMakeRoom(logger, opened.error);
    return retry ? openLogFile(file.path, file.flags) : opened;
}

void reportFailure(const NamedFile& file, int error) {
    char text[1024];
    vn_strerror(text, sizeof text, error);
    fprintf(stderr, "Unable to open logfile \"%s\": %s\n", file.names.fileName, text);
    fflush(stderr);
}

// Changes the destination. Returns false, without a change, if all loggers were reopened since the
// file was opened, because the file may have been renamed.
bool tryToChangeDestination(FileLogger* logger, NamedFile& file, const OpenResult& opened,
                            uint64_t count) {
    const RegistryLock lock;
    VN_ASSERT(reopeningCount() >= count);
    if (reopeningCount() != count) {
        return false;
    }
    const bool failed = opened.error != 0;
    followPlan(logger, file.plan, opened, file.reportsFailure ? 1 : 2);
    if (!failed) {
        file.names = exchangeNames(logger, file.names);
    }
    closeDuplicate(file.plan);
    file.plan = exchangePlan(logger, file.plan);
    VN_ASSERT(!failed || (logger->fd == STDERR_FILENO && logger->openFailure != 0));
    VN_ASSERT((logger->fileName == nullptr) == (logger->utf8FileName == nullptr));
    return true;
}

int changeDestination(FileLogger* logger, NamedFile file) {
    OpenResult opened;
    for (;;) {
        const uint64_t count = reopeningCount();
        opened = openFile(logger, file);
        if (tryToChangeDestination(logger, file, opened, count)) {
            break;
        }
        if (opened.descriptor >= 0) {
            close(opened.descriptor);
        }
    }
    if (opened.error != 0 && file.reportsFailure) {
        reportFailure(file, opened.error);
    }
    freeNames(file.names);
    destroyReopenPlan(file.plan);
    return loadField(logger->console);
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

int FileLogger_SetFilename(FileLogger* logger, const char* name, int truncate, int nameIsUTF8) {
    return changeDestination(logger, prepareFile(name, truncate, nameIsUTF8 != 0));
}

int FileLogger_SetFD(FileLogger* logger, int descriptor) {
    const int console = isTerminal(descriptor);
    Names before;
    ReopenPlan* plan;
    {
        const RegistryLock lock;
        storeField(logger->fd, descriptor);
        storeField(logger->console, console);
        before = exchangeNames(logger, {nullptr, nullptr});
        plan = exchangePlan(logger, nullptr);
    }
    freeNames(before);
    destroyReopenPlan(plan);
    return console;
}

void FileLogger_ReOpen(FileLogger* logger) {
    const char* current = loadPointer(logger->utf8FileName);
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
    return loadPointer(logger->fileName);
}

const char* FileLogger_GetUTF8FileName(const FileLogger* logger) {
    return loadPointer(logger->utf8FileName);
}
