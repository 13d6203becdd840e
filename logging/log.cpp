// The logger of the process. Each call creates it if necessary and forwards to it.
#include <vncommon/log.h>

#include <atomic>
#include <cerrno>

#include <vncommon/failure.h>
#include <vncommon/file_logger.h>

#include "logging/levels.h"
#include "logging/line.h"
#include "logging/reopening.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

// Null until the first call; never destroyed.
std::atomic<FileLogger*> logger{nullptr};

enum class Destination { standardError, chosenNext };

void destroyUnpublished(FileLogger* created) {
    char* buffer = created->buffer;  // FileLogger_dtor does not free it
    FileLogger_dtor(created);
    vn_free(buffer);
}

// The logger is complete before it is published. No lock is used: a thread may call this while it
// holds the dynamic linker's lock (in the constructor of a plugin), and a lock could stay locked
// in the child of a fork. Threads that race create one logger each; all but the first published
// are discarded.
[[gnu::noinline]] FileLogger* createLogger(uint32_t level, Destination destination) {
    const int callersErrno = errno;
    FileLogger* created = FileLogger_ctor();
    FileLogger_SetLogLevel(created, level);
    if (destination == Destination::standardError) {
        FileLogger_SetFilename(created, standardErrorName, 0, 1);
    }
    FileLogger* current = nullptr;
    if (logger.compare_exchange_strong(current, created)) {
        current = created;
    } else {
        destroyUnpublished(created);
    }
    VN_ASSERT(current == logger.load());
    errno = callersErrno;  // "%m" in the first line
    return current;
}

FileLogger* ensureLogger(uint32_t level = levelInfo,
                         Destination destination = Destination::standardError) {
    FileLogger* current = logger.load(std::memory_order_acquire);
    return current != nullptr ? current : createLogger(level, destination);
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

int VN_LogSetup(uint32_t level, const char* name, int truncate, int nameIsUTF8) {
    FileLogger* current = ensureLogger(level, Destination::chosenNext);
    FileLogger_SetLogLevel(current, level);
    return FileLogger_SetFilename(current, name, truncate, nameIsUTF8);
}

int VN_LogSetFilename(const char* name, int truncate, int nameIsUTF8) {
    return FileLogger_SetFilename(ensureLogger(), name, truncate, nameIsUTF8);
}

int VN_LogSetFD(int descriptor) {
    return FileLogger_SetFD(ensureLogger(levelInfo, Destination::chosenNext), descriptor);
}

void VN_LogReOpen(void) {
    FileLogger_ReOpen(ensureLogger());
}

void VN_LogSetLevel(uint32_t level) {
    FileLogger_SetLogLevel(ensureLogger(level), level);
}

void VN_SetMutex(vn_Mutex* mutex) {
    FileLogger_SetMutex(ensureLogger(), mutex);
}

uint32_t VN_GetLogLevel(void) {
    return FileLogger_GetLogLevel(ensureLogger());
}

int VN_GetLogFD(void) {
    return FileLogger_GetFD(ensureLogger());
}

const char* VN_GetLogFileName(void) {
    return FileLogger_GetFileName(ensureLogger());
}

const char* VN_GetUTF8LogFileName(void) {
    return FileLogger_GetUTF8FileName(ensureLogger());
}

uint32_t VN_StringToLogLevel(const char* word) {
    return FileLogger_StringToLogLevel(word);
}

const char* VN_LogLevelToString(uint32_t level) {
    return FileLogger_LogLevelToString(level);
}

// The eight operations, by name and level.
#define VN_LOG_OPERATION(operation, level)                \
    void operation(const char* format, ...) {             \
        FileLogger* current = ensureLogger();             \
        if (isWritten(current, level)) {                  \
            va_list arguments;                            \
            va_start(arguments, format);                  \
            writeLine(current, level, format, arguments); \
            va_end(arguments);                            \
        }                                                 \
    }

VN_LOG_OPERATION(VN_LogTrace, 9)
VN_LOG_OPERATION(VN_LogDebug, 8)
VN_LOG_OPERATION(VN_LogInfo, 7)
VN_LOG_OPERATION(VN_LogWarn, 6)
VN_LOG_OPERATION(VN_LogError, 5)
VN_LOG_OPERATION(VN_LogFatal, 4)
VN_LOG_OPERATION(VN_LogCrit, 3)
VN_LOG_OPERATION(VN_LogForce, 2)

void VN_DoLog(uint32_t level, const char* format, va_list arguments) {
    FileLogger_DoLog(ensureLogger(), level, format, arguments);
}

void VN_DoLogV(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VN_DoLog(level, format, arguments);
    va_end(arguments);
}
