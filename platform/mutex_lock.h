// Holds a mutex while it exists. Calls pthread_mutex_lock directly: vn_Mutex_lock does the same,
// but costs one more call.
#ifndef VN_PLATFORM_MUTEX_LOCK_H
#define VN_PLATFORM_MUTEX_LOCK_H

#include <vncommon/threads.h>

#include "platform/assertion.h"
#include "platform/check_error.h"
#include "platform/thread_annotations.h"

namespace vncommon {

class VN_SCOPED_CAPABILITY MutexLock {
  public:
    MutexLock(vn_Mutex* mutex, [[maybe_unused]] const LockRole& role) VN_ACQUIRE(role)
        : mutex_(mutex) {
        VN_ASSERT(mutex != nullptr);
        checkError(pthread_mutex_lock(mutex_), "pthread_mutex_lock");
    }
    ~MutexLock() VN_RELEASE() { checkError(pthread_mutex_unlock(mutex_), "pthread_mutex_unlock"); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    vn_Mutex* mutex_;
};

}  // namespace vncommon

#endif
