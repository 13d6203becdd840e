// A lock that knows which thread holds it, for what must stay usable across fork().
//
// A thread that forks has to hold such a lock, so that the child finds whole what it guards. A
// signal handler may fork while the thread that it interrupted holds the lock, or is itself
// inside fork(): to wait would be to wait for itself. The owner is part of the lock word and so
// is known at every instruction, which no pthread mutex offers. pthread_self() does not change in
// the child of a fork, so an owner that continues there still is the owner.
//
// Waiting is some tries and then a sleep in small steps: the lock is made for short sections, a
// sleeping waiter lets an owner of lower priority run, and nothing has to be woken after a fork.
#ifndef VN_PLATFORM_OWNED_LOCK_H
#define VN_PLATFORM_OWNED_LOCK_H

#include <pthread.h>

#include <atomic>

#include "platform/thread_annotations.h"

namespace vncommon {

class VN_CAPABILITY("mutex") OwnedLock {
  public:
    constexpr OwnedLock() = default;
    OwnedLock(const OwnedLock&) = delete;
    OwnedLock& operator=(const OwnedLock&) = delete;

    // The owner must not call it again. Not a cancellation point.
    void lock() VN_ACQUIRE();

    // Async-signal-safe, like unlock(). False also when the calling thread is the owner.
    bool tryLock() VN_TRY_ACQUIRE(true);

    void unlock() VN_RELEASE();

    // For fork handlers. prepareFork() acquires the lock unless the forking thread is the owner.
    // endFork(), in parent and child, returns whether the lock is to be released: false when
    // another fork() of this thread, or the code that a signal interrupted, still needs it.
    void prepareFork();
    bool endFork();

  private:
    static constexpr pthread_t nobody = 0;

    std::atomic<pthread_t> owner_{nobody};
    int nestedForks_ = 0;  // of the owner, by signal handlers
};

}  // namespace vncommon

#endif
