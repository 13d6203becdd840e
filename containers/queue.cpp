// Thread-safe queue. The ring changes only under the lock; the semaphore is posted after the
// lock is released and waited on before it is taken, so nobody blocks while holding it.
#include <vncommon/queue.h>

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <vncommon/failure.h>

#include "platform/mutex_lock.h"

using vncommon::MutexLock;

namespace {

constexpr vncommon::LockRole queueLock;

// A pause takes some twenty nanoseconds.
void pause(int times) {
    for (int i = 0; i < times; ++i) {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#else
        std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
    }
}

// Only a guess, for which the C library's mutex is looked into; elsewhere nothing is guessed.
bool looksTaken([[maybe_unused]] const vn_Mutex* mutex) {
#if defined(__GLIBC__)
    return __atomic_load_n(&mutex->__data.__lock, __ATOMIC_RELAXED) != 0;
#else
    return false;
#endif
}

// Before an add or a remove locks: a thread that sees the mutex taken looks again, a microsecond
// later each time, before it asks for it and goes to sleep. The mutex is held for some ten
// nanoseconds, and the other thread gets on with many elements meanwhile, undisturbed by system
// calls that wake this one. Two threads on two processors take 28 ns for an element this way, 60
// without or with an adaptive mutex, which looks again at once.
void letOthersFinish(const vn_qtsQueue* queue) {
    constexpr int looks = 4;
    for (int i = 0; i < looks && looksTaken(&queue->lock); ++i) {
        pause(50);
    }
}

void copyElements(vn_qtsElement* to, const vn_qtsElement* from, uint32_t n) {
    if (n > 0) {  // from may be null otherwise
        memcpy(to, from, size_t{n} * sizeof(vn_qtsElement));
    }
}

// A block has room for so many, whatever the capacity: a queue that is nearly empty changes its
// capacity all the time, and does so without a call of malloc.
constexpr uint32_t leastSlots = 16;

vn_qtsElement* makeSlots(uint32_t capacity) {
    const size_t slots = std::max(capacity, leastSlots);
    return static_cast<vn_qtsElement*>(vn_malloc(slots * sizeof(vn_qtsElement)));
}

void copyInOrder(vn_qtsElement* to, const vn_qtsQueue* queue) VN_REQUIRES(queueLock) {
    const uint32_t beforeWrap = std::min(queue->count, queue->capacity - queue->head);
    copyElements(to, queue->slots + queue->head, beforeWrap);
    copyElements(to + beforeWrap, queue->slots, queue->count - beforeWrap);
}

// Moves the elements, in queue order, to the start of the new ring.
void changeCapacity(vn_qtsQueue* queue, uint32_t capacity) VN_REQUIRES(queueLock) {
    if (std::max(queue->capacity, capacity) <= leastSlots) {
        vn_qtsElement elements[leastSlots];
        copyInOrder(elements, queue);
        copyElements(queue->slots, elements, queue->count);
    } else {
        vn_qtsElement* slots = makeSlots(capacity);
        copyInOrder(slots, queue);
        free(queue->slots);
        queue->slots = slots;
    }
    queue->capacity = capacity;
    queue->head = 0;
    queue->tail = queue->count;  // the new ring is never full
}

// needed is 64-bit: count + n may be more than a count can hold.
void grow(vn_qtsQueue* queue, uint64_t needed) VN_REQUIRES(queueLock) {
    const uint64_t limit =
        queue->maxSize != 0 ? queue->maxSize : std::numeric_limits<uint32_t>::max();
    if (queue->capacity == limit) {
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
    const uint32_t beforeWrap = std::min(n, queue->capacity - queue->tail);
    copyElements(queue->slots + queue->tail, elements, beforeWrap);
    copyElements(queue->slots, elements + beforeWrap, n - beforeWrap);
    queue->tail = static_cast<uint32_t>((uint64_t{queue->tail} + n) % queue->capacity);
    queue->count += n;
}

// The caller has taken a unit of the semaphore, so there is an element for it.
void takeOldest(vn_qtsQueue* queue, vn_qtsElement* out) {
    letOthersFinish(queue);
    const MutexLock lock(&queue->lock, queueLock);
    --queue->count;
    *out = queue->slots[queue->head];
    queue->head = next(queue, queue->head);
    if (queue->count <= queue->capacity / 4) {
        shrink(queue);
    }
}

// Both as vn_Semaphore_post and vn_Semaphore_trywait do, without a call of them: an uncontended add
// and remove take a tenth less.
void postUnit(vn_Semaphore* available) {
    checkError(sem_post(available), "sem_post");
}

bool takesUnit(vn_Semaphore* available) {
    return sem_trywait(available) == 0;
}

// Whether a unit came while the thread waited some ten microseconds without going to sleep. As
// long as a thread is asleep, or on its way out of it, each post wakes it with a system call; and
// one that takes every element as it comes slows the others down. Elements of two threads that
// share a processor take 30 ns instead of 300.
bool takesUnitSoon(vn_Semaphore* available) {
    constexpr int tries = 5;
    for (int i = 0; i < tries; ++i) {
        if (takesUnit(available)) {
            return true;
        }
        sched_yield();
        pause(100);
    }
    return false;
}

// 0, or 1 when the queue is full.
int addNewest(vn_qtsQueue* queue, const vn_qtsElement* element) {
    letOthersFinish(queue);
    const MutexLock lock(&queue->lock, queueLock);
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

// Returns how many there was room for.
uint32_t addAsRoomAllows(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n) {
    letOthersFinish(queue);
    const MutexLock lock(&queue->lock, queueLock);
    const uint64_t needed = uint64_t{queue->count} + n;
    if (needed > queue->capacity) {
        grow(queue, needed);
    }
    const uint32_t taken = std::min(n, queue->capacity - queue->count);
    append(queue, elements, taken);
    return taken;
}

}  // namespace

void vn_qtsInit(vn_qtsQueue* queue, uint32_t maxSize) {
    // Zeroes serve as a free mutex and an empty semaphore if the calls below should fail.
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
}

void vn_qtsDestroy(vn_qtsQueue* queue) {
    free(queue->slots);
    vn_Semaphore_destroy(&queue->available);
    vn_Mutex_destroy(&queue->lock);
}

int vn_qtsAdd(vn_qtsQueue* queue, const vn_qtsElement* element) {
    const int full = addNewest(queue, element);
    if (full == 0) {
        postUnit(&queue->available);
    }
    return full;
}

uint32_t vn_qtsAddBatch(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n) {
    const uint32_t taken = addAsRoomAllows(queue, elements, n);
    for (uint32_t i = 0; i < taken; ++i) {
        postUnit(&queue->available);
    }
    return n - taken;
}

void vn_qtsRemove(vn_qtsQueue* queue, vn_qtsElement* out) {
    if (!takesUnitSoon(&queue->available)) {
        vn_Semaphore_wait(&queue->available);
    }
    takeOldest(queue, out);
}

int vn_qtsRemoveNB(vn_qtsQueue* queue, vn_qtsElement* out) {
    if (!takesUnit(&queue->available)) {
        return 1;
    }
    takeOldest(queue, out);
    return 0;
}

uint32_t vn_qtsSize(vn_qtsQueue* queue) {
    const MutexLock lock(&queue->lock, queueLock);
    return queue->count;
}
