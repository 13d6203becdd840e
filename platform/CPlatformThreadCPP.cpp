// Threads and synchronisation: one system call per wrapper, failures handed to checkError.
//
// The library has no thread of its own. Its only lock here is threadCounterIdMutex, held just
// around handing out a number; no other lock is taken while it is held.
//
// Fork: the counter changes in one store and is valid at any moment. The numbers that vanished
// threads of the parent had, or were about to get, are not handed out again in the child.
#include <limits.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <vncommon/maths.h>
#include <vncommon/threads.h>

#include "platform/failure.h"
#include "platform/fork_handlers.h"
#include "platform/fork_safe_mutex.h"

namespace {

std::atomic<bool> initDone{false};

// What a new thread needs; made by the creating thread, freed by the new one.
struct ThreadStart {
    vn_ThreadFunction function;
    void* argument;
};

// No slot until load has made one: without, every call hands out a new number, but the first slot
// of the process, which is somebody else's, is left alone.
vn_ThreadLocal threadCounterId = PTHREAD_KEYS_MAX;
vncommon::ForkSafeMutex threadCounterIdMutex;
constexpr vncommon::LockRole counterLock;
uint64_t threadCounter VN_GUARDED_BY(counterLock) = 0;  // the last number handed out

// Its lifetime is the library's: the counted thread ids work from load to unload.
struct CPlatformThread_Hook {
    CPlatformThread_Hook() {
        vn_ThreadLocal_init(&threadCounterId, nullptr);
        vn_Mutex_init(&threadCounterIdMutex.mutex);
    }

    ~CPlatformThread_Hook() {
        vn_ThreadLocal_destroy(&threadCounterId);
        vn_Mutex_destroy(&threadCounterIdMutex.mutex);
    }
};

// The earliest of our static initialisers: pools and locks made later may ask for numbers.
[[gnu::init_priority(101)]] CPlatformThread_Hook hook_instance;

const vncommon::ForkHandlers forkHandlers(nullptr, nullptr,
                                          [] { threadCounterIdMutex.freeInChild(); });

void requireInitialisation() {
    if (!initDone) {
        fputs("C threading library used without first being initialised\n", stderr);
        flushAndAbort();
    }
}

void blockSignalsForMainThread() {
    sigset_t signals;
    sigset_t previous;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, &previous);
}

void* threadMain(void* argument) {
    const ThreadStart start = *static_cast<ThreadStart*>(argument);
    free(argument);
    blockSignalsForMainThread();
    vn_SetFPUControlWord();
    start.function(start.argument);
    return nullptr;
}

[[gnu::noinline]] uint64_t numberThisThread() {
    const vncommon::ForkSafeLock lock(threadCounterIdMutex, counterLock);
    const uint64_t number = ++threadCounter;
    vn_ThreadLocal_set(&threadCounterId, reinterpret_cast<void*>(number));
    return number;
}

timespec toTimespec(uint64_t milliseconds) {
    timespec time;
    time.tv_sec = static_cast<time_t>(milliseconds / 1000);
    time.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    return time;
}

}  // namespace

void vn_threadInit(void) {
    initDone = true;
}

void vn_Mutex_init(vn_Mutex* mutex) {
    checkError(pthread_mutex_init(mutex, nullptr), "pthread_mutex_init");
}

void vn_Mutex_destroy(vn_Mutex* mutex) {
    checkError(pthread_mutex_destroy(mutex), "pthread_mutex_destroy");
}

void vn_Mutex_lock(vn_Mutex* mutex) {
    checkError(pthread_mutex_lock(mutex), "pthread_mutex_lock");
}

void vn_Mutex_unlock(vn_Mutex* mutex) {
    checkError(pthread_mutex_unlock(mutex), "pthread_mutex_unlock");
}

void vn_Condition_init(vn_Condition* condition) {
    requireInitialisation();
    checkError(pthread_cond_init(condition, nullptr), "pthread_cond_init");
}

void vn_Condition_destroy(vn_Condition* condition) {
    checkError(pthread_cond_destroy(condition), "pthread_cond_destroy");
}

void vn_Condition_wait(vn_Condition* condition, vn_Mutex* mutex) {
    checkError(pthread_cond_wait(condition, mutex), "pthread_cond_wait");
}

bool vn_Condition_timedwait(vn_Condition* condition, vn_Mutex* mutex, uint64_t deadline) {
    const timespec time = toTimespec(deadline);
    return pthread_cond_timedwait(condition, mutex, &time) == 0;
}

void vn_Condition_signal(vn_Condition* condition) {
    checkError(pthread_cond_signal(condition), "pthread_cond_signal");
}

void vn_Condition_broadcast(vn_Condition* condition) {
    checkError(pthread_cond_broadcast(condition), "pthread_cond_broadcast");
}

void vn_Semaphore_init(vn_Semaphore* semaphore, uint32_t initialCount) {
    requireInitialisation();
    checkError(sem_init(semaphore, 0, initialCount), "sem_init");
}

void vn_Semaphore_destroy(vn_Semaphore* semaphore) {
    checkError(sem_destroy(semaphore), "sem_destroy");
}

void vn_Semaphore_post(vn_Semaphore* semaphore) {
    checkError(sem_post(semaphore), "sem_post");
}

void vn_Semaphore_wait(vn_Semaphore* semaphore) {
    while (sem_wait(semaphore) != 0) {
        if (errno != EINTR) {
            checkError(-1, "sem_wait");
        }
    }
}

bool vn_Semaphore_trywait(vn_Semaphore* semaphore) {
    return sem_trywait(semaphore) != 0;
}

vn_ThreadId vn_createThread(vn_ThreadFunction function, void* argument, bool detached) {
    // Before the initialisation test, which may abort: the order is part of the behaviour.
    auto* start = static_cast<ThreadStart*>(malloc(sizeof(ThreadStart)));
    requireInitialisation();
    vn_checkMemory(start);
    *start = {function, argument};

    pthread_attr_t attributes{};  // zeros serve as defaults if the call below should fail
    checkError(pthread_attr_init(&attributes), "pthread_attr_init");
    if (detached) {
        checkError(pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED),
                   "pthread_attr_setdetachstate");
    }
    vn_ThreadId thread{};
    const int result = pthread_create(&thread, &attributes, threadMain, start);
    checkError(result, "pthread_create");  // before free, which may change the errno it reports
    if (result != 0) {
        free(start);
    }
    pthread_attr_destroy(&attributes);
    return thread;
}

void* vn_joinThread(vn_ThreadId thread) {
    void* exitValue = nullptr;
    checkError(pthread_join(thread, &exitValue), "pthread_join");
    return exitValue;
}

vn_ThreadId vn_getThreadID(void) {
    return pthread_self();
}

void vn_sleep(uint32_t milliseconds) {
    timespec left = toTimespec(milliseconds);
    while (nanosleep(&left, &left) != 0) {
    }
}

void vn_ThreadLocal_init(vn_ThreadLocal* slot, void (*destructor)(void* value)) {
    checkError(pthread_key_create(slot, destructor), "pthread_key_create");
}

void vn_ThreadLocal_destroy(vn_ThreadLocal* slot) {
    checkError(pthread_key_delete(*slot), "pthread_key_delete");
}

void* vn_ThreadLocal_get(vn_ThreadLocal* slot) {
    return pthread_getspecific(*slot);
}

void vn_ThreadLocal_set(vn_ThreadLocal* slot, void* value) {
    checkError(pthread_setspecific(*slot, value), "pthread_setspecific");
}

uint64_t vn_getCountedThreadId(void) {
    void* known = vn_ThreadLocal_get(&threadCounterId);
    return known != nullptr ? reinterpret_cast<uint64_t>(known) : numberThisThread();
}

void vn_reportLoggerFD(void) {}
