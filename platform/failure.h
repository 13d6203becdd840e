// Reports of failed calls, and the end after a fatal text.
#ifndef VN_PLATFORM_FAILURE_H
#define VN_PLATFORM_FAILURE_H

#include <vncommon/failure.h>

// The end after a fatal text: abort() drops what a standard error with a buffer still holds.
[[noreturn]] void flushAndAbort();

// The part of checkError that reports; code is not 0.
void reportFailedCall(int code, const char* systemCall);

// Does nothing when code is 0. Otherwise reports the failed call in three lines on standard
// error ("Fatal error: System call %s failed\n" and the texts of errno and of code) and returns:
// a failed lock, unlock or signal is reported and the program goes on, on purpose. The one
// exception: "pthread_create" failing with EAGAIN or ENOMEM ends in vn_outOfMemory().
// code is what the call returned: an error number, or -1 for calls that report through errno.
//
// Inline, so that a lock that succeeds costs no further call.
inline void checkError(int code, const char* systemCall) {
    if (code != 0) [[unlikely]] {
        reportFailedCall(code, systemCall);
    }
}

#endif
