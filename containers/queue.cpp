// Thread-safe queue. The ring changes only under the lock. The semaphore is posted after the lock
// is released, and waited for before the lock is taken. So no thread waits for an element while it
// holds the lock.
#include <vncommon/queue.h>

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <vncommon/failure.h>

#include "platform/assertion.h"
#include "platform/check_error.h"
#include "platform/thread_annotations.h"

namespace vncommon {
namespace {

constexpr LockRole queueLock;

// A semaphore counts no further, and has one unit for each element.
constexpr uint32_t mostElements = SEM_VALUE_MAX;

// The record between operations; the lock is held, or no other thread uses the queue. Destruction
// leaves a capacity of 0 in builds with assertions.
[[maybe_unused]] bool isValid(const vn_qtsQueue* queue) {
    return queue->capacity > 0 && queue->slots != nullptr && queue->count <= queue->capacity &&
           (queue->maxSize == 0 || queue->capacity <= queue->maxSize) &&
           queue->head < queue->capacity &&
           queue->tail == (uint64_t{queue->head} + queue->count) % queue->capacity;
}

void markEnded([[maybe_unused]] vn_qtsQueue* queue) {
#if defined(VN_ASSERTIONS)
    queue->capacity = 0;
#endif
}

void pause(int times) {
    for (int i = 0; i < times; ++i) {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("isb");
#endif
    }
}

// The mutex is held only briefly, so a thread that finds it locked pauses and retries before it
// sleeps. Meanwhile the holder can process many elements and needs no system call to wake this
// thread.
bool lockBriefly(vn_Mutex* mutex) {
    constexpr int tries = 4;
    for (int i = 0; i < tries; ++i) {
        if (pthread_mutex_trylock(mutex) == 0) {
            return true;
        }
        pause(50);
    }
    return false;
}

// Holds the queue's mutex while it exists. The ring is valid when that begins and ends.
class VN_SCOPED_CAPABILITY RingLock {
  public:
    explicit RingLock(vn_qtsQueue* queue) VN_ACQUIRE(queueLock) : queue_(queue) {
        if (!lockBriefly(&queue_->lock)) {
            checkError(pthread_mutex_lock(&queue_->lock), "pthread_mutex_lock");
        }
        VN_ASSERT(isValid(queue_));
    }
    ~RingLock() VN_RELEASE() {
        VN_ASSERT(isValid(queue_));
        checkError(pthread_mutex_unlock(&queue_->lock), "pthread_mutex_unlock");
    }
    RingLock(const RingLock&) = delete;
    RingLock& operator=(const RingLock&) = delete;

  private:
    vn_qtsQueue* queue_;
};

vn_qtsElement* makeSlots(uint32_t capacity) {
    return static_cast<vn_qtsElement*>(vn_malloc(size_t{capacity} * sizeof(vn_qtsElement)));
}

void copyInOrder(vn_qtsElement* to, const vn_qtsQueue* queue) VN_REQUIRES(queueLock) {
    const uint32_t beforeWrap = std::min(queue->count, queue->capacity - queue->head);
    to = std::copy_n(queue->slots + queue->head, beforeWrap, to);
    std::copy_n(queue->slots, queue->count - beforeWrap, to);
}

// Moves the elements, in queue order, to the start of the new ring.
void changeCapacity(vn_qtsQueue* queue, uint32_t capacity) VN_REQUIRES(queueLock) {
    VN_ASSERT(queue->count < capacity);
    vn_qtsElement* slots = makeSlots(capacity);
    copyInOrder(slots, queue);
    free(queue->slots);
    queue->slots = slots;
    queue->capacity = capacity;
    queue->head = 0;
    queue->tail = queue->count;  // the new ring is never full
}

// needed is 64-bit, because count + n may exceed 32 bits.
void grow(vn_qtsQueue* queue, uint64_t needed) VN_REQUIRES(queueLock) {
    const uint64_t limit =
        queue->maxSize != 0 ? std::min(queue->maxSize, mostElements) : mostElements;
    if (queue->capacity >= limit) {
        return;
    }
    uint64_t capacity = queue->capacity;
    while (capacity < needed) {
        capacity *= 2;
    }
    changeCapacity(queue, static_cast<uint32_t>(std::min(capacity, limit)));
}

void shrink(vn_qtsQueue* queue) VN_REQUIRES(queueLock) {
    if (queue->capacity == 1) {
        return;
    }
    uint32_t capacity = queue->capacity / 2;
    while (queue->count < capacity / 2) {
        capacity /= 2;
    }
    changeCapacity(queue, capacity);
}

uint32_t next(const vn_qtsQueue* queue, uint32_t slot) VN_REQUIRES(queueLock) {
    return slot + 1 == queue->capacity ? 0 : slot + 1;
}

void append(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n) VN_REQUIRES(queueLock) {
    VN_ASSERT(n <= queue->capacity - queue->count);
    const uint32_t beforeWrap = std::min(n, queue->capacity - queue->tail);
    std::copy_n(elements, beforeWrap, queue->slots + queue->tail);
    std::copy_n(elements + beforeWrap, n - beforeWrap, queue->slots);
    queue->tail = static_cast<uint32_t>((uint64_t{queue->tail} + n) % queue->capacity);
    queue->count += n;
}

// The caller has taken a unit of the semaphore, so the ring holds an element for it.
void takeOldest(vn_qtsQueue* queue, vn_qtsElement* out) {
    const RingLock lock(queue);
    VN_ASSERT(queue->count > 0);
    --queue->count;
    *out = queue->slots[queue->head];
    queue->head = next(queue, queue->head);
    if (queue->count <= queue->capacity / 4) {
        shrink(queue);
    }
}

// Whether the thread got a unit after a short wait without sleeping. A sleeping thread must be
// woken with a system call. The pauses let the other threads work: a thread that takes every
// element at once slows them down.
bool takeUnitBriefly(vn_Semaphore* available) {
    constexpr int tries = 5;
    for (int i = 0; i < tries; ++i) {
        if (!vn_Semaphore_trywait(available)) {
            return true;
        }
        sched_yield();
        pause(100);
    }
    return false;
}

// 0, or 1 when the queue is full.
int addNewest(vn_qtsQueue* queue, const vn_qtsElement* element) {
    const RingLock lock(queue);
    if (queue->count == queue->capacity) {
        grow(queue, uint64_t{queue->count} + 1);
    }
    if (queue->count == queue->capacity) {
        return 1;
    }
    queue->slots[queue->tail] = *element;
    queue->tail = next(queue, queue->tail);
    ++queue->count;
    return 0;
}

// Adds as many as fit and returns their number.
uint32_t addAsManyAsFit(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n) {
    const RingLock lock(queue);
    const uint64_t needed = uint64_t{queue->count} + n;
    if (needed > queue->capacity) {
        grow(queue, needed);
    }
    const uint32_t taken = std::min(n, queue->capacity - queue->count);
    append(queue, elements, taken);
    return taken;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

void vn_qtsInit(vn_qtsQueue* queue, uint32_t maxSize) {
    // Zeros represent a free mutex and an empty semaphore, in case the calls below fail.
    queue->available = {};
    queue->lock = {};
    vn_Semaphore_init(&queue->available, 0);
    vn_Mutex_init(&queue->lock);
    queue->head = 0;
    queue->tail = 0;
    queue->count = 0;
    queue->maxSize = maxSize;
    queue->capacity = 1;
    queue->slots = makeSlots(queue->capacity);
    VN_ASSERT(isValid(queue));
}

void vn_qtsDestroy(vn_qtsQueue* queue) {
    VN_ASSERT(isValid(queue));
    free(queue->slots);
    markEnded(queue);
    vn_Semaphore_destroy(&queue->available);
    vn_Mutex_destroy(&queue->lock);
}

int vn_qtsAdd(vn_qtsQueue* queue, const vn_qtsElement* element) {
    const int full = addNewest(queue, element);
    if (full == 0) {
        vn_Semaphore_post(&queue->available);
    }
    return full;
}

uint32_t vn_qtsAddBatch(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n) {
    const uint32_t taken = addAsManyAsFit(queue, elements, n);
    for (uint32_t i = 0; i < taken; ++i) {
        vn_Semaphore_post(&queue->available);
    }
    return n - taken;
}

void vn_qtsRemove(vn_qtsQueue* queue, vn_qtsElement* out) {
    const int before = errno;  // the wait changes errno
    if (!takeUnitBriefly(&queue->available)) {
        vn_Semaphore_wait(&queue->available);
    }
    takeOldest(queue, out);
    errno = before;
}

int vn_qtsRemoveNB(vn_qtsQueue* queue, vn_qtsElement* out) {
    if (vn_Semaphore_trywait(&queue->available)) {  // true: no unit was taken
        return 1;
    }
    takeOldest(queue, out);
    return 0;
}

uint32_t vn_qtsSize(vn_qtsQueue* queue) {
    const RingLock lock(queue);
    return queue->count;
}
