// Holds a mutex while it lives.
#ifndef VN_PLATFORM_MUTEX_LOCK_H
#define VN_PLATFORM_MUTEX_LOCK_H

#include <vncommon/threads.h>

#include "platform/thread_annotations.h"

namespace vncommon {

class VN_SCOPED_CAPABILITY MutexLock {
  public:
    MutexLock(vn_Mutex* mutex, [[maybe_unused]] const LockRole& role) VN_ACQUIRE(role)
        : mutex_(mutex) {
        vn_Mutex_lock(mutex_);
    }
    ~MutexLock() VN_RELEASE() { vn_Mutex_unlock(mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    vn_Mutex* mutex_;
};

}  // namespace vncommon

#endif
