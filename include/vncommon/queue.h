/** @file
 * Thread-safe queue: a first-in, first-out ring of 24-byte elements between threads.
 *
 * A mutex guards the ring; a counting semaphore holds one unit per queued element, so consumers
 * block without holding the lock. The ring starts with one slot, doubles on demand up to an
 * optional maximum and halves again when three quarters of it are unused.
 *
 * Thread safety: any number of producers and consumers. Init before, and Destroy after, all use
 * by other threads; vn_threadInit (threads.h) must have been called before vn_qtsInit.
 *
 * Cost: constant time per element, plus the copy when the ring grows or shrinks. Memory comes
 * from vn_malloc, so running out of it ends the process (failure.h).
 */
#ifndef VNCOMMON_QUEUE_H
#define VNCOMMON_QUEUE_H

#include <vncommon/api.h>
#include <vncommon/threads.h>

VN_BEGIN_DECLS

/** Copied in and out whole; the queue never looks inside. */
typedef struct vn_qtsElement {
    void* words[3];
} vn_qtsElement;

/** Ring order: slots head, head + 1, ... wrapping at capacity, count of them. */
typedef struct vn_qtsQueue {
    vn_Mutex lock;          /**< guards every field below but the semaphore */
    vn_Semaphore available; /**< one unit per element not yet claimed by a consumer */
    uint32_t head;          /**< slot of the oldest element */
    uint32_t tail;          /**< slot for the next element */
    uint32_t count;         /**< queued elements */
    uint32_t maxSize;       /**< the largest capacity allowed; 0 means no limit */
    uint32_t capacity;      /**< slots in the ring */
    vn_qtsElement* slots;
} vn_qtsQueue;

/** Makes an empty queue with room for one element. maxSize limits how far it grows, exactly:
 * a maximum of 3 gives 3 slots. 0 means no limit. Whatever maxSize is, the queue is full at the
 * 2^31 - 1 elements that its semaphore can count. */
VN_API void vn_qtsInit(vn_qtsQueue* queue, uint32_t maxSize);

/** Frees the ring, the semaphore and the mutex. Elements still queued are forgotten. */
VN_API void vn_qtsDestroy(vn_qtsQueue* queue);

/** 0 when the element was queued, 1 when the queue is full at its maximum. Never blocks for
 * room. */
VN_API int vn_qtsAdd(vn_qtsQueue* queue, const vn_qtsElement* element);

/** Queues the first elements of an array of n, as many as fit, and returns how many were NOT
 * queued (the last ones of the array; 0 when all fitted). The queued ones are adjacent. */
VN_API uint32_t vn_qtsAddBatch(vn_qtsQueue* queue, const vn_qtsElement* elements, uint32_t n);

/** Takes the oldest element into *out, blocking until there is one. A thread that finds none
 * retries for a short time, yielding to others, before it sleeps. errno is preserved. */
VN_API void vn_qtsRemove(vn_qtsQueue* queue, vn_qtsElement* out);

/** 0 when an element was taken into *out; 1 at once when there was none, *out untouched. */
VN_NODISCARD VN_API int vn_qtsRemoveNB(vn_qtsQueue* queue, vn_qtsElement* out);

/** The number of queued elements at some moment during the call. */
VN_API uint32_t vn_qtsSize(vn_qtsQueue* queue);

VN_END_DECLS

#endif
