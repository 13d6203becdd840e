#include "platform/over_reading.h"

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||
                           __has_feature(memory_sanitizer);
#else
constexpr bool sanitized = false;
#endif

// Before the other initialisers of the library.
[[gnu::constructor(101)]] void lookForChecker() {
    vncommon::mayReadBehindText = !sanitized && RUNNING_ON_VALGRIND == 0;
}

}  // namespace

constinit bool vncommon::mayReadBehindText = false;
