// Threads and synchronisation: each wrapper makes one POSIX call and passes a failure to
// checkError.
//
// The library starts no threads. The only lock here is threadCounterIdMutex. It is held only while
// a thread gets its number, and no other lock is taken meanwhile.
//
// Fork: the counter changes in one store, so it is valid at any moment. The child does not reuse
// numbers that the parent has counted, also those of threads that the child does not have.
#include <vncommon/threads.h>

#include <limits.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <vncommon/maths.h>

#include "platform/alive_mark.h"
#include "platform/assertion.h"
#include "platform/check_error.h"
#include "platform/fork_handlers.h"
#include "platform/fork_safe_mutex.h"

namespace vncommon {
namespace {

std::atomic<bool> initDone{false};

// What a new thread runs. The creating thread allocates it; the new thread frees it, or the
// creating one when there is no new thread.
struct ThreadStart {
    vn_ThreadFunction function;
    void* argument;
    [[no_unique_address]] AliveMark mark{};
};

// Invalid before the static initialiser below and after its destructor, so that we never touch a
// key that may belong to other code. Then every call returns a new number.
vn_ThreadLocal threadCounterId = PTHREAD_KEYS_MAX;
ForkSafeMutex threadCounterIdMutex;
constexpr LockRole counterLock;
uint64_t threadCounter VN_GUARDED_BY(counterLock) = 0;  // the last number assigned

// Lives from load to unload of the library, and counted thread ids work for that time.
struct CPlatformThread_Hook {
    CPlatformThread_Hook() {
        vn_ThreadLocal_init(&threadCounterId, nullptr);
        vn_Mutex_init(&threadCounterIdMutex.mutex);
    }

    ~CPlatformThread_Hook() {
        vn_ThreadLocal_destroy(&threadCounterId);
        threadCounterId = PTHREAD_KEYS_MAX;
        vn_Mutex_destroy(&threadCounterIdMutex.mutex);
    }
};

// The first of our static initialisers, because later ones may request thread numbers.
[[gnu::init_priority(101)]] CPlatformThread_Hook hook_instance;

const ForkHandlers forkHandlers(nullptr, nullptr, [] { threadCounterIdMutex.freeInChild(); });

void requireInitialisation() {
    if (!initDone) {
        abortWith("C threading library used without first being initialised\n");
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
    auto* given = static_cast<ThreadStart*>(argument);
    const ThreadStart start = *given;
    VN_ASSERT(start.mark.isSet());
    given->mark.clear();
    free(given);
    blockSignalsForMainThread();
    vn_SetFPUControlWord();
    start.function(start.argument);
    return nullptr;
}

[[gnu::noinline]] uint64_t numberThisThread() {
    const ForkSafeLock lock(threadCounterIdMutex, counterLock);
    const uint64_t number = ++threadCounter;
    VN_ASSERT(number != 0);  // 0 is an empty slot
    vn_ThreadLocal_set(&threadCounterId, reinterpret_cast<void*>(number));
    return number;
}

timespec toTimespec(uint64_t milliseconds) {
    timespec time;
    time.tv_sec = static_cast<time_t>(milliseconds / 1000);
    time.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    VN_ASSERT(time.tv_nsec >= 0 && time.tv_nsec < 1'000'000'000);
    return time;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

void vn_threadInit(void) {
    initDone = true;
}

void vn_Mutex_init(vn_Mutex* mutex) {
    VN_ASSERT(mutex != nullptr);
    checkError(pthread_mutex_init(mutex, nullptr), "pthread_mutex_init");
}

void vn_Mutex_destroy(vn_Mutex* mutex) {
    VN_ASSERT(mutex != nullptr);
    checkError(pthread_mutex_destroy(mutex), "pthread_mutex_destroy");
}

void vn_Mutex_lock(vn_Mutex* mutex) {
    VN_ASSERT(mutex != nullptr);
    checkError(pthread_mutex_lock(mutex), "pthread_mutex_lock");
}

void vn_Mutex_unlock(vn_Mutex* mutex) {
    VN_ASSERT(mutex != nullptr);
    checkError(pthread_mutex_unlock(mutex), "pthread_mutex_unlock");
}

void vn_Condition_init(vn_Condition* condition) {
    requireInitialisation();
    checkError(pthread_cond_init(condition, nullptr), "pthread_cond_init");
}

void vn_Condition_destroy(vn_Condition* condition) {
    VN_ASSERT(condition != nullptr);
    checkError(pthread_cond_destroy(condition), "pthread_cond_destroy");
}

void vn_Condition_wait(vn_Condition* condition, vn_Mutex* mutex) {
    VN_ASSERT(condition != nullptr && mutex != nullptr);
    checkError(pthread_cond_wait(condition, mutex), "pthread_cond_wait");
}

bool vn_Condition_timedwait(vn_Condition* condition, vn_Mutex* mutex, uint64_t deadline) {
    const timespec time = toTimespec(deadline);
    return pthread_cond_timedwait(condition, mutex, &time) == 0;
}

void vn_Condition_signal(vn_Condition* condition) {
    VN_ASSERT(condition != nullptr);
    checkError(pthread_cond_signal(condition), "pthread_cond_signal");
}

void vn_Condition_broadcast(vn_Condition* condition) {
    VN_ASSERT(condition != nullptr);
    checkError(pthread_cond_broadcast(condition), "pthread_cond_broadcast");
}

void vn_Semaphore_init(vn_Semaphore* semaphore, uint32_t initialCount) {
    requireInitialisation();
    checkError(sem_init(semaphore, 0, initialCount), "sem_init");
}

void vn_Semaphore_destroy(vn_Semaphore* semaphore) {
    VN_ASSERT(semaphore != nullptr);
    checkError(sem_destroy(semaphore), "sem_destroy");
}

void vn_Semaphore_post(vn_Semaphore* semaphore) {
    VN_ASSERT(semaphore != nullptr);
    checkError(sem_post(semaphore), "sem_post");
}

void vn_Semaphore_wait(vn_Semaphore* semaphore) {
    VN_ASSERT(semaphore != nullptr);
    while (sem_wait(semaphore) != 0) {
        if (errno != EINTR) {
            checkError(-1, "sem_wait");
        }
    }
}

bool vn_Semaphore_trywait(vn_Semaphore* semaphore) {
    VN_ASSERT(semaphore != nullptr);
    return sem_trywait(semaphore) != 0;
}

vn_ThreadId vn_createThread(vn_ThreadFunction function, void* argument, bool detached) {
    // Compat: allocates before the initialisation test, which may abort; the order is observable.
    auto* start = static_cast<ThreadStart*>(malloc(sizeof(ThreadStart)));
    requireInitialisation();
    vn_checkMemory(start);
    VN_ASSERT(function != nullptr);
    *start = {function, argument};

    pthread_attr_t attributes{};  // all zero: usable defaults if the call below fails
    checkError(pthread_attr_init(&attributes), "pthread_attr_init");
    if (detached) {
        checkError(pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED),
                   "pthread_attr_setdetachstate");
    }
    vn_ThreadId thread{};
    const int result = pthread_create(&thread, &attributes, threadMain, start);
    checkError(result, "pthread_create");  // before free(), which may change the reported errno
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
    VN_ASSERT(slot != nullptr);
    checkError(pthread_key_create(slot, destructor), "pthread_key_create");
}

void vn_ThreadLocal_destroy(vn_ThreadLocal* slot) {
    checkError(pthread_key_delete(*slot), "pthread_key_delete");
}

void* vn_ThreadLocal_get(vn_ThreadLocal* slot) {
    VN_ASSERT(slot != nullptr);
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
