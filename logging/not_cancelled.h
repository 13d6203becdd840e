// Cancellation points inside a locked section: a thread cancelled there would leave the lock
// locked for ever.
#ifndef VN_LOGGING_NOT_CANCELLED_H
#define VN_LOGGING_NOT_CANCELLED_H

#include <pthread.h>

namespace vncommon {

// Puts a pthread_cancel off while it lives. Only a change of a field of the thread's own, so it
// may be used in a signal handler.
class NotCancelled {
  public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~NotCancelled() { pthread_setcancelstate(before, nullptr); }
    NotCancelled(const NotCancelled&) = delete;
    NotCancelled& operator=(const NotCancelled&) = delete;

  private:
    int before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vncommon

#endif
