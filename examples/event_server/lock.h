// Holds a vn_Mutex for the length of a block.
#ifndef VN_EXAMPLES_LOCK_H
#define VN_EXAMPLES_LOCK_H

#include <vncommon/threads.h>

class Lock {
  public:
    explicit Lock(vn_Mutex& mutex) : mutex_(mutex) { vn_Mutex_lock(&mutex_); }
    ~Lock() { vn_Mutex_unlock(&mutex_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    vn_Mutex& mutex_;
};

#endif
