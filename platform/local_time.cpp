#include "platform/local_time.h"

#include <cstdio>

#include "platform/fork_handlers.h"
#include "platform/owned_lock.h"

namespace vncommon {
namespace {

// glibc: the lock inside localtime_r() stays locked for ever in a child that was forked while
// another thread held it. So this lock is held around localtime_r() and over every fork. Nothing
// else is locked or allocated by us while it is held; localtime_r() may read the time zone's file.
OwnedLock localTimeLock;

void afterFork() {
    if (localTimeLock.endFork()) {
        localTimeLock.unlock();
    }
}

// Registered at load, and before any handler that may wait for long: the handlers that prepare a
// fork run in the reverse order, so nothing waits for a fork while this lock is held over it.
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
    to[0] = static_cast<char>('0' + number / 10);
    to[1] = static_cast<char>('0' + number % 10);
    return to + 2;
}

// For years of four digits, which is what clocks show.
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
