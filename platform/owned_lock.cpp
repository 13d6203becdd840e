#include "platform/owned_lock.h"

#include <ctime>

#include "platform/cancellation.h"

namespace vncommon {
namespace {

constexpr int triesBeforeSleeping = 100;

void sleepBriefly() {
    const timespec pause = {0, 20'000};
    nanosleep(&pause, nullptr);
}

}  // namespace

static_assert(std::atomic<pthread_t>::is_always_lock_free, "used in signal handlers");

bool OwnedLock::tryLock() {
    pthread_t expected = nobody;
    return owner_.compare_exchange_strong(expected, pthread_self());
}

void OwnedLock::lock() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (tryLock()) [[likely]] {
        return;
    }
    const CancellationDisabled noCancellation;  // nanosleep() is a cancellation point
    for (int tries = 0; !tryLock(); ++tries) {
        if (tries >= triesBeforeSleeping) {
            sleepBriefly();
        }
    }
}

void OwnedLock::unlock() {
    owner_.store(nobody);
}

void OwnedLock::prepareFork() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (owner_.load() == pthread_self()) {
        ++nestedForks_;
    } else {
        lock();
    }
}

bool OwnedLock::endFork() {
    if (nestedForks_ == 0) {
        return true;
    }
    --nestedForks_;
    return false;
}

}  // namespace vncommon
