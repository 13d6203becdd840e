// A lock that knows which thread holds it, for data that must stay usable across fork().
//
// A thread that forks must hold this lock, so that the child finds the guarded data valid. A
// signal handler may fork while the interrupted thread holds the lock or is itself inside fork();
// waiting would then deadlock. So the lock word is the owner's id, which is valid at every
// instruction; a pthread mutex does not offer that. pthread_self() is the same in the child of a
// fork, so an owner that continues there is still the owner.
//
// A waiter tries several times, then sleeps in short steps: the locked sections are short, a
// sleeping waiter lets an owner of lower priority run, and no waiter must be woken after a fork.
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

    // Not recursive. Not a cancellation point.
    void lock() VN_ACQUIRE();

    // Async-signal-safe, like unlock(). False also when the calling thread is the owner.
    bool tryLock() VN_TRY_ACQUIRE(true);

    void unlock() VN_RELEASE();

    // Async-signal-safe.
    bool isHeldByCaller() const;

    // For fork handlers. prepareFork() acquires the lock unless the forking thread is the owner.
    // endFork() runs in parent and child and returns whether the lock must now be released: false
    // when another fork() of this thread, or the interrupted code, still needs it.
    void prepareFork();
    bool endFork();

  private:
    static constexpr pthread_t nobody = 0;

    std::atomic<pthread_t> owner_{nobody};
    int nestedForks_ = 0;  // forks by signal handlers while the owner holds the lock
};

}  // namespace vncommon

#endif
