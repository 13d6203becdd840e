// After its first lines a logger allocates no memory. This program replaces malloc to count every
// allocation of the process.
#include <vncommon/file_logger.h>
#include <vncommon/log.h>

#include <atomic>
#include <cstdlib>

#include "logging/log_support.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VN_CANNOT_COUNT 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VN_CANNOT_COUNT 1
#endif
#endif

namespace {
std::atomic<long> allocations{0};
}

#ifndef VN_CANNOT_COUNT
// Exported, so that it also counts the calls of shared libraries.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}
#pragma GCC visibility pop
#endif

namespace {

void doLogCat(FileLogger* logger, const char* variable, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FileLogger_DoLog_cat(logger, variable, level, format, arguments);
    va_end(arguments);
}

TEST(SteadyLogging, AllocatesNothing) {
#ifdef VN_CANNOT_COUNT
    GTEST_SKIP() << "the sanitizer's allocator is in the way";
#endif
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    VN_LogSetup(7, directory.file("front").c_str(), 0, 1);
    const std::string longMessage(5000, 'x');
    const auto logABit = [&](int i) {
        FileLogger_LogInfo(logger, "order %d of %s at %f", i, "a client", 1.25 * i);
        FileLogger_LogWarn(logger, "%s", longMessage.c_str());
        FileLogger_LogDebug(logger, "suppressed %d", i);
        doLogCat(logger, "VN_TEST_LEVEL", 8, "%x %5.2f %-10s|", i, 2.5, "left");
        VN_LogInfo("order %d of %s at %lu", i, "a client", 77ul);
        VN_LogDebug("suppressed %d", i);
        VN_DoLogV(5, "%c", 'c');
    };
    setenv("VN_TEST_LEVEL", "debug", 1);
    logABit(0);
    const long before = allocations;
    ASSERT_GT(before, 0) << "nothing is counted";
    for (int i = 0; i < 10'000; ++i) {
        logABit(i);
    }
    EXPECT_EQ(allocations, before);
    unsetenv("VN_TEST_LEVEL");
}

}  // namespace
