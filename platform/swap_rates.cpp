// Swap activity from the kernel's counters. The last reading is kept between calls.
#include "platform/process_sources.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/assertion.h"
#include "platform/float_environment.h"

namespace vncommon {
namespace {

// The last reading. Each value is atomic; concurrent calls may mix values of two readings.
std::atomic<uint64_t> lastOSStatTime;  // milliseconds since 1970
std::atomic<uint64_t> lastSwapInCount;
std::atomic<uint64_t> lastSwapOutCount;
std::atomic<double> lastSwapInRate;  // pages per second
std::atomic<double> lastSwapOutRate;

constexpr uint64_t readingHoldsFor = 100;  // milliseconds
constexpr int malformedLine = 9;

[[gnu::noinline]] double perSecond(uint64_t pages, uint64_t milliseconds) {
    return static_cast<double>(pages) / (static_cast<double>(milliseconds) / 1000.0);
}

void countPages(const char* digits, uint64_t milliseconds, std::atomic<uint64_t>& lastCount,
                std::atomic<double>& lastRate) {
    const auto count = static_cast<uint64_t>(strtoll(digits, nullptr, 10));
    lastRate = inDefaultFloatMode<perSecond>(count - lastCount, milliseconds);
    lastCount = count;
}

// 0 after both counters were found or the file has ended. milliseconds: since the last reading.
int readCounters(FILE* file, uint64_t milliseconds) {
    char line[256];
    for (int found = 0; found < 2 && fgets(line, sizeof line, file) != nullptr;) {
        char* blank = strchr(line, ' ');
        if (blank == nullptr) {
            return malformedLine;
        }
        *blank = '\0';
        if (strcmp(line, "pswpin") == 0) {
            countPages(blank + 1, milliseconds, lastSwapInCount, lastSwapInRate);
            ++found;
        } else if (strcmp(line, "pswpout") == 0) {
            countPages(blank + 1, milliseconds, lastSwapOutCount, lastSwapOutRate);
            ++found;
        }
    }
    return 0;
}

}  // namespace

int swapRates(const char* vmstatPath, double* swapInRate, double* swapOutRate) {
    const auto now = static_cast<uint64_t>(vn_sys_time());
    // Read once: another thread may store a later time, and the difference below must be positive.
    const uint64_t lastTime = lastOSStatTime;
    if (lastTime + readingHoldsFor < now) {
        FILE* file = fopen(vmstatPath, "re");
        if (file == nullptr) {
            return errno;
        }
        const int result = readCounters(file, now - lastTime);
        fclose(file);
        lastOSStatTime = static_cast<uint64_t>(vn_sys_time());
        if (result != 0) {
            return result;
        }
    }
    VN_ASSERT(swapInRate != nullptr && swapOutRate != nullptr);
    *swapInRate = lastSwapInRate;
    *swapOutRate = lastSwapOutRate;
    return 0;
}

}  // namespace vncommon

using namespace vncommon;

int vn_get_os_statistics(double* swapInRate, double* swapOutRate) {
    return swapRates("/proc/vmstat", swapInRate, swapOutRate);
}
