#include "platform/assertion.h"

#if defined(VN_ASSERTIONS)

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vncommon {

void failAssertion(const char* condition, const char* file, int line, const char* function) {
    char report[1024];
    const int length = snprintf(report, sizeof report, "%s:%d: %s: assertion failed: %s\n", file,
                                line, function, condition);
    const size_t written = std::min(static_cast<size_t>(std::max(length, 0)), sizeof report - 1);
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, report, written);
    abort();
}

}  // namespace vncommon

#endif
