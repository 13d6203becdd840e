// Writing lines: threshold, head, message, one write().
#include "logging/line.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <vncommon/file_logger.h>
#include <vncommon/process.h>

#include "logging/levels.h"
#include "logging/quick_format.h"
#include "platform/assertion.h"
#include "platform/cancellation.h"
#include "platform/local_time.h"
#include "platform/mutex_lock.h"

namespace vncommon {
namespace {

constexpr int smallestBuffer = 1024;
constexpr int margin = 3;  // after the message: newline, terminator and one byte to spare

constexpr LockRole lineLock;  // the logger's mutex: the buffer and the prefix in it

[[maybe_unused]] bool isBufferValid(const FileLogger* logger) VN_REQUIRES(lineLock) {
    const bool hasPrefix = logger->prefixTime != 0;
    return logger->buffer != nullptr && logger->bufferSize >= smallestBuffer &&
           logger->prefixLength >= (hasPrefix ? secondLength : 0) &&
           logger->prefixLength < logger->bufferSize;
}

// Updates the date and time at the start of the buffer, at most once a second.
void refreshPrefix(FileLogger* logger, time_t second) VN_REQUIRES(lineLock) {
    if (logger->prefixTime == second && second != 0) [[likely]] {
        return;
    }
    logger->prefixTime = 0;
    logger->prefixLength =
        formatSecond(second, logger->buffer, static_cast<size_t>(logger->bufferSize));
    logger->prefixTime = second;
    VN_ASSERT(isBufferValid(logger));
}

// "%03d %-5s [%lu] - " without snprintf, which would dominate the cost of a short line; measured:
// see docs/benchmarks.md.
char* putHeader(char* to, int milliseconds, uint32_t level) {
    constexpr int longestThreadId = 20;
    VN_ASSERT(milliseconds >= 0 && milliseconds <= 999);
    *to++ = static_cast<char>('0' + milliseconds / 100);
    *to++ = static_cast<char>('0' + milliseconds / 10 % 10);
    *to++ = static_cast<char>('0' + milliseconds % 10);
    *to++ = ' ';
    const LevelLabel& label = levelLabel(level);
    memcpy(to, label.data(), label.size());
    to += label.size();
    *to++ = ' ';
    *to++ = '[';
    const auto thread = static_cast<unsigned long>(vn_getThreadID());
    to = std::to_chars(to, to + longestThreadId, thread).ptr;
    memcpy(to, "] - ", 4);  // NOLINT(bugprone-not-null-terminated-result): the message follows
    return to + 4;
}

// Doubles the buffer until a message of that length fits after the head. Returns false, without a
// change, if the size would be too large or there is no memory.
bool growBuffer(FileLogger* logger, int head, int messageLength) VN_REQUIRES(lineLock) {
    const int64_t needed = int64_t{head} + messageLength + margin;
    int64_t size = logger->bufferSize;
    while (size < needed) {
        size *= 2;
    }
    char* larger = size > INT_MAX ? nullptr : static_cast<char*>(malloc(static_cast<size_t>(size)));
    if (larger == nullptr) {
        return false;
    }
    memcpy(larger, logger->buffer, static_cast<size_t>(head));
    char* before = logger->buffer;
    // Before the size, so that a child forked between the two has enough room.
    storePointer(logger->buffer, larger);
    storeField(logger->bufferSize, static_cast<int>(size));
    free(before);
    VN_ASSERT(isBufferValid(logger) && logger->bufferSize >= needed);
    return true;
}

int roomForMessage(const FileLogger* logger, int head) VN_REQUIRES(lineLock) {
    VN_ASSERT(head >= 0 && logger->bufferSize - head > margin);
    return logger->bufferSize - head - margin;
}

// Returns the length of the message that was written after the head; -1 if printf rejects the
// format.
int putFormatted(FileLogger* logger, int head, const char* format, va_list arguments)
    VN_REQUIRES(lineLock) {
    const int quickLength =
        quickFormat(logger->buffer + head, roomForMessage(logger, head), format, arguments);
    if (quickLength >= 0) {
        return quickLength;
    }
    const int callersErrno = errno;
    for (;;) {
        va_list copy;
        va_copy(copy, arguments);
        errno = callersErrno;  // for %m: growBuffer may have changed it
        const int length = vsnprintf(logger->buffer + head,
                                     static_cast<size_t>(logger->bufferSize - head), format, copy);
        va_end(copy);
        if (length <= roomForMessage(logger, head)) [[likely]] {
            return length;
        }
        if (!growBuffer(logger, head, length)) {
            return roomForMessage(logger, head);
        }
    }
}

int putText(FileLogger* logger, int head, const char* text) VN_REQUIRES(lineLock) {
    const size_t textLength = strnlen(text, INT_MAX / 2);
    auto length = static_cast<int>(textLength);
    if (length > roomForMessage(logger, head) && !growBuffer(logger, head, length)) {
        length = roomForMessage(logger, head);
    }
    memcpy(logger->buffer + head, text, static_cast<size_t>(length));
    return length;
}

int putMessage(FileLogger* logger, int head, const char* format, va_list arguments)
    VN_REQUIRES(lineLock) {
    if (format == nullptr) {
        return putText(logger, head, "(null)");
    }
    const int length = putFormatted(logger, head, format, arguments);
    return length >= 0 ? length : putText(logger, head, format);
}

void writeBuffer(const FileLogger* logger, int length) VN_REQUIRES(lineLock) {
    const int fd = loadField(logger->fd);
    if (loadField(logger->console) != 0) {
        vn_writeToConsoleUTF8(fd, logger->buffer);
        return;
    }
    [[maybe_unused]] const ssize_t ignored = write(fd, logger->buffer, static_cast<size_t>(length));
}

void composeAndWrite(FileLogger* logger, const timespec& now, uint32_t level, const char* format,
                     va_list arguments) VN_REQUIRES(lineLock) {
    VN_ASSERT(isBufferValid(logger));
    int& error = errno;
    const int callersErrno = error;
    refreshPrefix(logger, now.tv_sec);
    char* headEnd = putHeader(logger->buffer + logger->prefixLength,
                              static_cast<int>(now.tv_nsec / 1'000'000), level);
    const auto head = static_cast<int>(headEnd - logger->buffer);
    error = callersErrno;  // for %m
    const int length = head + putMessage(logger, head, format, arguments);
    VN_ASSERT(length >= head && length + 1 < logger->bufferSize);
    logger->buffer[length] = '\n';
    logger->buffer[length + 1] = '\0';
    writeBuffer(logger, length + 1);
    error = callersErrno;
}

uint32_t thresholdFor(const FileLogger* logger, const char* environmentName) {
    const char* value = environmentName == nullptr ? nullptr : getenv(environmentName);
    const uint32_t override = value == nullptr ? uint32_t{levelNone} : levelOverride(value);
    return override != levelNone ? override : loadField(logger->level);
}

}  // namespace

void writeLine(FileLogger* logger, uint32_t level, const char* format, va_list arguments) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const CancellationDisabled noCancellation;
    const MutexLock lock(logger->mutex, lineLock);
    composeAndWrite(logger, now, level, format, arguments);
}

}  // namespace vncommon

using namespace vncommon;

// The eight operations, by name and level.
#define VN_LOG_OPERATION(operation, level)                        \
    void operation(FileLogger* logger, const char* format, ...) { \
        if (isWritten(logger, level)) {                           \
            va_list arguments;                                    \
            va_start(arguments, format);                          \
            writeLine(logger, level, format, arguments);          \
            va_end(arguments);                                    \
        }                                                         \
    }

VN_LOG_OPERATION(FileLogger_LogTrace, 9)
VN_LOG_OPERATION(FileLogger_LogDebug, 8)
VN_LOG_OPERATION(FileLogger_LogInfo, 7)
VN_LOG_OPERATION(FileLogger_LogWarn, 6)
VN_LOG_OPERATION(FileLogger_LogError, 5)
VN_LOG_OPERATION(FileLogger_LogFatal, 4)
VN_LOG_OPERATION(FileLogger_LogCrit, 3)
VN_LOG_OPERATION(FileLogger_LogForce, 2)

void FileLogger_DoLog(FileLogger* logger, uint32_t level, const char* format, va_list arguments) {
    if (isWritten(logger, level)) {
        writeLine(logger, level, format, arguments);
    }
}

void FileLogger_DoLog_cat(FileLogger* logger, const char* environmentName, uint32_t level,
                          const char* format, va_list arguments) {
    if (thresholdFor(logger, environmentName) >= level) {
        writeLine(logger, level, format, arguments);
    }
}
