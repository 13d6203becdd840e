// Memory for the big integers of the number conversion, and the powers of five it multiplies by.
//
// A block comes from the scratch area in the stack frame of the running conversion, which no other
// thread uses. When that is used up, it comes from the free lists, under a lock; when they are
// empty, from the heap. Only reading thousands of digits exceeds the scratch area.
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/numbers.h>

#include "platform/assertion.h"
#include "platform/thread_annotations.h"
#include "text/numbers/dtoalocks.h"
#include "text/numbers/netlib/include/reent.h"

namespace vncommon {
namespace {

constexpr int sizeClasses = 16;

constexpr LockRole freeListsLock;

bool lockFreeLists() VN_TRY_ACQUIRE(true, freeListsLock) VN_NO_THREAD_SAFETY_ANALYSIS {
    return acquireBallocLock() == 0;
}

void unlockFreeLists() VN_RELEASE(freeListsLock) VN_NO_THREAD_SAFETY_ANALYSIS {
    freeBallocLock();
}

// The free blocks, by size class. Larger blocks are allocated and freed directly.
struct FreeLists {
    _Bigint* first[sizeClasses] VN_GUARDED_BY(freeListsLock);

    ~FreeLists() {
        if (!lockFreeLists()) {
            return;
        }
        for (_Bigint*& list : first) {
            while (list != nullptr) {
                _Bigint* next = list->_next;
                free(list);
                list = next;
            }
        }
        unlockFreeLists();
    }
};
constinit FreeLists freeLists{};

size_t blockSize(int k) {
    VN_ASSERT(k >= 0);
    return offsetof(_Bigint, _x) + (sizeof(__ULong) << k);
}

// The size class of a block in a free list, in builds with assertions.
constexpr int freedClass = -1;

void markFreed([[maybe_unused]] _Bigint* block) {
#if defined(VN_ASSERTIONS)
    block->_k = freedClass;
#endif
}

// From the thread's scratch area, or null when the rest of the area is too small.
// Calls the pthread functions directly: at exit a conversion may run after the slots are destroyed.
// It then uses the heap instead of reporting a failed call.
_Bigint* takeFromScratchArea(int k) {
    const size_t units = (blockSize(k) + 7) / 8;
    const auto left = reinterpret_cast<size_t>(pthread_getspecific(dtoa_threadLocalMemLeft));
    if (units > left) {
        return nullptr;
    }
    auto* next = static_cast<uint64_t*>(pthread_getspecific(dtoa_threadLocalMemNext));
    VN_ASSERT(next != nullptr);
    const bool taken =
        pthread_setspecific(dtoa_threadLocalMemLeft, reinterpret_cast<void*>(left - units)) == 0 &&
        pthread_setspecific(dtoa_threadLocalMemNext, next + units) == 0;
    return taken ? reinterpret_cast<_Bigint*>(next) : nullptr;
}

_Bigint* takeFromFreeList(int k) {
    if (k >= sizeClasses || !lockFreeLists()) {
        return nullptr;
    }
    _Bigint* block = freeLists.first[k];
    if (block != nullptr) {
        VN_ASSERT(block->_k == freedClass);
        freeLists.first[k] = block->_next;
    }
    unlockFreeLists();
    return block;
}

}  // namespace

// No lock is needed: the child has one thread.
void emptyFreeLists() VN_NO_THREAD_SAFETY_ANALYSIS {
    for (_Bigint*& list : freeLists.first) {
        list = nullptr;
    }
}

}  // namespace vncommon

using namespace vncommon;

_Bigint* _Balloc(_reent*, int k) {
    _Bigint* block = takeFromScratchArea(k);
    const bool inScratchArea = block != nullptr;
    if (!inScratchArea) {
        block = takeFromFreeList(k);
    }
    if (block == nullptr) {
        block = static_cast<_Bigint*>(vn_malloc(blockSize(k)));
    }
    block->_carved = inScratchArea;
    block->_k = k;
    block->_maxwds = 1 << k;
    block->_sign = block->_wds = 0;
    return block;
}

void _Bfree(_reent*, _Bigint* block) {
    if (block == nullptr || block->_carved) {
        return;
    }
    VN_ASSERT(block->_k >= 0 && block->_wds <= block->_maxwds);
    if (block->_k >= sizeClasses || !lockFreeLists()) {
        free(block);
        return;
    }
    block->_next = freeLists.first[block->_k];
    freeLists.first[block->_k] = block;
    markFreed(block);
    unlockFreeLists();
}

namespace vncommon {
namespace {

// 5^4 and its squares up to 5^1024, more than a double needs. Each is computed on first use outside
// the lock, stored under it, and never changes after ready is set.
constexpr int cachedPowers = 9;
constexpr size_t largestPower = offsetof(_Bigint, _x) + 128 * sizeof(__ULong);

struct CachedPower {
    alignas(_Bigint) unsigned char block[largestPower];
    std::atomic<bool> ready;

    _Bigint* get() { return reinterpret_cast<_Bigint*>(block); }
};
constinit CachedPower powersOfFive[cachedPowers]{};

// 5^(4 * 2^i); previous is the power before, null for i = 0.
_Bigint* cachedPower(_reent* context, int i, _Bigint* previous) {
    VN_ASSERT((i == 0) == (previous == nullptr));
    CachedPower& cached = powersOfFive[i];
    if (cached.ready.load(std::memory_order_acquire)) {
        return cached.get();
    }
    _Bigint* power = i == 0 ? __i2b(context, 625) : __multiply(context, previous, previous);
    acquirep5Lock();
    if (!cached.ready.load(std::memory_order_relaxed)) {
        VN_ASSERT(blockSize(power->_k) <= largestPower);
        memcpy(cached.block, power, blockSize(power->_k));
        cached.get()->_carved = true;
        cached.ready.store(true, std::memory_order_release);
    }
    freep5Lock();
    _Bfree(context, power);
    return cached.get();
}

}  // namespace
}  // namespace vncommon

// Returns b times 5^k; consumes b.
_Bigint* __pow5mult(_reent* context, _Bigint* b, int k) {
    VN_ASSERT(k >= 0);
    constexpr int smallPowers[] = {1, 5, 25, 125};
    if ((k & 3) != 0) {
        b = __multadd(context, b, smallPowers[k & 3], 0);
    }
    _Bigint* power = nullptr;
    int i = 0;
    for (int rest = k >> 2; rest != 0; rest >>= 1, ++i) {
        _Bigint* previous = power;
        power = i < cachedPowers ? cachedPower(context, i, previous)
                                 : __multiply(context, previous, previous);
        if (i > cachedPowers) {
            _Bfree(context, previous);
        }
        if ((rest & 1) != 0) {
            _Bigint* product = __multiply(context, b, power);
            _Bfree(context, b);
            b = product;
        }
    }
    if (i > cachedPowers) {
        _Bfree(context, power);
    }
    return b;
}
