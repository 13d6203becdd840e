// fork() while another thread holds one of the library's locks, and in a signal handler that
// interrupted the lock's holder. Also tests the state of the forking thread after fork().
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vncommon/numbers.h>
#include <vncommon/timestamp_set.h>
#include <vncommon/utf8.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/heap_count.h"

namespace {

constexpr unsigned hangSeconds = 300;

// Forks a child that exits with 0 if body returns true; returns its status. SIGALRM ends a hang.
int statusOfForked(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(hangSeconds);
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// This conversion uses blocks of the free lists and powers of five, which have a lock each.
bool convertLongNumber() {
    const std::string digits = "0." + std::string(17'000, '3') + "e5";
    char text[512];
    return vn_strtod(digits.c_str(), nullptr) == 33333.333333333336 &&
           vn_g_fmt_fixed(text, sizeof text, -1, 1e25) == text &&
           std::string(text) == "10000000000000000905969660";
}

VN_CHILD(locksOfAnotherThread) {
    std::promise<void> locked;
    std::promise<void> forked;
    std::thread holder([&] {
        acquireBallocLock();
        acquirep5Lock();
        locked.set_value();
        forked.get_future().wait();
        freep5Lock();
        freeBallocLock();
    });
    locked.get_future().wait();
    const int status = statusOfForked(convertLongNumber);
    forked.set_value();
    holder.join();
    EXPECT_TRUE(convertLongNumber()) << "in the parent, afterwards";
    return status == 0 && !testing::Test::HasFailure() ? 0 : 1;
}

TEST(ForkHoldingLocks, AnotherThreadsLocksAreFreeInTheChild) {
    const ChildResult child = runChild("locksOfAnotherThread");
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// The child's thread is a copy of the thread that forked, so it holds the same locks.
VN_CHILD(locksOfTheForkingThread) {
    acquireBallocLock();
    acquirep5Lock();
    const int status = statusOfForked(
        [] { return freep5Lock() == 0 && freeBallocLock() == 0 && convertLongNumber(); });
    freep5Lock();
    freeBallocLock();
    return status == 0 && convertLongNumber() ? 0 : 1;
}

TEST(ForkHoldingLocks, TheForkingThreadsLocksStayItsOwn) {
    const ChildResult child = runChild("locksOfTheForkingThread");
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

sigset_t currentMask() {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

bool isMask(const sigset_t& mask) {
    const sigset_t current = currentMask();
    for (int signal = 1; signal < NSIG; ++signal) {
        if (sigismember(&current, signal) != sigismember(&mask, signal)) {
            return false;
        }
    }
    return true;
}

// Threads with different signal masks fork and convert texts at the same time.
VN_CHILD(masksAcrossForks) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (const int blocked : {SIGUSR1, SIGUSR2, SIGHUP}) {
        threads.emplace_back([&wrong, blocked] {
            sigset_t mask;
            sigemptyset(&mask);
            sigaddset(&mask, blocked);
            pthread_sigmask(SIG_SETMASK, &mask, nullptr);
            for (int i = 0; i < 50; ++i) {
                free(vn_CstrToUTF8("text"));
                wrong += statusOfForked([&mask] { return isMask(mask); }) != 0;
                wrong += !isMask(mask);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return wrong == 0 ? 0 : 1;
}

TEST(ForkHoldingLocks, SignalMasksStayAsTheyAre) {
    const ChildResult child = runChild("masksAcrossForks");
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

constexpr int forksWanted = 100;
volatile sig_atomic_t forksMade = 0;
volatile sig_atomic_t inForkedChild = 0;

// The child, too, returns from the handler and continues the interrupted call.
void forkOnAlarm(int) {
    if (fork() == 0) {
        inForkedChild = 1;
        signal(SIGALRM, SIG_DFL);
        alarm(hangSeconds);
    } else {
        forksMade = forksMade + 1;
    }
}

// Not periodic: the interrupted code must make progress even if a fork takes longer than the
// period.
void setShortAlarm() {
    const itimerval once = {{0, 0}, {0, 700}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

void forkOnAlarmAgainAndAgain(int signal) {
    forkOnAlarm(signal);
    if (inForkedChild == 0 && forksMade < forksWanted) {
        setShortAlarm();
    }
}

bool useSets() {
    VN_TimestampSet* sets[] = {VN_TimestampSet_ctor(), VN_TimestampSet_ctor()};
    bool right = sets[0] != sets[1];
    for (uint64_t stage = 1; stage <= 12; ++stage) {
        VN_TimestampSet_addTime(sets[stage % 2], stage, 0.5);
    }
    right &= VN_TimestampSet_getSize(sets[0]) == 6 && VN_TimestampSet_getSize(sets[1]) == 6;
    for (VN_TimestampSet* set : sets) {
        right &= VN_TimestampSet_findTimeAndRemove(set, set == sets[0] ? 4 : 5) == 0.5;
        VN_TimestampSet_dtor(set);
    }
    return right;
}

int waitForChildren() {
    int failures = 0;
    int status = 0;
    while (wait(&status) > 0) {
        failures += status != 0;
        if (status != 0) {
            printf("a child ended with status %x\n", static_cast<unsigned>(status));
        }
    }
    return failures;
}

VN_CHILD(handlerForks) {
    struct sigaction action = {};
    action.sa_handler = forkOnAlarmAgainAndAgain;
    sigaction(SIGALRM, &action, nullptr);
    bool right = useSets();  // the pool is filled: no allocation from now on
    setShortAlarm();
    while (inForkedChild == 0 && forksMade < forksWanted) {
        right &= useSets();
    }
    if (inForkedChild != 0) {
        for (int i = 0; i < 100; ++i) {
            right &= useSets();
        }
        _exit(right ? 0 : 1);
    }
    return right && waitForChildren() == 0 ? 0 : 1;
}

// ThreadSanitizer's own fork() allocates, which it then reports in a handler.
#if defined(__SANITIZE_THREAD__)
constexpr bool handlersMayFork = false;
#else
constexpr bool handlersMayFork = true;
#endif

TEST(ForkHoldingLocks, AHandlerMayForkAnywhereInTheSets) {
    if (!handlersMayFork) {
        GTEST_SKIP() << "not under this sanitizer";
    }
    const ChildResult child =
        runChild("handlerForks", {.environment = {{"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << '\n' << child.out << child.err;
}

void forkAtFirstFree() {
    callAtFree(nullptr);
    raise(SIGALRM);
}

std::vector<VN_TimestampSet*> takeSets(uint64_t count, uint64_t stamps) {
    std::vector<VN_TimestampSet*> sets(count);
    for (VN_TimestampSet*& set : sets) {
        set = VN_TimestampSet_ctor();
        for (uint64_t stage = 1; stage <= stamps; ++stage) {
            VN_TimestampSet_addTime(set, stage, 0.5);
        }
    }
    return sets;
}

// When the last of 13 sets of ten entries is destroyed, the pool is full, and the entries are freed
// under the pool's lock. The handler forks at that moment.
VN_CHILD(handlerForksUnderTheLock) {
    signal(SIGALRM, forkOnAlarm);
    const std::vector<VN_TimestampSet*> sets = takeSets(13, 10);
    for (VN_TimestampSet* set : sets) {
        if (set == sets.back()) {
            callAtFree(forkAtFirstFree);
        }
        VN_TimestampSet_dtor(set);
    }
    EXPECT_EQ(forksMade + inForkedChild, 1);
    const HeapCount count;
    const std::vector<VN_TimestampSet*> again = takeSets(12, 10);
    EXPECT_EQ(count.allocations(), 1U) << "the vector; the pool is whole";
    std::for_each(again.begin(), again.end(), VN_TimestampSet_dtor);
    const bool right = !testing::Test::HasFailure();
    if (inForkedChild != 0) {
        fflush(stdout);
        _exit(right ? 0 : 1);
    }
    return waitForChildren() == 0 && right ? 0 : 1;
}

TEST(ForkHoldingLocks, WhatTheForkingThreadHoldsStaysWhole) {
    if (!handlersMayFork) {
        GTEST_SKIP() << "not under this sanitizer";
    }
    const ChildResult child =
        runChild("handlerForksUnderTheLock",
                 {.environment = {{"VN_ASSUME_CPUS", "1"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << '\n' << child.out << child.err;
}

}  // namespace
