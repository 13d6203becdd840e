// Failed system calls that cannot be provoked: the linker redirects the library's calls to the
// wrappers here, which fail on request.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <vncommon/threads.h>

#include "support/child_process.h"

namespace {

const char* failing = "";  // name of the call that fails
int failure = 0;           // its result
int semWaitErrors[] = {EINTR, EINVAL, EINTR, EINTR, EINVAL};
size_t semWaitCalls = sizeof semWaitErrors / sizeof *semWaitErrors;  // after these: the real call
int attributesDestroyed = 0;
bool mallocFails = false;
int mallocCalls = 0;

}  // namespace

// A wrapper that passes the call on unless it must fail.
#define FAILING_CALL(name, parameters, arguments)                               \
    extern "C" int __real_##name parameters;                                    \
    extern "C" int __wrap_##name parameters;                                    \
    extern "C" int __wrap_##name parameters {                                   \
        return strcmp(failing, #name) == 0 ? failure : __real_##name arguments; \
    }

FAILING_CALL(pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
             (mutex, attributes))
FAILING_CALL(pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
FAILING_CALL(pthread_cond_init, (pthread_cond_t * condition, const pthread_condattr_t* attributes),
             (condition, attributes))
FAILING_CALL(pthread_cond_destroy, (pthread_cond_t * condition), (condition))
FAILING_CALL(pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
             (condition, mutex))
FAILING_CALL(pthread_cond_signal, (pthread_cond_t * condition), (condition))
FAILING_CALL(pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
FAILING_CALL(sem_destroy, (sem_t * semaphore), (semaphore))
FAILING_CALL(pthread_attr_init, (pthread_attr_t * attributes), (attributes))
FAILING_CALL(pthread_attr_setdetachstate, (pthread_attr_t * attributes, int state),
             (attributes, state))
FAILING_CALL(pthread_create,
             (pthread_t * thread, const pthread_attr_t* attributes, void* (*function)(void*),
              void* argument),
             (thread, attributes, function, argument))

extern "C" int __real_pthread_attr_destroy(pthread_attr_t* attributes);
extern "C" int __wrap_pthread_attr_destroy(pthread_attr_t* attributes);
extern "C" int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
    ++attributesDestroyed;
    __real_pthread_attr_destroy(attributes);
    return EINVAL;  // callers do not check it
}

extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) {
    ++mallocCalls;
    return mallocFails ? nullptr : __real_malloc(size);
}

// A host's allocator may change errno in free(); the C library's does not.
extern "C" void __real_free(void* block);
extern "C" void __wrap_free(void* block);
extern "C" void __wrap_free(void* block) {
    __real_free(block);
    errno = EBUSY;
}

extern "C" int __real_sem_wait(sem_t* semaphore);
extern "C" int __wrap_sem_wait(sem_t* semaphore);
extern "C" int __wrap_sem_wait(sem_t* semaphore) {
    if (semWaitCalls < sizeof semWaitErrors / sizeof *semWaitErrors) {
        errno = semWaitErrors[semWaitCalls++];
        return -1;
    }
    return __real_sem_wait(semaphore);
}

namespace {

void* countRun(void* counter) {
    ++*static_cast<int*>(counter);
    return nullptr;
}

// Makes the named call fail once, through the operation that uses it.
void use(const std::string& call) {
    vn_Mutex mutex = PTHREAD_MUTEX_INITIALIZER;
    vn_Condition condition = PTHREAD_COND_INITIALIZER;
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 0);
    failing = call.c_str();
    errno = ENOENT;
    if (call == "pthread_mutex_init") {
        vn_Mutex_init(&mutex);
    } else if (call == "pthread_mutex_destroy") {
        vn_Mutex_destroy(&mutex);
    } else if (call == "pthread_cond_init") {
        vn_Condition_init(&condition);
    } else if (call == "pthread_cond_destroy") {
        vn_Condition_destroy(&condition);
    } else if (call == "pthread_cond_wait") {
        vn_Condition_wait(&condition, &mutex);
    } else if (call == "pthread_cond_signal") {
        vn_Condition_signal(&condition);
    } else if (call == "pthread_cond_broadcast") {
        vn_Condition_broadcast(&condition);
    } else if (call == "sem_destroy") {
        vn_Semaphore_destroy(&semaphore);
    }
    failing = "";
}

VN_CHILD(failingCall) {
    vn_threadInit();
    failure = atoi(arguments[1].c_str());
    use(arguments[0]);
    return 9;
}

std::string reportOf(const std::string& call, const std::string& code) {
    return "Fatal error: System call " + call +
           " failed\n(strerror(errno)=No such file or directory)\n(strerror(errcode)=" + code +
           ")\n";
}

ChildResult run(const std::string& name, ChildArguments arguments = {}) {
    return runChild(name, {.environment = {{"LC_ALL", "C"}, {"VN_ABORT_ON_OOM", std::nullopt}},
                           .arguments = std::move(arguments)});
}

TEST(FailingCalls, AreReportedUnderTheirNames) {
    for (const char* call : {"pthread_mutex_init", "pthread_mutex_destroy", "pthread_cond_init",
                             "pthread_cond_destroy", "pthread_cond_wait", "pthread_cond_signal",
                             "pthread_cond_broadcast"}) {
        const ChildResult child = run("failingCall", {call, "22"});
        EXPECT_EQ(child.exitStatus, 9) << call;
        EXPECT_EQ(child.err, reportOf(call, "Invalid argument"));
    }
    EXPECT_EQ(run("failingCall", {"sem_destroy", "-1"}).err,
              reportOf("sem_destroy", "An unknown error (-1) occurred"));
}

// ---- Thread creation -------------------------------------------------------------------------

VN_CHILD(failingCreation) {
    vn_threadInit();
    failing = arguments[0].c_str();
    failure = atoi(arguments[1].c_str());
    const bool detached = arguments[0] == "pthread_attr_setdetachstate";
    int runs = 0;
    errno = ENOENT;
    const vn_ThreadId thread = vn_createThread(countRun, &runs, detached);
    failing = "";
    const bool created = arguments[0] != "pthread_create";
    if (created) {
        vn_joinThread(thread);  // the attribute was not set, so it can be joined
    }
    return runs == (created ? 1 : 0) && attributesDestroyed == 1 ? 9 : 1;
}

TEST(FailingCreation, IsReportedAndSurvived) {
    const struct {
        const char* call;
        const char* code;
        const char* text;
    } cases[] = {{"pthread_create", "22", "Invalid argument"},
                 {"pthread_create", "1", "Operation not permitted"},
                 {"pthread_attr_init", "12", "Cannot allocate memory"},
                 {"pthread_attr_setdetachstate", "22", "Invalid argument"},
                 {"pthread_attr_setdetachstate", "11", "Resource temporarily unavailable"}};
    for (const auto& [call, code, text] : cases) {
        const ChildResult child = run("failingCreation", {call, code});
        EXPECT_EQ(child.exitStatus, 9) << call << code;
        EXPECT_EQ(child.err, reportOf(call, text));
    }
}

TEST(FailingCreation, ForLackOfResourcesEndsOutOfMemory) {
    const struct {
        const char* code;
        const char* text;
    } cases[] = {{"11", "Resource temporarily unavailable"}, {"12", "Cannot allocate memory"}};
    for (const auto& [code, text] : cases) {
        const ChildResult child = run("failingCreation", {"pthread_create", code});
        EXPECT_EQ(child.exitStatus, 1);
        const std::string start = reportOf("pthread_create", text) +
                                  "This process is out of memory... exiting\nmemory used: vm=";
        EXPECT_EQ(child.err.substr(0, start.size()), start);
    }
}

// The order is fixed: allocate, then check that vn_threadInit was called, then check the memory.
VN_CHILD(creationWithoutMemory) {
    if (arguments[0] == "initialised") {
        vn_threadInit();
    }
    signal(SIGABRT, [](int) { _exit(mallocCalls); });
    mallocFails = true;
    mallocCalls = 0;
    vn_createThread(countRun, nullptr, false);
    return 0;
}

TEST(FailingCreation, AllocatesThenTestsForInitialisationThenForMemory) {
    const ChildResult uninitialised = run("creationWithoutMemory", {"uninitialised"});
    EXPECT_EQ(uninitialised.exitStatus, 1) << "allocated once before the end";
    EXPECT_EQ(uninitialised.err, "C threading library used without first being initialised\n");
    const ChildResult initialised = run("creationWithoutMemory", {"initialised"});
    EXPECT_EQ(initialised.exitStatus, 1);
    EXPECT_EQ(initialised.err,
              "Fatal error: malloc or similar returned null - this suggests the process has run "
              "out of memory\n");
}

// ---- Semaphore wait --------------------------------------------------------------------------

VN_CHILD(failingSemaphoreWait) {
    vn_threadInit();
    vn_Semaphore semaphore;
    vn_Semaphore_init(&semaphore, 1);
    semWaitCalls = 0;
    vn_Semaphore_wait(&semaphore);
    return vn_Semaphore_trywait(&semaphore) ? 9 : 1;
}

TEST(FailingSemaphoreWait, ReportsEachFailureButInterruptionsAndGoesOn) {
    const ChildResult child = run("failingSemaphoreWait");
    EXPECT_EQ(child.exitStatus, 9);
    const std::string report =
        "Fatal error: System call sem_wait failed\n(strerror(errno)=Invalid argument)\n"
        "(strerror(errcode)=An unknown error (-1) occurred)\n";
    EXPECT_EQ(child.err, report + report);
}

}  // namespace
