// Registry of loggers and the SIGHUP handler that reopens them.
//
// Why the handler is safe whatever it interrupts:
//  - It takes loggerMutex, by rules that keep it from ever waiting for its own thread, directly
//    or through another one (registry_lock.h).
//  - What it needs was made before the signal: each logger's plan, with the path as the system
//    wants it, the failure report and the strings to swap in (reopening.h). It allocates and
//    frees nothing, and makes async-signal-safe calls only: pthread_sigmask, nanosleep, open,
//    dup2, close, tcgetattr, write. (pthread_setcancelstate, which POSIX does not list, sets a
//    field of the thread's own control block; strerrordesc_np reads a constant table.) The
//    library is linked with -z now, so no call is bound by the dynamic linker in the handler.
//  - It takes no logger's own mutex. A thread in the middle of a line may be writing to the very
//    descriptor that is being replaced: dup2() replaces it in one step, and fields of the logger
//    are read and written as atomics.
//  - Whoever adds, removes or redirects a logger does so under loggerMutex, with SIGHUP blocked
//    in its thread, so the handler sees each logger wholly registered or not at all, with a plan
//    that fits its destination.
//  - errno is put back as it was found.
//  - After fork(), the child's loggerMutex and loggers are usable: see "fork" below.
//  - The library is pinned in memory when the handler is installed: other code may keep the
//    handler's address for as long as the process lives. Nor is anything that it uses destroyed
//    at exit, so a SIGHUP during exit() finds everything in place.
#include "logging/logger_registry.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include <vncommon/failure.h>
#include <vncommon/vector.h>

#include "logging/registry_lock.h"
#include "logging/shared_field.h"

struct sigaction prevsighup;

using namespace vncommon;

namespace {

struct Registration {
    FileLogger* logger;
    ReopenPlan* plan;  // null while the logger has no named destination
};

constexpr uint32_t initialCapacity = 3;

// Of Registration; null before the first logger.
Vector* loggers VN_GUARDED_BY(loggerMutex) = nullptr;

int32_t loggerCompare(const void* element, const void* logger) {
    return static_cast<const Registration*>(element)->logger == logger ? 0 : 1;
}

Vector* makeVector(uint32_t capacity) {
    return vn_Vector_ctor(loggerCompare, nullptr, nullptr, capacity, 0);
}

Registration* registrationAt(uint32_t index) VN_REQUIRES(loggerMutex) {
    return static_cast<Registration*>(vn_Vector_get(loggers, index));
}

// ---- SIGHUP ----

// The signal that this thread is passing on, in case the code it goes to calls our handler back:
// code that took SIGHUP over after us does, and FileLogger_reinstallSignalHandler then makes it
// the one we pass on to. A call with the same context from deeper in the stack is such a call;
// a new signal after a longjmp out of the last one is not. Static TLS, because access to any
// other may allocate.
struct PassingOn {
    const void* context;
    const void* frame;
};
__attribute__((tls_model("initial-exec"))) thread_local PassingOn passingOn = {};

bool isBeingPassedOn(const void* context, const void* frame) {
    return passingOn.frame != nullptr && passingOn.context == context && frame < passingOn.frame;
}

bool isRealHandler(const struct sigaction& action) {
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

void passOn(const struct sigaction& action, int signal, siginfo_t* info, void* context) {
    if (!isRealHandler(action)) {
        return;
    }
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        action.sa_sigaction(signal, info, context);
    } else {
        action.sa_handler(signal);
    }
}

// Gives the disposition to pass the signal on to.
struct sigaction reopenAll() {
    const RegistryLock lock;
    const uint32_t count = loggers == nullptr ? 0 : vn_Vector_size(loggers);
    for (uint32_t i = 0; i < count; ++i) {
        const Registration* registration = registrationAt(i);
        if (registration->plan != nullptr) {
            reopen(registration->logger, registration->plan);
        }
    }
    return prevsighup;
}

void sighupHandler(int signal, siginfo_t* info, void* context) {
    const int errnoBefore = errno;
    const struct sigaction previous = reopenAll();
    errno = errnoBefore;
    const void* frame = __builtin_frame_address(0);
    if (signal != SIGHUP || isBeingPassedOn(context, frame)) {
        return;
    }
    passingOn = {context, frame};
    passOn(previous, signal, info, context);
    passingOn = {};
}

bool isOurs(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == sighupHandler;
}

// A handler that another thread runs at this very moment waits for the lock before it reads
// prevsighup.
int installHandler() {
    struct sigaction ours = {};
    ours.sa_sigaction = sighupHandler;
    ours.sa_flags = SA_SIGINFO;
    sigemptyset(&ours.sa_mask);

    const RegistryLock lock;
    struct sigaction before;
    const int result = sigaction(SIGHUP, &ours, &before);
    if (result == 0 && !isOurs(before)) {
        prevsighup = before;
    }
    return result;
}

void pinLibrary() {
    Dl_info here;
    if (dladdr(reinterpret_cast<void*>(sighupHandler), &here) != 0) {
        dlopen(here.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

// ---- fork ----
//
// The child has only the thread that forked. That thread takes loggerMutex over the fork, so the
// registry is whole in the child. It does not take the loggers' own mutexes, which would mean
// waiting for other threads' lines with loggerMutex held: those found locked in the child were
// locked by threads that it does not have, and are made anew.

std::optional<RegistryLock> lockOverFork;

void beforeFork() {
    lockOverFork.emplace();
}

void afterForkInParent() {
    lockOverFork.reset();
}

void freeAfterFork(FileLogger* logger) {
    if (logger->ownsMutex == 0) {
        return;
    }
    if (pthread_mutex_trylock(logger->mutex) == 0) {
        pthread_mutex_unlock(logger->mutex);
        return;
    }
    vn_Mutex_init(logger->mutex);
    logger->prefixTime = 0;  // the prefix may be half made
}

// Under lockOverFork, which clang cannot follow from one function to another.
void afterForkInChild() VN_NO_THREAD_SAFETY_ANALYSIS {
    for (uint32_t i = 0; i < vn_Vector_size(loggers); ++i) {
        freeAfterFork(registrationAt(i)->logger);
    }
    lockOverFork.reset();
}

// ---- The registry ----

void createRegistry() {
    Vector* created = makeVector(initialCapacity);
    {
        const RegistryLock lock;
        loggers = created;
    }
    pinLibrary();
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    installHandler();
}

bool addIfRoom(Registration* registration, uint32_t& capacity) {
    const RegistryLock lock;
    capacity = loggers->capacity;
    if (vn_Vector_size(loggers) == capacity) {
        return false;
    }
    vn_Vector_add(loggers, registration);
    return true;
}

// Makes the larger storage first and frees the old one last, so that nothing is allocated or
// freed with the lock held, as vn_Vector_add would.
void growRegistry(uint32_t capacity) {
    Vector* other = makeVector(capacity);
    {
        const RegistryLock lock;
        if (capacity > loggers->capacity) {  // unless another thread was faster
            for (uint32_t i = 0; i < vn_Vector_size(loggers); ++i) {
                vn_Vector_add(other, vn_Vector_get(loggers, i));
            }
            std::swap(loggers, other);
        }
    }
    vn_Vector_dtor(other);
}

Registration* removeRegistration(const FileLogger* logger) {
    const RegistryLock lock;
    uint32_t index;
    if (loggers == nullptr || !vn_Vector_find(loggers, logger, &index)) {
        return nullptr;
    }
    return static_cast<Registration*>(vn_Vector_remove(loggers, index));
}

}  // namespace

void vncommon::registerLogger(FileLogger* logger) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, createRegistry);
    auto* registration = static_cast<Registration*>(vn_malloc(sizeof(Registration)));
    *registration = {logger, nullptr};
    uint32_t capacity;
    while (!addIfRoom(registration, capacity)) {
        growRegistry(capacity * 2);
    }
}

void vncommon::unregisterLogger(FileLogger* logger) {
    Registration* registration = removeRegistration(logger);
    if (registration != nullptr) {
        destroyReopenPlan(registration->plan);
        vn_free(registration);
    }
}

ReopenPlan* vncommon::exchangePlan(FileLogger* logger, ReopenPlan* plan) {
    uint32_t index;
    if (loggers == nullptr || !vn_Vector_find(loggers, logger, &index)) {
        return plan;
    }
    return std::exchange(registrationAt(index)->plan, plan);
}

int FileLogger_reinstallSignalHandler(void) {
    return installHandler();
}
