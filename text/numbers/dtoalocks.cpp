// The two locks of the number conversion and its two thread-local slots.
//
// Fork: a lock that another thread held is made anew in the child. Free lists found locked are
// emptied, because their links may be half written. Powers of five need nothing: each counts only
// once its flag is set, and one that was not is written again. A thread's scratch area is its own.
#include "text/numbers/dtoalocks.h"

#include <limits.h>

#include <vncommon/numbers.h>

#include "platform/fork_handlers.h"

// No slots until load has made them, rather than the first of the process, which is somebody
// else's: conversions then take their blocks from the heap.
vn_ThreadLocal dtoa_threadLocalMemNext = PTHREAD_KEYS_MAX;
vn_ThreadLocal dtoa_threadLocalMemLeft = PTHREAD_KEYS_MAX;

namespace {

DtoaMutex ballocLock;  // the free lists of big-integer blocks
DtoaMutex p5Lock;      // the cache of powers of five

struct ScratchSlots {
    ScratchSlots() {
        vn_ThreadLocal_init(&dtoa_threadLocalMemNext, nullptr);
        vn_ThreadLocal_init(&dtoa_threadLocalMemLeft, nullptr);
        vn_ThreadLocal_set(&dtoa_threadLocalMemNext, nullptr);
        vn_ThreadLocal_set(&dtoa_threadLocalMemLeft, nullptr);
    }
    ~ScratchSlots() {
        vn_ThreadLocal_destroy(&dtoa_threadLocalMemNext);
        vn_ThreadLocal_destroy(&dtoa_threadLocalMemLeft);
    }
} scratchSlots;

const vncommon::ForkHandlers forkHandlers(nullptr, nullptr, [] {
    if (ballocLock.freeInChild()) {
        emptyFreeLists();
    }
    p5Lock.freeInChild();
});

}  // namespace

int acquireBallocLock(void) {
    return ballocLock.lock();
}
int freeBallocLock(void) {
    return ballocLock.unlock();
}
int acquirep5Lock(void) {
    return p5Lock.lock();
}
int freep5Lock(void) {
    return p5Lock.unlock();
}
