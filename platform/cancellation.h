// For locked sections that contain cancellation points: a thread that is cancelled there would
// never release the lock.
#ifndef VN_PLATFORM_CANCELLATION_H
#define VN_PLATFORM_CANCELLATION_H

#include <pthread.h>

namespace vncommon {

// While it exists, a pthread_cancel() of the calling thread is delayed. Safe in a signal handler:
// glibc only changes a field of the thread's own control block.
class CancellationDisabled {
  public:
    CancellationDisabled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationDisabled() { pthread_setcancelstate(before_, nullptr); }
    CancellationDisabled(const CancellationDisabled&) = delete;
    CancellationDisabled& operator=(const CancellationDisabled&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vncommon

#endif
