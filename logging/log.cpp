// The process's own logger: each call makes sure that it exists and forwards.
#include <vncommon/log.h>

#include <atomic>

#include <vncommon/file_logger.h>
#include <vncommon/threads.h>

#include "logging/guarded_entry.h"
#include "logging/levels.h"
#include "logging/line.h"
#include "logging/reopening.h"

using namespace vncommon;

// Null until the first call; never destroyed. The name is for guarded_entry.h.
#define VN_LOGGER_SYMBOL "vncommon_logger"
__attribute__((visibility("hidden"))) std::atomic<FileLogger*> logger asm(VN_LOGGER_SYMBOL) =
    nullptr;

namespace {

vn_Mutex creation = PTHREAD_MUTEX_INITIALIZER;

enum class Destination { standardError, chosenNext };

// Set up before it is published: other threads find it complete or not at all.
FileLogger* createLogger(uint32_t level, Destination destination) {
    FileLogger* created = FileLogger_ctor();
    FileLogger_SetLogLevel(created, level);
    if (destination == Destination::standardError) {
        FileLogger_SetFilename(created, standardErrorName, 0, 1);
    }
    return created;
}

FileLogger* createOnce(uint32_t level, Destination destination) {
    vn_Mutex_lock(&creation);
    FileLogger* current = logger.load(std::memory_order_acquire);
    if (current == nullptr) {
        current = createLogger(level, destination);
        logger.store(current, std::memory_order_release);
    }
    vn_Mutex_unlock(&creation);
    return current;
}

FileLogger* ensureLogger(uint32_t level = levelInfo,
                         Destination destination = Destination::standardError) {
    FileLogger* current = logger.load(std::memory_order_acquire);
    return current != nullptr ? current : createOnce(level, destination);
}

}  // namespace

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
#define VN_LOG_OPERATION(operation, level)                          \
    VN_GUARDED_BY_POINTER(operation, level, VN_LOGGER_SYMBOL);      \
    extern "C" void VN_WRITER(operation)(const char* format, ...) { \
        FileLogger* current = ensureLogger();                       \
        if (isWritten(current, level)) {                            \
            va_list arguments;                                      \
            va_start(arguments, format);                            \
            writeLine(current, level, format, arguments);           \
            va_end(arguments);                                      \
        }                                                           \
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
