// Formatting allocates nothing and takes no lock: this program's malloc and pthread_mutex_lock
// replace the C library's and count calls.
#include <vncommon/failure.h>
#include <vncommon/numbers.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>

#include "numbers_samples.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
}

namespace {

std::atomic<long> allocations{0};
std::atomic<long> locks{0};

using LockFunction = int (*)(pthread_mutex_t*);

LockFunction realLock() {
    static const auto function =
        reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return function;
}

}  // namespace

extern "C" {

VN_API void* malloc(size_t size) noexcept {
    allocations.fetch_add(1);
    return __libc_malloc(size);
}

VN_API void* calloc(size_t count, size_t size) noexcept {
    allocations.fetch_add(1);
    return __libc_calloc(count, size);
}

VN_API void* realloc(void* pointer, size_t size) noexcept {
    allocations.fetch_add(1);
    return __libc_realloc(pointer, size);
}

VN_API int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    locks.fetch_add(1);
    return realLock()(mutex);
}
}

namespace {

struct Calls {
    long allocations;
    long locks;

    bool operator==(const Calls&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Calls& calls) {
    return out << calls.allocations << " allocations and " << calls.locks << " locks";
}

constexpr Calls none = {0, 0};

template <typename Work>
Calls callsOf(Work work) {
    const Calls before = {allocations, locks};
    work();
    return {allocations - before.allocations, locks - before.locks};
}

template <typename Work>
Calls callsForSamples(Work work) {
    const std::vector<double> samples = hardSamples();
    return callsOf([&samples, work] {
        char buffer[512];
        Random random(11);
        for (const double x : samples) {
            work(buffer, x);
        }
        for (int i = 0; i < 20'000; ++i) {
            work(buffer, randomSample(random));
        }
    });
}

TEST(CallsTest, TheLibrarysCallsAreCounted) {
    EXPECT_EQ(callsOf([] { vn_free(vn_malloc(1)); }), (Calls{1, 0}));
    EXPECT_EQ(callsOf([] {
                  acquireBallocLock();
                  freeBallocLock();
              }),
              (Calls{0, 1}));
}

TEST(CallsTest, Shortest) {
    EXPECT_EQ(callsForSamples([](char* buffer, double x) { vn_g_fmt(buffer, x); }), none);
}

TEST(CallsTest, Fixed) {
    EXPECT_EQ(callsForSamples([](char* buffer, double x) {
                  (void)vn_g_fmt_fixed(buffer, 512, 2, x);
                  (void)vn_g_fmt_fixed(buffer, 512, 100, x);
                  (void)vn_g_fmt_fixed(buffer, 5, 2, x);
              }),
              none);
}

TEST(CallsTest, Scientific) {
    EXPECT_EQ(callsForSamples([](char* buffer, double x) {
                  (void)vn_g_fmt_scientific(buffer, 512, 6, x);
                  (void)vn_g_fmt_scientific(buffer, 512, 100, x);
                  (void)vn_g_fmt_scientific(buffer, 5, 6, x);
              }),
              none);
}

// The general conversion takes a lock for each new power of five, and none once they all exist.
TEST(CallsTest, GeneralConversion) {
    auto convert = [](char* buffer, double x) { (void)vn_g_fmt_fixed(buffer, 512, -1, x); };
    const Calls first = callsForSamples(convert);
    EXPECT_EQ(first.allocations, 0);
    EXPECT_LE(first.locks, 9);
    EXPECT_EQ(callsForSamples(convert), none);
}

TEST(CallsTest, Reading) {
    auto readBack = [](char* buffer, double x) {
        vn_strtod(vn_g_fmt(buffer, x), nullptr);
        vn_strtod(vn_g_fmt_scientific(buffer, 512, 100, x), nullptr);
    };
    EXPECT_EQ(callsForSamples(readBack).allocations, 0);
    EXPECT_EQ(callsForSamples(readBack), none);
}

}  // namespace
