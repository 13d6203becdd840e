#include "text/utf8/icu_call.h"

#include "platform/fork_handlers.h"
#include "platform/owned_lock.h"

namespace vncommon {
namespace {

OwnedLock icuLock;

void afterFork() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (icuLock.endFork()) {
        icuLock.unlock();
    }
}

// Registered before the handler that may wait for a log file to open (registry.cpp). Prepare
// handlers run in reverse order, so this one runs after that one.
[[gnu::init_priority(103)]] const ForkHandlers forkHandlers([] { icuLock.prepareFork(); },
                                                            afterFork, afterFork);

}  // namespace

IcuCall::IcuCall() VN_NO_THREAD_SAFETY_ANALYSIS {
    icuLock.lock();
}

IcuCall::~IcuCall() VN_NO_THREAD_SAFETY_ANALYSIS {
    icuLock.unlock();
}

}  // namespace vncommon
