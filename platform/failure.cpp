// Failure convention: every report of a failure on standard error and every end of the process
// goes through this file. Nothing here takes a lock, and the out-of-memory path does not use the
// heap. Several threads may enter that path at once: one of them runs the callback, and one writes
// the memory line. No thread waits for the callback, because the callback may wait for that thread.
#include "platform/check_error.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vncommon/discovery.h>
#include <vncommon/process.h>

#include "platform/assertion.h"
#include "platform/cancellation.h"

// glibc: the XSI form of strerror_r under its internal name. Compilers define _GNU_SOURCE for C++,
// and with it strerror_r is the GNU form, which returns the message instead of an error number.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's name
extern "C" int __xpg_strerror_r(int errnum, char* buffer, size_t size);

namespace vncommon {
namespace {

std::atomic<vn_OutOfMemoryCallBack> outOfMemoryCallBack{nullptr};
std::atomic<bool> inImmediateExit{false};  // vn_immediateExit has been entered

// The thread that last ran a callback, and the stack frame that called it.
std::atomic<pthread_t> callBackThread{};
std::atomic<uintptr_t> callBackFrame{0};

std::atomic<bool> logMemory{false};     // a thread has begun the memory line
std::atomic<bool> memoryLogged{false};  // the memory line is written

constexpr size_t messageSize = 1024;

// fprintf(stderr, ...), but a line that is not very long needs little stack: for an unbuffered
// stream glibc's fprintf has a buffer of 8 KiB there, and small threads do not have that much.
[[gnu::format(printf, 1, 2)]] void printLine(const char* format, ...) {
    char line[messageSize + 128];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<size_t>(length) < sizeof line) {
        fputs(line, stderr);
        return;
    }
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
}

// The messages for errno and code. errno is saved before any other call can change it.
struct ErrorTexts {
    explicit ErrorTexts(int code) {
        const int savedErrno = errno;
        vn_strerror(ofErrno, sizeof ofErrno, savedErrno);
        vn_strerror(ofCode, sizeof ofCode, code);
    }

    void print() const {
        printLine("(strerror(errno)=%s)\n", ofErrno);
        printLine("(strerror(errcode)=%s)\n", ofCode);
        fflush(stderr);
    }

    char ofErrno[messageSize];
    char ofCode[messageSize];
};

// Comes before the message of a fatal error. Writing is a cancellation point: a thread that is to
// be cancelled would end there, the process would not.
void disableCancellationForEnd() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

// Flushes standard error first, because the program may have given it a buffer, and abort()
// discards buffers.
[[noreturn]] void flushAndAbort() {
    fflush(stderr);
    abort();
}

// For the out-of-memory path: one write(), no buffered stream. A failure is ignored.
void writeToStandardError(const char* text, size_t length) {
    const CancellationDisabled noCancellation;
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text, length);
}

void writeMemoryUse() {
    char line[123];
    const int length = snprintf(line, sizeof line, "memory used: vm=%f, rss=%f\n", vn_vmSize(),
                                vn_residentSetSize());
    if (length > 0) {
        writeToStandardError(line, std::min(static_cast<size_t>(length), sizeof line - 1));
    }
}

// Whether the callback itself called vn_outOfMemory: same thread, and a deeper stack frame. The
// thread alone is not enough: an earlier callback may have left by longjmp, which is not recorded.
bool isInsideCallBack(uintptr_t frame) {
    return callBackThread == pthread_self() && frame < callBackFrame;
}

// Waits while another thread writes the memory line; otherwise the end of the process could cut it
// off. The wait is limited: after a fork that thread may not exist, and in a signal handler it may
// be the interrupted thread.
void awaitMemoryLine() {
    constexpr timespec step = {0, 1'000'000};
    constexpr int mostSteps = 10'000;
    for (int i = 0; i < mostSteps && logMemory && !memoryLogged; ++i) {
        nanosleep(&step, nullptr);
    }
}

void logMemoryOnce() {
    if (!logMemory.exchange(true)) {
        writeMemoryUse();
        memoryLogged = true;
    }
    VN_ASSERT(logMemory);
}

char* warnOfNullText() {
    fputs("Warning: NULL passed to strdup\n", stderr);
    fflush(stderr);
    return nullptr;
}

}  // namespace

void abortWith(const char* message) {
    disableCancellationForEnd();
    fputs(message, stderr);
    flushAndAbort();
}

void reportFailedCall(int code, const char* systemCall) {
    VN_ASSERT(code != 0);
    VN_ASSERT(systemCall != nullptr);
    const ErrorTexts texts(code);
    {
        const CancellationDisabled noCancellation;  // the caller may hold a lock
        printLine("Fatal error: System call %s failed\n", systemCall);
        texts.print();
    }
    const bool outOfResources = code == EAGAIN || code == ENOMEM;
    if (outOfResources && strcmp(systemCall, "pthread_create") == 0) {
        vn_outOfMemory();
    }
}

}  // namespace vncommon

using namespace vncommon;

void vn_checkError(int code, const char* description) {
    if (code == 0) {
        return;
    }
    const ErrorTexts texts(code);
    disableCancellationForEnd();
    printLine("Fatal error: Call failed with code %d: %s\n", code, description);
    texts.print();
    abort();
}

void vn_strerror(char* buffer, size_t size, int errnum) {
    const int result = __xpg_strerror_r(errnum, buffer, size);
    if (result == 0) {
        return;
    }
    int length;
    if (result == EINVAL) {
        length = snprintf(buffer, size, "An unknown error (%i) occurred", errnum);
    } else if (result == ERANGE) {
        length =
            snprintf(buffer, size,
                     "An error (%i) occurred, but its message was too large to display", errnum);
    } else {
        length = snprintf(buffer, size, "Error (%i:%i) occurred", errnum, result);
    }
    if (length < 0) {
        disableCancellationForEnd();
        fprintf(stderr, "Fatal error: snprintf unexpectedly failed (%i)\n", length);
        flushAndAbort();
    }
    // Compat: one byte stricter than truncation needs; callers rely on a spare byte after the text.
    if (static_cast<size_t>(length) + 1 >= size) {
        abortWith("Fatal error: error message buffer too small\n");
    }
    VN_ASSERT(buffer[length] == '\0');
}

void vn_checkMemory(void* pointer) {
    if (pointer == nullptr) [[unlikely]] {
        abortWith(
            "Fatal error: malloc or similar returned null - this suggests the process has run "
            "out of memory\n");
    }
}

void* vn_malloc(size_t size) {
    void* block = malloc(size);
    vn_checkMemory(block);
    VN_ASSERT(block != nullptr);
    return block;
}

void* vn_realloc(void* pointer, size_t size) {
    void* block = realloc(pointer, size);
    vn_checkMemory(block);
    VN_ASSERT(block != nullptr);
    return block;
}

void vn_free(void* pointer) {
    free(pointer);
}

char* vn_strdup(const char* text) {
    if (text == nullptr) {
        return warnOfNullText();
    }
    char* copy = strdup(text);
    vn_checkMemory(copy);
    return copy;
}

char* vn_strndup(const char* text, size_t maximum) {
    if (text == nullptr) {
        return warnOfNullText();
    }
    const size_t length = std::min(strlen(text), maximum);
    auto* copy = static_cast<char*>(vn_malloc(length + 1));
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

uint64_t vn_systime(void) {
    return static_cast<uint64_t>(vn_sys_time());
}

int vn_strcasecmp(const char* a, const char* b) {
    return strcasecmp(a, b);
}

void vn_setOutOfMemoryCallBack(vn_OutOfMemoryCallBack callback) {
    outOfMemoryCallBack = callback;
}

void vn_outOfMemory(void) {
    const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const vn_OutOfMemoryCallBack callback = outOfMemoryCallBack.exchange(nullptr);
    const bool enteredAgain = callback == nullptr && isInsideCallBack(frame);
    constexpr char message[] = "This process is out of memory... exiting\n";
    writeToStandardError(message, sizeof message - 1);
    if (callback != nullptr) {
        callBackFrame = frame;
        callBackThread = pthread_self();
        callback();
    }
    if (getenv("VN_ABORT_ON_OOM") != nullptr) {
        __builtin_trap();
    }
    disableCancellationForEnd();
    if (!enteredAgain) {
        logMemoryOnce();
    }
    awaitMemoryLine();
    vn_immediateExit(1);
}

void vn_immediateExit(int status) {
    disableCancellationForEnd();
    inImmediateExit = true;
    fflush(stdout);
    fflush(stderr);
    _exit(status);
}

bool vn_inImmediateExit(void) {
    return inImmediateExit;
}
