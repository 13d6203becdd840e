#include "platform/owned_lock.h"

#include <ctime>

#include "platform/assertion.h"
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

bool OwnedLock::isHeldByCaller() const {
    return owner_.load(std::memory_order_relaxed) == pthread_self();
}

void OwnedLock::lock() VN_NO_THREAD_SAFETY_ANALYSIS {
    VN_ASSERT(!isHeldByCaller());
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
    VN_ASSERT(isHeldByCaller());
    VN_ASSERT(nestedForks_ == 0);
    owner_.store(nobody);
}

void OwnedLock::prepareFork() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (owner_.load() == pthread_self()) {
        ++nestedForks_;
    } else {
        lock();
    }
    VN_ASSERT(isHeldByCaller());
}

bool OwnedLock::endFork() {
    VN_ASSERT(isHeldByCaller());
    VN_ASSERT(nestedForks_ >= 0);
    if (nestedForks_ == 0) {
        return true;
    }
    --nestedForks_;
    return false;
}

}  // namespace vncommon
