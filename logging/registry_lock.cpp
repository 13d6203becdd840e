#include "logging/registry_lock.h"

#include <pthread.h>

#include <ctime>

namespace {

// Sleeping instead of spinning lets a holder with a lower real-time priority go on.
void waitABit() {
    const timespec pause = {0, 20'000};
    nanosleep(&pause, nullptr);
}

}  // namespace

constinit vncommon::LoggerMutex vncommon::loggerMutex;
static_assert(std::atomic<bool>::is_always_lock_free);

vncommon::RegistryLock::RegistryLock() {
    sigset_t sighup;
    sigemptyset(&sighup);
    sigaddset(&sighup, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &sighup, &signalsBefore);
    while (loggerMutex.held.exchange(true, std::memory_order_acquire)) {
        waitABit();
    }
}

vncommon::RegistryLock::~RegistryLock() {
    loggerMutex.held.store(false, std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &signalsBefore, nullptr);
}
