// Creation and destruction of a logger; its level and lock.
#include <vncommon/file_logger.h>

#include <unistd.h>

#include <vncommon/failure.h>

#include "logging/levels.h"
#include "logging/registry.h"
#include "logging/shared_field.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr int initialBufferSize = 1024;

void releaseMutex(vn_Mutex* mutex) {
    vn_Mutex_destroy(mutex);
    vn_free(mutex);
}

// In builds with assertions, a later use of the record fails one of them.
void markCleanedUp([[maybe_unused]] FileLogger* logger) {
#if defined(VN_ASSERTIONS)
    logger->mutex = nullptr;
#endif
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

FileLogger* FileLogger_ctor(void) {
    auto* logger = static_cast<FileLogger*>(vn_malloc(sizeof(FileLogger)));
    FileLogger_init(logger);
    return logger;
}

void FileLogger_init(FileLogger* logger) {
    *logger = {};
    logger->level = levelInfo;
    logger->mutex = static_cast<vn_Mutex*>(vn_malloc(sizeof(vn_Mutex)));
    *logger->mutex = {};  // a valid, free mutex even if the call below fails
    vn_Mutex_init(logger->mutex);
    logger->ownsMutex = 1;
    logger->fd = STDERR_FILENO;
    logger->buffer = static_cast<char*>(vn_malloc(initialBufferSize));
    logger->bufferSize = initialBufferSize;
    VN_ASSERT(logger->mutex != nullptr && logger->buffer != nullptr);
    registerLogger(logger);
}

void FileLogger_cleanup(FileLogger* logger) {
    VN_ASSERT(logger->mutex != nullptr);
    VN_ASSERT(logger->ownsMutex == 0 || logger->ownsMutex == 1);
    unregisterLogger(logger);
    vn_free(logger->fileName);
    vn_free(logger->utf8FileName);
    if (logger->fd != STDOUT_FILENO && logger->fd != STDERR_FILENO) {
        close(logger->fd);
    }
    if (logger->ownsMutex != 0) {
        releaseMutex(logger->mutex);
    }
    markCleanedUp(logger);
    // Compat: the buffer is not freed; callers free it.
}

void FileLogger_dtor(FileLogger* logger) {
    FileLogger_cleanup(logger);
    vn_free(logger);
}

void FileLogger_SetLogLevel(FileLogger* logger, uint32_t level) {
    VN_ASSERT(logger->mutex != nullptr);
    vn_Mutex* mutex = logger->mutex;
    vn_Mutex_lock(mutex);
    storeField(logger->level, level);
    vn_Mutex_unlock(mutex);
}

uint32_t FileLogger_GetLogLevel(const FileLogger* logger) {
    return loadField(logger->level);
}

vn_Mutex* FileLogger_GetMutex(const FileLogger* logger) {
    VN_ASSERT(logger->mutex != nullptr);
    return logger->mutex;
}

void FileLogger_SetMutex(FileLogger* logger, vn_Mutex* mutex) {
    VN_ASSERT(logger->mutex != nullptr);
    VN_ASSERT(mutex != nullptr);
    vn_Mutex* before = logger->mutex;
    logger->ownsMutex = 0;
    logger->mutex = mutex;
    if (before != mutex) {
        releaseMutex(before);
    }
}
