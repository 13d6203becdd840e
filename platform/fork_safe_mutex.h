// A mutex that the child of fork() can use, whatever the threads of its parent were doing.
//
// Nothing locks it before fork(): fork() never waits for it, and a signal handler may fork while
// its own thread holds it. Instead, the source that owns the locks registers a fork handler for the
// child (fork_handlers.h), which calls freeInChild() on each lock:
//  - a free lock stays free;
//  - a lock that the forking thread holds stays locked: a signal handler interrupted the holder and
//    forked. POSIX: the child has that thread and its locks, so it continues and unlocks;
//  - any other lock belonged to a thread that the child does not have. It is initialised again. The
//    data it guards may be half changed; the fork handler makes it valid.
//
// The holder is stored just after locking and cleared just before unlocking. A handler that forks
// between the two steps finds valid data, but the lock looks like another thread's and is freed.
// The thread then unlocks it once more in the child. glibc 2.36: this does no harm.
#ifndef VN_PLATFORM_FORK_SAFE_MUTEX_H
#define VN_PLATFORM_FORK_SAFE_MUTEX_H

#include <pthread.h>

#include <atomic>

#include <vncommon/threads.h>

#include "platform/assertion.h"
#include "platform/check_error.h"
#include "platform/thread_annotations.h"

namespace vncommon {

// Initialised and destroyed through the embedded mutex.
struct ForkSafeMutex {
    vn_Mutex mutex;
    std::atomic<pthread_t> holder{};  // no thread: 0

    // lock() and unlock() return what the pthread calls return.
    int lock() {
        const int result = pthread_mutex_lock(&mutex);
        holder.store(pthread_self(), std::memory_order_relaxed);
        // The fork handler runs on the holder's own thread, so only the compiler must keep the
        // order.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return result;
    }

    int unlock() {
        VN_ASSERT(holder.load(std::memory_order_relaxed) == pthread_self());
        std::atomic_signal_fence(std::memory_order_seq_cst);
        holder.store({}, std::memory_order_relaxed);
        return pthread_mutex_unlock(&mutex);
    }

    // For the fork handler of the child. True when the mutex was initialised again.
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
