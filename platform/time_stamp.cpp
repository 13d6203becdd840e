// The wall clock in milliseconds, and the text of a log line's time.
#include "platform/process_sources.h"

#include <sys/time.h>

#include <cstring>
#include <ctime>

#include "platform/assertion.h"
#include "platform/local_time.h"

namespace vncommon {
namespace {

void refreshDate(vn_TimeStampCache* cache, int64_t second) {
    char date[80];  // fits any int in every field
    [[maybe_unused]] const int length = formatSecond(second, date, sizeof date);
    VN_ASSERT(length >= secondLength);
    memcpy(cache->text, date, secondLength);
    cache->lastSecond = second;
}

}  // namespace

const char* timeStampAt(vn_TimeStampCache* cache, int64_t second, unsigned milliseconds) {
    VN_ASSERT(cache != nullptr);
    VN_ASSERT(milliseconds < 1000);
    if (second != cache->lastSecond || second == 0) [[unlikely]] {  // 0: maybe not set yet
        refreshDate(cache, second);
    }
    char* digits = cache->text + secondLength;
    digits[0] = static_cast<char>('0' + milliseconds / 100);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    digits[3] = '\0';
    VN_ASSERT(digits + 4 <= cache->text + sizeof cache->text);
    VN_ASSERT(cache->lastSecond == second);
    return cache->text;
}

}  // namespace vncommon

using namespace vncommon;

int64_t vn_sys_time(void) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

void vn_timeStampInit(vn_TimeStampCache* cache) {
    cache->lastSecond = 0;
}

void vn_timeStampDestroy(vn_TimeStampCache*) {}

const char* vn_timeStampGet(vn_TimeStampCache* cache) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return timeStampAt(cache, now.tv_sec, static_cast<unsigned>(now.tv_nsec) / 1000000);
}
