// Threads that are to be cancelled. When one meets a fatal error, it ends the process all the same:
// the report that it writes first does not end the thread instead. When one reports a failed call,
// it goes on, because it may hold a lock. When one waits, only this thread ends.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <string>

#include <vncommon/failure.h>
#include <vncommon/threads.h>
#include <vncommon/vncommon.hpp>

#include "support/child_process.h"

namespace {

constexpr int processGoesOn = 77;

struct FatalEnd {
    const char* name;
    void (*call)();
    int exitStatus;
    int signal;
    const char* err;  // its beginning
};

// Not write(), which is a cancellation point itself.
void reportCallBack() {
    syscall(SYS_write, STDERR_FILENO, "callback\n", 9);
}

constexpr FatalEnd fatalEnds[] = {
    {"vn_immediateExit", [] { vn_immediateExit(3); }, 3, 0, ""},
    {"vn_outOfMemory",
     [] {
         vn_setOutOfMemoryCallBack(reportCallBack);
         vn_outOfMemory();
     },
     1, 0, "This process is out of memory... exiting\ncallback\nmemory used: vm="},
    {"vn_checkMemory", [] { vn_checkMemory(nullptr); }, -1, SIGABRT,
     "Fatal error: malloc or similar returned null"},
    {"vn_checkError", [] { vn_checkError(5, "reading"); }, -1, SIGABRT,
     "Fatal error: Call failed with code 5: reading\n"},
    {"vn_strerror",
     [] {
         char small[1];
         vn_strerror(small, sizeof small, 5);
     },
     -1, SIGABRT, "Fatal error: error message buffer too small\n"},
    {"vn_Condition_init",
     [] {
         vn_Condition condition;
         vn_Condition_init(&condition);
     },
     -1, SIGABRT, "C threading library used without first being initialised\n"},
};

void* callWithCancellationPending(void* fatalEnd) {
    pthread_cancel(pthread_self());
    static_cast<const FatalEnd*>(fatalEnd)->call();
    return nullptr;
}

bool wentOn = false;

void* failWithCancellationPending(void*) {
    pthread_cancel(pthread_self());
    vn_Semaphore tooMany;
    vn_Semaphore_init(&tooMany, UINT32_MAX);
    wentOn = true;
    return nullptr;
}

// The waits of the C++ header.
using Wait = void (*)();
constexpr Wait waits[] = {
    [] {
        vn::queue<int> empty;
        empty.pop();
    },
    [] {
        vn::semaphore none;
        none.wait();
    },
    [] {
        vn::mutex mutex;
        vn::condition never;
        const std::lock_guard<vn::mutex> held(mutex);
        never.wait(mutex, [] { return false; });
    },
};

void* waitWithCancellationPending(void* wait) {
    pthread_cancel(pthread_self());
    (*static_cast<const Wait*>(wait))();
    return nullptr;
}

}  // namespace

VN_CHILD(cancelledThreadMeetsAFatalError) {
    printf("written before");  // kept by the stream until it is flushed
    FatalEnd fatalEnd = fatalEnds[std::stoul(arguments[0])];
    pthread_t thread;
    pthread_create(&thread, nullptr, callWithCancellationPending, &fatalEnd);
    pthread_join(thread, nullptr);
    _exit(processGoesOn);
}

TEST(Cancellation, DoesNotKeepAFatalErrorFromEndingTheProcess) {
    for (size_t i = 0; i < std::size(fatalEnds); ++i) {
        const FatalEnd& expected = fatalEnds[i];
        const ChildResult child =
            runChild("cancelledThreadMeetsAFatalError", {.arguments = {std::to_string(i)}});
        EXPECT_EQ(child.exitStatus, expected.exitStatus) << expected.name;
        EXPECT_EQ(child.signal, expected.signal) << expected.name;
        if (expected.signal == 0) {
            EXPECT_EQ(child.out, "written before") << expected.name;
        }
        EXPECT_EQ(child.err.rfind(expected.err, 0), 0U) << expected.name << ": " << child.err;
    }
}

VN_CHILD(cancelledThreadReportsAFailure) {
    vn_threadInit();
    pthread_t thread;
    pthread_create(&thread, nullptr, failWithCancellationPending, nullptr);
    pthread_join(thread, nullptr);
    return wentOn ? 0 : 1;
}

TEST(Cancellation, DoesNotInterruptTheReportOfAFailedCall) {
    const ChildResult child = runChild("cancelledThreadReportsAFailure");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err.rfind("Fatal error: System call sem_init failed\n(strerror(errno)=", 0), 0U)
        << child.err;
}

VN_CHILD(cancelledThreadWaits) {
    vn_threadInit();
    Wait wait = waits[std::stoul(arguments[0])];
    pthread_t thread;
    pthread_create(&thread, nullptr, waitWithCancellationPending, &wait);
    void* result = nullptr;
    pthread_join(thread, &result);
    return result == PTHREAD_CANCELED ? 0 : 1;
}

TEST(Cancellation, EndsAWaitingThreadAndNotTheProcess) {
    for (size_t i = 0; i < std::size(waits); ++i) {
        const ChildResult child =
            runChild("cancelledThreadWaits", {.arguments = {std::to_string(i)}});
        EXPECT_EQ(child.exitStatus, 0) << i;
        EXPECT_EQ(child.signal, 0) << i;
        EXPECT_EQ(child.err, "") << i;
    }
}
