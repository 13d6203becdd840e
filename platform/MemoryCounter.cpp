// Process-wide count of the memory that callers report as allocated and freed.
#include <atomic>
#include <cstdlib>

#include <vncommon/failure.h>

namespace memorycounter {

// True from load, so that counts made before anybody decides are kept.
bool MemoryDiagnostics::_enabled = true;

namespace {

bool performedCheck = false;  // the environment has been consulted; racing threads agree anyway
std::atomic<int64_t> counter{0};

}  // namespace

bool MemoryDiagnostics::checkEnabled() {
    if (!performedCheck) {
        performedCheck = true;
        _enabled = getenv("VN_TRACKMEMORY") != nullptr;
    }
    return _enabled;
}

}  // namespace memorycounter

using memorycounter::MemoryDiagnostics;

int checkMemoryTrackingEnabled(void) {
    return MemoryDiagnostics::checkEnabled() ? 1 : 0;
}

void countMemoryAllocated(size_t bytes) {
    if (MemoryDiagnostics::_enabled) {
        memorycounter::counter.fetch_add(static_cast<int64_t>(bytes));
    }
}

void countMemoryFreed(size_t bytes) {
    if (MemoryDiagnostics::_enabled) {
        memorycounter::counter.fetch_sub(static_cast<int64_t>(bytes));
    }
}

int64_t getMallocMemoryAllocated(void) {
    return memorycounter::counter.load(std::memory_order_relaxed);
}
