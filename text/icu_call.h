// ICU guards its converters and the set-up of its first calls with locks of its own, which would
// stay locked in the child of a fork() made meanwhile. So what may take one of them is done while
// an IcuCall lives, and fork() waits until none does.
//
// Signals are blocked meanwhile, and while fork() holds the lock: a handler that forks would wait
// for its own thread. The lock's holder takes no other lock than ICU's and malloc's.
#ifndef VN_TEXT_ICU_CALL_H
#define VN_TEXT_ICU_CALL_H

#include <csignal>

namespace vncommon {

class IcuCall {
  public:
    IcuCall();
    ~IcuCall();
    IcuCall(const IcuCall&) = delete;
    IcuCall& operator=(const IcuCall&) = delete;

  private:
    sigset_t signalsBefore_;
};

}  // namespace vncommon

#endif
