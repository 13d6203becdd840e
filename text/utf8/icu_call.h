// ICU guards its converters and its initialisation with its own locks. If another thread forked
// while one of them is held, it would stay locked in the child. So every call that may take one
// is made during the lifetime of an IcuCall, and fork() waits until no IcuCall exists.
//
// A signal handler that forks during an IcuCall does not wait for its own thread (OwnedLock).
// The holder of the lock takes no locks except ICU's and malloc's.
#ifndef VN_TEXT_UTF8_ICU_CALL_H
#define VN_TEXT_UTF8_ICU_CALL_H

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
