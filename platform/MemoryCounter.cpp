// Process-wide count of the memory that callers report as allocated and freed.
#include <atomic>
#include <cstdlib>

#include <vncommon/failure.h>

#include "platform/assertion.h"

namespace memorycounter {

// True from load, so that counts made before the first checkEnabled() are kept.
bool MemoryDiagnostics::_enabled = true;

namespace {

// The environment has been read, and the result is stored. Racing threads store the same result.
std::atomic<bool> performedCheck{false};
std::atomic<int64_t> counter{0};

// _enabled is a plain bool in the public header, so its atomic access needs atomic_ref.
std::atomic_ref<bool> enabled() {
    return std::atomic_ref(MemoryDiagnostics::_enabled);
}

bool isEnabled() {
    return enabled().load(std::memory_order_relaxed);
}

}  // namespace

bool MemoryDiagnostics::checkEnabled() {
    if (!performedCheck.load(std::memory_order_acquire)) {
        enabled().store(getenv("VN_TRACKMEMORY") != nullptr, std::memory_order_relaxed);
        performedCheck.store(true, std::memory_order_release);
    }
    VN_ASSERT(performedCheck.load(std::memory_order_relaxed));
    return isEnabled();
}

}  // namespace memorycounter

using namespace memorycounter;

int checkMemoryTrackingEnabled(void) {
    return MemoryDiagnostics::checkEnabled() ? 1 : 0;
}

void countMemoryAllocated(size_t bytes) {
    if (isEnabled()) {
        counter.fetch_add(static_cast<int64_t>(bytes));
    }
}

void countMemoryFreed(size_t bytes) {
    if (isEnabled()) {
        counter.fetch_sub(static_cast<int64_t>(bytes));
    }
}

int64_t getMallocMemoryAllocated(void) {
    return counter.load(std::memory_order_relaxed);
}
