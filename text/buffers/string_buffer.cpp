// The string buffer. Every append measures its source, makes room, and only then copies. An
// outgrown block is freed after the copy, so that a source may be inside the buffer itself.
#include <vncommon/buffers.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <vncommon/process.h>

#include "text/buffers/buffer_growth.h"

namespace vncommon {
namespace {

constexpr uint64_t formatLimit = 10000;  // of vn_strbufAppendVA, terminator included
constexpr uint64_t fileStep = 100;       // bytes that reading a file makes room for at a time

// Fills block with the string of the buffer and NUL bytes up to buffer->size and one more.
void copyString(char* block, const CStringBuffer* buffer) {
    const uint64_t length = strnlen(buffer->data, std::min(buffer->size, buffer->capacity));
    memcpy(block, buffer->data, length);
    memset(block + length, 0, buffer->size + 1 - length);
}

// Returns the previous block, which the caller frees.
char* moveToBlock(CStringBuffer* buffer, uint64_t capacity) {
    VN_ASSERT(isValid(buffer) && buffer->size < capacity);
    auto* block = static_cast<char*>(vn_malloc(capacity));
    copyString(block, buffer);
    char* replaced = buffer->data;
    buffer->data = block;
    buffer->capacity = capacity;
    return replaced;
}

char* append(CStringBuffer* buffer, const char* text, uint64_t length) {
    VN_ASSERT(isValid(buffer));
    const ReplacedBlock replaced = reserve(buffer, length);
    char* start = buffer->data + buffer->size;
    memcpy(start, text, length);
    start[length] = '\0';
    buffer->size += length;
    VN_ASSERT(isTerminated(buffer));
    return start;
}

// Separate, so that vn_strbufAppendChar is a leaf function; measured: see docs/benchmarks.md.
[[gnu::cold, gnu::noinline]] void growAndAppendChar(CStringBuffer* buffer, int character) {
    const auto text = static_cast<char>(character);
    append(buffer, &text, 1);
}

// For results too long for the stack. Formatted outside the buffer, because an argument may be
// inside it. error is the caller's errno, for %m: a malloc that succeeds may change errno.
void appendLongFormat(CStringBuffer* buffer, const char* format, va_list arguments, uint64_t length,
                      int error) {
    auto* text = static_cast<char*>(vn_malloc(length + 1));
    errno = error;
    if (vsnprintf(text, length + 1, format, arguments) >= 0) {
        append(buffer, text, length);
    }
    vn_free(text);
}

void appendFormat(CStringBuffer* buffer, const char* format, va_list arguments) {
    char text[1024];
    const int callersErrno = errno;
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    vn_checkError(length == 0 ? 1 : 0, "vn_strbufAppendFormat: vsnprintf");
    if (length >= static_cast<int>(sizeof text)) {
        appendLongFormat(buffer, format, again, static_cast<uint64_t>(length), callersErrno);
    } else if (length > 0) {
        append(buffer, text, static_cast<uint64_t>(length));
    }
    va_end(again);
}

// Compat: an empty result of vn_strbufAppendVA changes the buffer; the header describes how.
// The room is reserved already.
void appendEmptyResult(CStringBuffer* buffer) {
    VN_ASSERT(formatLimit < buffer->capacity - buffer->size);
    memset(buffer->data + buffer->size, 0, formatLimit + 1);
    buffer->size += formatLimit;
    buffer->data[formatLimit] = '\0';
}

// Compat: writes at most 9999 characters of a result but counts its whole length. text may be
// inside the room for 10000 characters that is reserved already. The part of the rest that is
// inside the block is cleared.
void appendLimitedResult(CStringBuffer* buffer, const char* text, uint64_t length) {
    const uint64_t written = std::min(length, formatLimit - 1);
    char* start = buffer->data + buffer->size;
    memmove(start, text, written);
    const uint64_t room = buffer->capacity - buffer->size;
    VN_ASSERT(formatLimit < room);
    memset(start + written, 0, std::min(length + 1, room) - written);
    buffer->size += length;
}

char* openError() {
    char message[1024];
    vn_strerror(message, sizeof message, errno);
    CStringBuffer error;
    vn_strbufInit(&error, 100);
    vn_strbufAppendFormat(&error, "Can't open file due to error: %s", message);
    return vn_strbufGetString(&error);
}

// One read covers all steps that fit without growing, so that the block grows at the same sizes
// as with one read for each step.
void appendStream(CStringBuffer* buffer, FILE* file) {
    while (feof(file) == 0 && ferror(file) == 0) {
        const ReplacedBlock replaced = reserve(buffer, fileStep);
        const uint64_t room = buffer->capacity - 1 - buffer->size;
        char* start = buffer->data + buffer->size;
        buffer->size += fread(start, 1, room - room % fileStep, file);
        buffer->data[buffer->size] = '\0';
        VN_ASSERT(isTerminated(buffer));
    }
}

}  // namespace

char* growString(CStringBuffer* buffer, uint64_t need) {
    return moveToBlock(buffer, grownCapacity(need));
}

}  // namespace vncommon

using namespace vncommon;

char* vn_strbufInit(CStringBuffer* buffer, uint64_t initialCapacity) {
    buffer->size = 0;
    buffer->capacity = initialCapacity != 0 ? initialCapacity : defaultCapacity;
    buffer->data = static_cast<char*>(vn_malloc(buffer->capacity));
    buffer->data[0] = '\0';
    VN_ASSERT(isValid(buffer) && isTerminated(buffer));
    return buffer->data;
}

void vn_strbufDestroy(CStringBuffer* buffer, int freeData) {
    VN_ASSERT(isValid(buffer));
    if (freeData != 0) {
        vn_free(buffer->data);
        markEnded(buffer);
    }
}

char* vn_strbufAppendString(CStringBuffer* buffer, const char* text) {
    if (text == nullptr) {
        text = "null";
    }
    return append(buffer, text, strlen(text));
}

char* vn_strbufAppendStringN(CStringBuffer* buffer, const char* text, uint64_t length) {
    if (text == nullptr) {
        append(buffer, "null", 4);
        return buffer->data;
    }
    const ReplacedBlock replaced = reserve(buffer, length);
    char* start = buffer->data + buffer->size;
    const uint64_t present = strnlen(text, length);
    memcpy(start, text, present);
    memset(start + present, 0, length + 1 - present);
    buffer->size += length;
    VN_ASSERT(isTerminated(buffer));
    return buffer->data;
}

void vn_strbufAppendChar(CStringBuffer* buffer, int character) {
    VN_ASSERT(isValid(buffer));
    const uint64_t size = buffer->size;
    if (size >= buffer->capacity - 1) [[unlikely]] {
        return growAndAppendChar(buffer, character);
    }
    char* end = buffer->data + size;
    buffer->size = size + 1;
    end[0] = static_cast<char>(character);
    end[1] = '\0';
    VN_ASSERT(isTerminated(buffer));
}

char* vn_strbufAppendBuf(CStringBuffer* buffer, const CStringBuffer* other) {
    return vn_strbufAppendString(buffer, other != nullptr ? other->data : nullptr);
}

void vn_strbufAppendFormat(CStringBuffer* buffer, const char* format, ...) {
    if (format == nullptr) {
        append(buffer, "null", 4);
    } else if (*format != '\0') {
        va_list arguments;
        va_start(arguments, format);
        appendFormat(buffer, format, arguments);
        va_end(arguments);
    }
}

void vn_strbufAppendVA(CStringBuffer* buffer, const char* format, va_list arguments) {
    if (format == nullptr) {
        append(buffer, "null", 4);
        return;
    }
    if (*format == '\0') {
        return;
    }
    const int callersErrno = errno;
    const ReplacedBlock replaced = reserve(buffer, formatLimit);
    errno = callersErrno;  // for %m
    // After the terminator, not over it: an argument may be the buffer's own string.
    char* text = buffer->data + buffer->size + 1;
    const int length = vsnprintf(text, formatLimit, format, arguments);
    if (length == 0) {
        appendEmptyResult(buffer);
    } else if (length > 0) {
        appendLimitedResult(buffer, text, static_cast<uint64_t>(length));
    }
}

char* vn_strbufAppendFile(CStringBuffer* buffer, const char* path) {
    FILE* file = vn_openStreamUTF8(path, "r");
    if (file == nullptr) {
        return openError();
    }
    appendStream(buffer, file);
    const bool failed = ferror(file) != 0;
    fclose(file);
    return failed ? vn_strdup("Problem while reading from file") : nullptr;
}

void vn_strbufTruncate(CStringBuffer* buffer, uint64_t newSize) {
    VN_ASSERT(isValid(buffer));
    if (buffer->size <= newSize) {
        return;
    }
    buffer->size = newSize;
    if (newSize < buffer->capacity) {  // false after a vn_strbufAppendVA that was too long
        buffer->data[newSize] = '\0';
    }
    if (isWasteful(buffer->capacity, newSize)) {
        vn_free(moveToBlock(buffer, std::max(newSize * 2, defaultCapacity)));
    }
}

char* vn_strbufGetString(const CStringBuffer* buffer) {
    VN_ASSERT(isValid(buffer));
    return buffer->data;
}

uint64_t vn_strbufGetSize(const CStringBuffer* buffer) {
    VN_ASSERT(isValid(buffer));
    return buffer->size;
}
