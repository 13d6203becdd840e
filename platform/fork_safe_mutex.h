// A mutex that the child of fork() can use whatever the threads of its parent were doing.
//
// Nothing locks it before fork(): fork() never waits for it, and a signal handler may fork while
// its own thread holds it. Instead the lock's family registers a hook for the child
// (fork_handlers.h) that calls freeInChild() on each of its locks:
//  - a free one stays free;
//  - one that the forking thread holds, because a signal handler that interrupted it forks, stays
//    locked: POSIX copies that thread with the locks it holds, and it goes on and unlocks;
//  - any other was locked by a thread that the child does not have, and is made anew. What it
//    guards may be half changed, and the hook brings it to a valid state.
//
// The holder is noted just after locking and cleared just before unlocking. A handler that forks in
// the instant between finds the guarded data whole, but takes the lock for another thread's: the
// thread then unlocks in the child what is unlocked already, which does no harm in glibc 2.36.
#ifndef VN_PLATFORM_FORK_SAFE_MUTEX_H
#define VN_PLATFORM_FORK_SAFE_MUTEX_H

#include <pthread.h>

#include <atomic>

#include <vncommon/threads.h>

#include "platform/failure.h"
#include "platform/thread_annotations.h"

namespace vncommon {

// Initialised and destroyed through the embedded mutex.
struct ForkSafeMutex {
    vn_Mutex mutex;
    std::atomic<pthread_t> holder{};  // no thread: 0

    // The results are the mutex calls' own.
    int lock() {
        const int result = pthread_mutex_lock(&mutex);
        holder.store(pthread_self(), std::memory_order_relaxed);
        // The hook runs on the holder's own thread: the compiler must keep the order, no more.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return result;
    }

    int unlock() {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        holder.store({}, std::memory_order_relaxed);
        return pthread_mutex_unlock(&mutex);
    }

    // For the hook in the child: true when the mutex was made anew.
    bool freeInChild() {
        if (pthread_mutex_trylock(&mutex) == 0) {
            pthread_mutex_unlock(&mutex);
            return false;
        }
        if (holder.load(std::memory_order_relaxed) == pthread_self()) {
            return false;
        }
        pthread_mutex_init(&mutex, nullptr);
        holder.store({}, std::memory_order_relaxed);
        return true;
    }
};

class VN_SCOPED_CAPABILITY ForkSafeLock {
  public:
    ForkSafeLock(ForkSafeMutex& mutex, [[maybe_unused]] const LockRole& role) VN_ACQUIRE(role)
        : mutex_(mutex) {
        checkError(mutex_.lock(), "pthread_mutex_lock");
    }
    ~ForkSafeLock() VN_RELEASE() { checkError(mutex_.unlock(), "pthread_mutex_unlock"); }
    ForkSafeLock(const ForkSafeLock&) = delete;
    ForkSafeLock& operator=(const ForkSafeLock&) = delete;

  private:
    ForkSafeMutex& mutex_;
};

}  // namespace vncommon

#endif
