// loggerMutex, the lock that the SIGHUP handler shares with everything else that touches the
// registry of loggers or the destination of one.
//
// Its rules are what makes the handler safe at any moment:
//  1. A thread takes it with SIGHUP blocked and unblocks SIGHUP after giving it back. So the
//     handler never runs on a thread that holds the lock and cannot wait for itself.
//  2. Its holder waits for nothing that an interrupted thread may hold: it allocates and frees no
//     memory, takes no other lock, touches no stdio stream; it only moves pointers and numbers
//     and makes plain system calls. So a handler that waits for another thread is never what that
//     thread waits for, even if the handler interrupted malloc.
//  3. It is an atomic flag, and waiting is nanosleep(): both may be used in a signal handler,
//     which POSIX does not grant pthread_mutex_lock().
//  4. Its holder is not cancelled (open() and close() are cancellation points).
#ifndef VN_LOGGING_REGISTRY_LOCK_H
#define VN_LOGGING_REGISTRY_LOCK_H

#include <atomic>
#include <csignal>

#include "logging/not_cancelled.h"
#include "platform/thread_annotations.h"

namespace vncommon {

class VN_CAPABILITY("mutex") LoggerMutex {
    friend class RegistryLock;
    std::atomic<bool> held{false};
};
extern LoggerMutex loggerMutex;

class VN_SCOPED_CAPABILITY RegistryLock {
  public:
    RegistryLock() VN_ACQUIRE(loggerMutex);
    ~RegistryLock() VN_RELEASE();
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

  private:
    NotCancelled notCancelled;
    sigset_t signalsBefore;
};

}  // namespace vncommon

#endif
