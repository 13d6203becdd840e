#include "text/icu_call.h"

#include <pthread.h>

#include <vncommon/threads.h>

#include "platform/failure.h"

namespace {

vn_Mutex icuMutex = PTHREAD_MUTEX_INITIALIZER;
sigset_t signalsBeforeFork;  // under icuMutex

sigset_t lockWithoutSignals() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigemptyset(&before);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    vn_Mutex_lock(&icuMutex);
    return before;
}

void unlock(const sigset_t& before) {
    vn_Mutex_unlock(&icuMutex);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void beforeFork() {
    signalsBeforeFork = lockWithoutSignals();
}

// In the child, too: its thread is a copy of the one that holds the lock.
void afterFork() {
    const sigset_t before = signalsBeforeFork;
    unlock(before);
}

const struct HoldOverForks {
    HoldOverForks() {
        checkError(pthread_atfork(beforeFork, afterFork, afterFork), "pthread_atfork");
    }
} holdOverForks;

}  // namespace

vncommon::IcuCall::IcuCall() : signalsBefore_(lockWithoutSignals()) {}

vncommon::IcuCall::~IcuCall() {
    unlock(signalsBefore_);
}
