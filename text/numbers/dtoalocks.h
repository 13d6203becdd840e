// A lock of the number conversion. The operations on the two that exist, and the slots that tell a
// thread's scratch area, are exported (include/vncommon/numbers.h).
#ifndef VN_TEXT_DTOALOCKS_H
#define VN_TEXT_DTOALOCKS_H

#include <pthread.h>

#include "platform/fork_safe_mutex.h"

// Plain: neither recursive nor checked. Its results are the mutex calls' own, because the exported
// lock operations hand them to their callers.
struct DtoaMutex : vncommon::ForkSafeMutex {
    DtoaMutex() { pthread_mutex_init(&mutex, nullptr); }
    ~DtoaMutex() { pthread_mutex_destroy(&mutex); }
    DtoaMutex(const DtoaMutex&) = delete;
    DtoaMutex& operator=(const DtoaMutex&) = delete;
};

// Forgets the free big-integer blocks, in a child whose parent was changing the lists when it
// forked.
void emptyFreeLists();

#endif
