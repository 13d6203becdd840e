// Reports of failed calls, and the abort after a fatal message.
#ifndef VN_PLATFORM_CHECK_ERROR_H
#define VN_PLATFORM_CHECK_ERROR_H

#include <vncommon/failure.h>

namespace vncommon {

// Ends the process with this message on standard error.
[[noreturn]] void abortWith(const char* message);

// The part of checkError that reports; code is not 0.
void reportFailedCall(int code, const char* systemCall);

// Does nothing when code is 0. Otherwise reports the failed call in three lines on standard
// error ("Fatal error: System call %s failed\n" and the messages for errno and code) and returns.
// Compat: the program continues after a failed lock, unlock or signal; callers rely on it.
// The exception: "pthread_create" failing with EAGAIN or ENOMEM ends in vn_outOfMemory().
// code is what the call returned: an error number, or -1 for calls that report through errno.
//
// Inline, so that a successful lock needs no extra call.
inline void checkError(int code, const char* systemCall) {
    if (code != 0) [[unlikely]] {
        reportFailedCall(code, systemCall);
    }
}

}  // namespace vncommon

#endif
