#include "platform/local_time.h"

#include <csignal>
#include <cstdio>

#include "platform/mutex_lock.h"

namespace {

// One fork can wait for this lock with another lock held, and a signal handler can fork, or wait
// for somebody who does: so nothing interrupts its holder.
vn_Mutex localTimeMutex = PTHREAD_MUTEX_INITIALIZER;
constexpr vncommon::LockRole localTimeLock;

void beforeFork() {
    vn_Mutex_lock(&localTimeMutex);
}

void afterFork() {
    vn_Mutex_unlock(&localTimeMutex);
}

void holdOverForks() {
    pthread_atfork(beforeFork, afterFork, afterFork);
}

tm localTime(time_t second) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, holdOverForks);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    tm local = {};
    {
        const vncommon::MutexLock lock(&localTimeMutex, localTimeLock);
        localtime_r(&second, &local);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return local;
}

}  // namespace

int vncommon::formatSecond(time_t second, char* to, size_t size) {
    const tm local = localTime(second);
    return snprintf(to, size, "%04d-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900,
                    local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                    local.tm_sec < 60 ? local.tm_sec : 60);
}
