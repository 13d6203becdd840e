// The two locks of the number conversion and its two thread-local slots.
//
// Fork: a lock that another thread held is initialised again in the child. If the free lists were
// locked, they are emptied, because their links may be half written. Powers of five need no repair:
// each is valid only once its flag is set, and is written again otherwise. A scratch area belongs
// to one thread.
#include "text/numbers/dtoalocks.h"

#include <limits.h>

#include <vncommon/numbers.h>

#include "platform/fork_handlers.h"

// Invalid until the library is loaded, so that we never touch key 0, which may belong to other
// code. Until then, conversions take their blocks from the heap.
vn_ThreadLocal dtoa_threadLocalMemNext = PTHREAD_KEYS_MAX;
vn_ThreadLocal dtoa_threadLocalMemLeft = PTHREAD_KEYS_MAX;

namespace vncommon {
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

const ForkHandlers forkHandlers(nullptr, nullptr, [] {
    if (ballocLock.freeInChild()) {
        emptyFreeLists();
    }
    p5Lock.freeInChild();
});

}  // namespace
}  // namespace vncommon

using namespace vncommon;

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
