// A lock of the number conversion. There are two; the operations on them and the thread-local
// slots of the scratch area are exported (include/vncommon/numbers.h).
#ifndef VN_TEXT_NUMBERS_DTOALOCKS_H
#define VN_TEXT_NUMBERS_DTOALOCKS_H

#include <pthread.h>

#include "platform/fork_safe_mutex.h"

namespace vncommon {

// A plain mutex: neither recursive nor error-checking. Returns the results of the mutex calls,
// because the exported lock operations return them to their callers.
struct DtoaMutex : ForkSafeMutex {
    DtoaMutex() { pthread_mutex_init(&mutex, nullptr); }
    ~DtoaMutex() { pthread_mutex_destroy(&mutex); }
    DtoaMutex(const DtoaMutex&) = delete;
    DtoaMutex& operator=(const DtoaMutex&) = delete;
};

// Empties the free lists without freeing the blocks. For a child whose parent was changing the
// lists when it forked.
void emptyFreeLists();

}  // namespace vncommon

#endif
