// Threads and synchronisation as callers see them.
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <vncommon/failure.h>
#include <vncommon/threads.h>

#include "support/child_process.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::string notInitialised = "C threading library used without first being initialised\n";

// Runs body in a thread of the library; body must outlive the thread.
template <class Body>
vn_ThreadId start(Body& body) {
    const auto call = [](void* argument) -> void* {
        (*static_cast<Body*>(argument))();
        return argument;
    };
    return vn_createThread(call, &body, false);
}

template <class Body>
void* inThread(Body body) {
    return vn_joinThread(start(body));
}

class Threads : public testing::Test {
  protected:
    static void SetUpTestSuite() { vn_threadInit(); }
};

std::string failureReport(const std::string& call, const std::string& code,
                          const std::string& ofErrno = "Success") {
    return "Fatal error: System call " + call + " failed\n(strerror(errno)=" + ofErrno +
           ")\n(strerror(errcode)=" + code + ")\n";
}

// These tests misuse mutexes; the sanitizer must not report it.
ChildResult run(const std::string& name, ChildArguments arguments = {}) {
    return runChild(name,
                    {.environment = {{"LC_ALL", "C"}, {"TSAN_OPTIONS", "report_mutex_bugs=0"}},
                     .arguments = std::move(arguments)});
}

// ---- Initialisation --------------------------------------------------------------------------

void* doNothing(void*) {
    return nullptr;
}

VN_CHILD(uninitialised) {
    vn_Condition condition;
    vn_Semaphore semaphore;
    if (arguments[0] == "condition") {
        vn_Condition_init(&condition);
    } else if (arguments[0] == "semaphore") {
        vn_Semaphore_init(&semaphore, 0);
    } else {
        vn_createThread(doNothing, nullptr, false);
    }
    return 0;
}

TEST(ThreadInit, IsRequiredByConditionsSemaphoresAndThreads) {
    for (const char* kind : {"condition", "semaphore", "thread"}) {
        const ChildResult child = run("uninitialised", {kind});
        EXPECT_EQ(child.signal, SIGABRT) << kind;
        EXPECT_EQ(child.err, notInitialised);
    }
}

VN_CHILD(needsNoInitialisation) {
    vn_Mutex mutex;
    vn_Mutex_init(&mutex);
    vn_Mutex_lock(&mutex);
    vn_Mutex_unlock(&mutex);
    vn_Mutex_destroy(&mutex);
    vn_ThreadLocal slot;
    vn_ThreadLocal_init(&slot, nullptr);
    vn_ThreadLocal_set(&slot, &mutex);
    const bool kept = vn_ThreadLocal_get(&slot) == &mutex;
    vn_ThreadLocal_destroy(&slot);
    vn_reportLoggerFD();
    vn_sleep(0);
    return kept && vn_getCountedThreadId() == 1 ? 0 : 1;
}

TEST(ThreadInit, IsNotRequiredByMutexesAndSlots) {
    const ChildResult child = run("needsNoInitialisation");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");  // at unload, too
}

// ---- Mutexes ---------------------------------------------------------------------------------

TEST_F(Threads, MutexExcludes) {
    vn_Mutex mutex;
    vn_Mutex_init(&mutex);
    int counter = 0;
    auto countUp = [&] {
        for (int i = 0; i < 10000; ++i) {
            vn_Mutex_lock(&mutex);
            ++counter;
            vn_Mutex_unlock(&mutex);
        }
    };
    std::vector<vn_ThreadId> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(start(countUp));
    }
    for (const vn_ThreadId thread : threads) {
        vn_joinThread(thread);
    }
    EXPECT_EQ(counter, 40000);
    vn_Mutex_destroy(&mutex);
}

// ---- Failures that the system itself reports --------------------------------------------------

VN_CHILD(mutexFailures) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    vn_Mutex mutex;
    pthread_mutex_init(&mutex, &attributes);
    errno = 0;
    vn_Mutex_unlock(&mutex);
    vn_Mutex_lock(&mutex);
    vn_Mutex_lock(&mutex);
    vn_Mutex_unlock(&mutex);
    return 0;
}

// A thread joins itself. It is not the main thread: g++ 14's AddressSanitizer ends a process that
// joins a thread whose creation it did not see.
VN_CHILD(joinFailures) {
    vn_threadInit();
    vn_createThread(
        [](void*) -> void* {
            errno = 0;
            _exit(vn_joinThread(vn_getThreadID()) == nullptr ? 0 : 1);
        },
        nullptr, false);
    for (;;) {
        pause();
    }
}

VN_CHILD(semaphoreFailures) {
    vn_threadInit();
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, SEM_VALUE_MAX);
    vn_Semaphore_post(&semaphore);
    vn_Semaphore_destroy(&semaphore);
    vn_Semaphore_init(&semaphore, static_cast<uint32_t>(SEM_VALUE_MAX) + 1);
    return 0;
}

VN_CHILD(slotFailures) {
    vn_ThreadLocal slot;
    vn_ThreadLocal_init(&slot, nullptr);
    vn_ThreadLocal_destroy(&slot);
    errno = 0;
    vn_ThreadLocal_set(&slot, &slot);
    vn_ThreadLocal_destroy(&slot);
    while (pthread_key_create(&slot, nullptr) == 0) {
    }
    errno = 0;
    vn_ThreadLocal_init(&slot, nullptr);
    return 0;
}

TEST(ThreadFailures, AreReportedAndSurvived) {
    const std::string unknown = "An unknown error (-1) occurred";
    const struct {
        const char* child;
        std::string report;
    } cases[] = {
        {"mutexFailures", failureReport("pthread_mutex_unlock", "Operation not permitted") +
                              failureReport("pthread_mutex_lock", "Resource deadlock avoided")},
        {"joinFailures", failureReport("pthread_join", "Resource deadlock avoided")},
        {"semaphoreFailures",
         failureReport("sem_post", unknown, "Value too large for defined data type") +
             failureReport("sem_init", unknown, "Invalid argument")},
        {"slotFailures",
         failureReport("pthread_setspecific", "Invalid argument") +
             failureReport("pthread_key_delete", "Invalid argument") +
             failureReport("pthread_key_create", "Resource temporarily unavailable")},
    };
    for (const auto& [child, report] : cases) {
        const ChildResult result = run(child);
        EXPECT_EQ(result.exitStatus, 0) << child;
        EXPECT_EQ(result.err, report);
    }
}

// ---- Conditions ------------------------------------------------------------------------------

// A flag under a mutex and a condition.
struct Gate {
    Gate() {
        vn_Mutex_init(&mutex);
        vn_Condition_init(&condition);
    }
    ~Gate() {
        vn_Condition_destroy(&condition);
        vn_Mutex_destroy(&mutex);
    }

    void open(bool forAll) {
        vn_Mutex_lock(&mutex);
        isOpen = true;
        if (forAll) {
            vn_Condition_broadcast(&condition);
        } else {
            vn_Condition_signal(&condition);
        }
        vn_Mutex_unlock(&mutex);
    }

    void pass() {
        vn_Mutex_lock(&mutex);
        while (!isOpen) {
            vn_Condition_wait(&condition, &mutex);
        }
        vn_Mutex_unlock(&mutex);
    }

    // Returns whether the gate opened before the deadline.
    bool passBefore(uint64_t deadline) {
        vn_Mutex_lock(&mutex);
        bool inTime = true;
        while (!isOpen && inTime) {
            inTime = vn_Condition_timedwait(&condition, &mutex, deadline);
        }
        const bool passed = isOpen;
        vn_Mutex_unlock(&mutex);
        return passed;
    }

    vn_Mutex mutex;
    vn_Condition condition;
    bool isOpen = false;
};

void* passGate(void* gate) {
    static_cast<Gate*>(gate)->pass();
    return nullptr;
}

TEST_F(Threads, SignalWakesAWaiter) {
    Gate gate;
    const vn_ThreadId waiter = vn_createThread(passGate, &gate, false);
    gate.open(false);
    EXPECT_EQ(vn_joinThread(waiter), nullptr);
}

TEST_F(Threads, BroadcastWakesAllWaiters) {
    Gate gate;
    std::vector<vn_ThreadId> waiters;
    for (int i = 0; i < 5; ++i) {
        waiters.push_back(vn_createThread(passGate, &gate, false));
    }
    vn_sleep(20);
    gate.open(true);
    for (const vn_ThreadId waiter : waiters) {
        vn_joinThread(waiter);
    }
}

TEST_F(Threads, TimedWaitIsTrueWhenWoken) {
    Gate gate;
    vn_Mutex_lock(&gate.mutex);
    auto wake = [&] { gate.open(false); };
    const vn_ThreadId waker = start(wake);
    while (!gate.isOpen) {
        EXPECT_TRUE(vn_Condition_timedwait(&gate.condition, &gate.mutex, vn_systime() + 60000));
    }
    vn_Mutex_unlock(&gate.mutex);
    vn_joinThread(waker);
}

TEST_F(Threads, TimedWaitIsFalseForPastDeadlines) {
    Gate gate;
    const uint64_t now = vn_systime();
    for (const uint64_t deadline : {uint64_t{0}, uint64_t{999}, now - 1, now}) {
        vn_Mutex_lock(&gate.mutex);
        EXPECT_FALSE(vn_Condition_timedwait(&gate.condition, &gate.mutex, deadline));
        vn_Mutex_unlock(&gate.mutex);
    }
}

TEST_F(Threads, TimedWaitLastsToTheDeadlineInMilliseconds) {
    Gate gate;
    for (const uint64_t wait : {50U, 51U, 130U}) {
        const uint64_t deadline = vn_systime() + wait;
        EXPECT_FALSE(gate.passBefore(deadline));
        EXPECT_GE(vn_systime(), deadline);
    }
}

VN_CHILD(timedWaitFailure) {
    vn_threadInit();
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    vn_Mutex mutex;
    pthread_mutex_init(&mutex, &attributes);
    vn_Condition condition;
    vn_Condition_init(&condition);
    // The caller does not hold the mutex.
    return vn_Condition_timedwait(&condition, &mutex, vn_systime() + 60000) ? 1 : 0;
}

TEST(ThreadFailures, TimedWaitReportsNothing) {
    const ChildResult child = run("timedWaitFailure");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

// ---- Semaphores ------------------------------------------------------------------------------

TEST_F(Threads, TrywaitIsTrueWhenNotTaken) {
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 0);
    EXPECT_TRUE(vn_Semaphore_trywait(&semaphore));
    vn_Semaphore_post(&semaphore);
    EXPECT_FALSE(vn_Semaphore_trywait(&semaphore));
    EXPECT_TRUE(vn_Semaphore_trywait(&semaphore));
    vn_Semaphore_destroy(&semaphore);
}

TEST_F(Threads, SemaphoreCounts) {
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 3);
    vn_Semaphore_post(&semaphore);
    for (int i = 0; i < 4; ++i) {
        vn_Semaphore_wait(&semaphore);
    }
    EXPECT_TRUE(vn_Semaphore_trywait(&semaphore));
    vn_Semaphore_destroy(&semaphore);
}

TEST_F(Threads, SemaphoreWaitsForPost) {
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 0);
    std::atomic<bool> posted{false};
    auto post = [&] {
        vn_sleep(30);
        posted = true;
        vn_Semaphore_post(&semaphore);
    };
    const vn_ThreadId poster = start(post);
    vn_Semaphore_wait(&semaphore);
    EXPECT_TRUE(posted);
    vn_joinThread(poster);
    vn_Semaphore_destroy(&semaphore);
}

// ---- Signals ---------------------------------------------------------------------------------

std::atomic<int> alarms{0};

void startAlarms() {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++alarms; };  // without SA_RESTART: system calls fail
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every10ms = {{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &every10ms, nullptr);
}

// Prints the shortest time of a sleep. Alarms that come while the thread waits for a processor
// count once.
VN_CHILD(sleepThroughSignals) {
    startAlarms();
    Clock::duration shortest = Clock::duration::max();
    do {
        const auto start = Clock::now();
        vn_sleep(static_cast<uint32_t>(atoi(arguments[0].c_str())));
        shortest = std::min(shortest, Clock::now() - start);
    } while (alarms < 3);
    printf("%ld", std::chrono::duration_cast<milliseconds>(shortest).count());
    return 0;
}

TEST(Sleep, LastsItsTimeWhateverInterrupts) {
    for (const int duration : {300, 1500}) {
        const ChildResult child = run("sleepThroughSignals", {std::to_string(duration)});
        EXPECT_EQ(child.exitStatus, 0);
        EXPECT_GE(atol(child.out.c_str()), duration);
        EXPECT_EQ(child.err, "");
    }
}

VN_CHILD(waitThroughSignals) {
    vn_threadInit();
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 0);
    auto post = [&] {
        while (alarms < 5) {
            usleep(1000);
        }
        vn_Semaphore_post(&semaphore);
    };
    // Only this thread receives the alarms: the other one is created with them blocked.
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    const vn_ThreadId poster = start(post);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    startAlarms();
    vn_Semaphore_wait(&semaphore);
    vn_joinThread(poster);
    return vn_Semaphore_trywait(&semaphore) ? 0 : 1;
}

TEST(SemaphoreWait, RetriesInterruptionsSilently) {
    const ChildResult child = run("waitThroughSignals");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

std::set<int> blockedSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    std::set<int> blocked;
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&mask, number) == 1) {
            blocked.insert(number);
        }
    }
    return blocked;
}

TEST_F(Threads, BlockInterruptAndHangup) {
    const std::set<int> before = blockedSignals();
    std::set<int> inside;
    inThread([&] { inside = blockedSignals(); });
    std::set<int> expected = before;
    expected.insert({SIGINT, SIGHUP});
    EXPECT_EQ(inside, expected);
    EXPECT_FALSE(before.contains(SIGHUP));
    EXPECT_EQ(blockedSignals(), before);  // the creator's mask stays
}

TEST_F(Threads, InheritTheCreatorsOtherBlockedSignals) {
    sigset_t user;
    sigset_t previous;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, &previous);
    std::set<int> inside;
    inThread([&] { inside = blockedSignals(); });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    EXPECT_TRUE(inside.contains(SIGUSR1));
}

// ---- Threads ---------------------------------------------------------------------------------

TEST_F(Threads, JoiningYieldsNullWhateverTheFunctionReturned) {
    bool ran = false;
    EXPECT_EQ(inThread([&] { ran = true; }), nullptr);
    EXPECT_TRUE(ran);
}

TEST_F(Threads, JoiningYieldsTheValueOfAnExplicitExit) {
    int value = 0;
    const auto leave = [](void* argument) -> void* { pthread_exit(argument); };
    EXPECT_EQ(vn_joinThread(vn_createThread(leave, &value, false)), &value);
}

TEST_F(Threads, HaveTheIdThatCreationReturned) {
    vn_ThreadId inside{};
    auto tell = [&] { inside = vn_getThreadID(); };
    const vn_ThreadId thread = start(tell);
    vn_joinThread(thread);
    EXPECT_TRUE(pthread_equal(inside, thread));
    EXPECT_TRUE(pthread_equal(vn_getThreadID(), pthread_self()));
}

int ownDetachState() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    int state = -1;
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    return state;
}

TEST_F(Threads, AreDetachedOnlyWhenAsked) {
    int state = -1;
    inThread([&] { state = ownDetachState(); });
    EXPECT_EQ(state, PTHREAD_CREATE_JOINABLE);

    struct Detached {
        vn_Semaphore done;
        int state = -1;
    } detached;
    vn_Semaphore_init(&detached.done, 0);
    const auto tell = [](void* argument) -> void* {
        static_cast<Detached*>(argument)->state = ownDetachState();
        vn_Semaphore_post(&static_cast<Detached*>(argument)->done);
        return nullptr;
    };
    vn_createThread(tell, &detached, true);
    vn_Semaphore_wait(&detached.done);
    EXPECT_EQ(detached.state, PTHREAD_CREATE_DETACHED);
    vn_Semaphore_destroy(&detached.done);
}

// ---- Thread-local slots ------------------------------------------------------------------------

TEST_F(Threads, SlotsBelongToTheirThread) {
    vn_ThreadLocal slot;
    vn_ThreadLocal_init(&slot, nullptr);
    EXPECT_EQ(vn_ThreadLocal_get(&slot), nullptr);
    int here = 0;
    vn_ThreadLocal_set(&slot, &here);
    inThread([&] {
        EXPECT_EQ(vn_ThreadLocal_get(&slot), nullptr);
        int there = 0;
        vn_ThreadLocal_set(&slot, &there);
        EXPECT_EQ(vn_ThreadLocal_get(&slot), &there);
    });
    EXPECT_EQ(vn_ThreadLocal_get(&slot), &here);
    vn_ThreadLocal_set(&slot, nullptr);
    EXPECT_EQ(vn_ThreadLocal_get(&slot), nullptr);
    vn_ThreadLocal_destroy(&slot);
}

TEST_F(Threads, SlotDestructorsGetTheValueAtTheThreadsEnd) {
    vn_ThreadLocal slot;
    vn_ThreadLocal_init(&slot, [](void* value) { ++*static_cast<int*>(value); });
    int destroyed = 0;
    inThread([&] { vn_ThreadLocal_set(&slot, &destroyed); });
    EXPECT_EQ(destroyed, 1);
    inThread([&] { vn_ThreadLocal_set(&slot, nullptr); });
    inThread([] {});
    EXPECT_EQ(destroyed, 1);
    vn_ThreadLocal_destroy(&slot);
}

// ---- Counted thread ids ------------------------------------------------------------------------

VN_CHILD(countThreads) {
    vn_threadInit();
    bool asExpected = vn_getCountedThreadId() == 1;
    for (uint64_t expected = 2; expected < 6; ++expected) {
        uint64_t first = 0;
        uint64_t again = 0;
        inThread([&] {
            first = vn_getCountedThreadId();
            again = vn_getCountedThreadId();
        });
        asExpected = asExpected && first == expected && again == expected;
        inThread([] {});  // never requests an id, so it gets none
    }
    return asExpected && vn_getCountedThreadId() == 1 ? 0 : 1;
}

TEST(CountedThreadId, IsDenseInTheOrderOfAskingAndNeverReused) {
    EXPECT_EQ(run("countThreads").exitStatus, 0);
}

VN_CHILD(countRacingThreads) {
    vn_threadInit();
    constexpr size_t count = 16;
    static uint64_t numbers[count];
    std::vector<vn_ThreadId> threads;
    for (uint64_t& number : numbers) {
        const auto ask = [](void* argument) -> void* {
            uint64_t& own = *static_cast<uint64_t*>(argument);
            own = vn_getCountedThreadId();
            for (int i = 0; i < 1000; ++i) {
                if (vn_getCountedThreadId() != own) {
                    own = 0;
                }
            }
            return nullptr;
        };
        threads.push_back(vn_createThread(ask, &number, false));
    }
    for (const vn_ThreadId thread : threads) {
        vn_joinThread(thread);
    }
    const std::set<uint64_t> distinct(numbers, numbers + count);
    return distinct.size() == count && *distinct.begin() == 1 && *distinct.rbegin() == count ? 0
                                                                                             : 1;
}

TEST(CountedThreadId, IsDenseWhenThreadsRace) {
    EXPECT_EQ(run("countRacingThreads").exitStatus, 0);
}

// ---- The interface itself ----------------------------------------------------------------------

static_assert(std::is_same_v<vn_Mutex, pthread_mutex_t>);
static_assert(std::is_same_v<vn_Condition, pthread_cond_t>);
static_assert(std::is_same_v<vn_Semaphore, sem_t>);
static_assert(std::is_same_v<vn_ThreadLocal, pthread_key_t>);
static_assert(std::is_same_v<vn_ThreadId, pthread_t>);
static_assert(std::is_same_v<decltype(&vn_sleep), void (*)(uint32_t)>);
static_assert(std::is_same_v<decltype(&vn_Semaphore_init), void (*)(vn_Semaphore*, uint32_t)>);
static_assert(std::is_same_v<decltype(&vn_Condition_timedwait),
                             bool (*)(vn_Condition*, vn_Mutex*, uint64_t)>);
static_assert(std::is_same_v<decltype(&vn_getCountedThreadId), uint64_t (*)()>);

}  // namespace
