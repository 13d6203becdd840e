#include "platform/local_time.h"

#include <cstdio>

#include "platform/assertion.h"
#include "platform/fork_handlers.h"
#include "platform/owned_lock.h"

namespace vncommon {
namespace {

// glibc: localtime_r() has a lock inside. If another thread holds that lock during fork(), it stays
// locked in the child for ever. So our lock is held around localtime_r() and during every fork().
// While we hold it we take no other lock and allocate nothing; localtime_r() may read the time zone
// file.
OwnedLock localTimeLock;

void afterFork() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (localTimeLock.endFork()) {
        localTimeLock.unlock();
    }
}

// Registered before any fork handler that may wait long. POSIX: prepare handlers run in the reverse
// order of registration, so this lock is taken last, and no handler waits while it is held.
[[gnu::init_priority(102)]] const ForkHandlers forkHandlers([] { localTimeLock.prepareFork(); },
                                                            afterFork, afterFork);

tm localTime(time_t second) {
    tm local = {};
    localTimeLock.lock();
    localtime_r(&second, &local);
    localTimeLock.unlock();
    return local;
}

char* putTwoDigits(char* to, int number) {
    VN_ASSERT(number >= 0 && number <= 99);
    to[0] = static_cast<char>('0' + number / 10);
    to[1] = static_cast<char>('0' + number % 10);
    return to + 2;
}

// Only for years of four digits.
void putSecond(const tm& local, int year, int second, char* to) {
    to = putTwoDigits(putTwoDigits(to, year / 100), year % 100);
    *to++ = '-';
    to = putTwoDigits(to, local.tm_mon + 1);
    *to++ = '-';
    to = putTwoDigits(to, local.tm_mday);
    *to++ = ' ';
    to = putTwoDigits(to, local.tm_hour);
    *to++ = ':';
    to = putTwoDigits(to, local.tm_min);
    *to++ = ':';
    to = putTwoDigits(to, second);
    *to++ = '.';
    *to = '\0';
}

}  // namespace

int formatSecond(time_t second, char* to, size_t size) {
    const tm local = localTime(second);
    VN_ASSERT(local.tm_mon >= 0 && local.tm_mon < 12);
    const int year = local.tm_year + 1900;
    const int shownSecond = local.tm_sec < 60 ? local.tm_sec : 60;
    if (year >= 1000 && year <= 9999 && size > secondLength) [[likely]] {
        putSecond(local, year, shownSecond, to);
        return secondLength;
    }
    return snprintf(to, size, "%04d-%02d-%02d %02d:%02d:%02d.", year, local.tm_mon + 1,
                    local.tm_mday, local.tm_hour, local.tm_min, shownSecond);
}

}  // namespace vncommon
