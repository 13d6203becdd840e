// A lock of the number conversion. The operations on the two that exist, and the slots that tell a
// thread's scratch area, are exported (include/vncommon/numbers.h).
#ifndef VN_TEXT_DTOALOCKS_H
#define VN_TEXT_DTOALOCKS_H

#include <pthread.h>

// Plain: neither recursive nor checked. Its results are the mutex calls' own, because the exported
// lock operations hand them to their callers.
class DtoaMutex {
  public:
    DtoaMutex() { pthread_mutex_init(&mutex_, nullptr); }
    ~DtoaMutex() { pthread_mutex_destroy(&mutex_); }
    DtoaMutex(const DtoaMutex&) = delete;
    DtoaMutex& operator=(const DtoaMutex&) = delete;

    int lock() { return pthread_mutex_lock(&mutex_); }
    int unlock() { return pthread_mutex_unlock(&mutex_); }

  private:
    pthread_mutex_t mutex_;
};

#endif
