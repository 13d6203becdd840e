// ICU guards its converters and the set-up of its first calls with locks of its own, which would
// stay locked in the child of a fork() made meanwhile. So what may take one of them is done during
// the lifetime of an IcuCall, and fork() waits until none is left.
//
// A signal handler that forks in the middle of one does not wait for its own thread (OwnedLock).
// The lock's holder takes no other lock than ICU's and malloc's.
#ifndef VN_TEXT_ICU_CALL_H
#define VN_TEXT_ICU_CALL_H

namespace vncommon {

class IcuCall {
  public:
    IcuCall();
    ~IcuCall();
    IcuCall(const IcuCall&) = delete;
    IcuCall& operator=(const IcuCall&) = delete;
};

}  // namespace vncommon

#endif
