#include "logging/registry.h"

#include <pthread.h>

#include <atomic>
#include <utility>

#include <vncommon/failure.h>
#include <vncommon/vector.h>

#include "logging/reopening.h"
#include "logging/sighup.h"
#include "platform/alive_mark.h"
#include "platform/assertion.h"
#include "platform/fork_handlers.h"

namespace vncommon {

constinit OwnedLock loggerMutex;

namespace {

struct Registration {
    FileLogger* logger;
    ReopenPlan* plan;  // null while the logger has no named destination
    [[no_unique_address]] AliveMark mark{};
};

constexpr uint32_t initialCapacity = 3;

// Of Registration; null before the first logger.
Vector* loggers VN_GUARDED_BY(loggerMutex) = nullptr;

std::atomic<bool> reopeningDue{false};  // the note of rule 1
std::atomic<uint64_t> reopenings{0};

int32_t loggerCompare(const void* element, const void* logger) {
    return static_cast<const Registration*>(element)->logger == logger ? 0 : 1;
}

Vector* makeVector(uint32_t capacity) {
    return vn_Vector_ctor(loggerCompare, nullptr, nullptr, capacity, 0);
}

uint32_t loggerCount() VN_REQUIRES(loggerMutex) {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    return loggers == nullptr ? 0 : vn_Vector_size(loggers);
}

Registration* registrationAt(uint32_t index) VN_REQUIRES(loggerMutex) {
    auto* registration = static_cast<Registration*>(vn_Vector_get(loggers, index));
    VN_ASSERT(registration != nullptr && registration->mark.isSet());
    VN_ASSERT(registration->logger != nullptr);
    return registration;
}

// ---- The lock ----

void reopenAll() VN_REQUIRES(loggerMutex) {
    ++reopenings;
    for (uint32_t i = 0; i < loggerCount(); ++i) {
        const Registration* registration = registrationAt(i);
        if (registration->plan != nullptr) {
            reopen(registration->logger, registration->plan);
        }
    }
}

// Also checks the note after unlocking: a handler that found the lock held just before relies on
// it. Both sides write first and then read, in one total order, so at least one of them sees the
// other.
void unlockAndReopen() VN_RELEASE(loggerMutex) VN_NO_THREAD_SAFETY_ANALYSIS {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    do {
        while (reopeningDue.exchange(false)) {
            reopenAll();
        }
        loggerMutex.unlock();
    } while (reopeningDue.load() && loggerMutex.tryLock());
}

// ---- fork ----
//
// The child has only the thread that forked. That thread holds loggerMutex during the fork, so the
// registry is consistent in the child. It does not take the loggers' own mutexes, because it would
// have to wait for lines of other threads. A mutex that is locked in the child belongs to a thread
// that does not exist there, and is initialised again. The child also handles a note from before
// the fork, because its descriptors refer to the old files.

void afterForkInParent() VN_NO_THREAD_SAFETY_ANALYSIS {
    if (loggerMutex.endFork()) {
        const CancellationDisabled noCancellation;
        unlockAndReopen();
    }
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
    logger->prefixTime = 0;  // the prefix may be half written
}

std::atomic<bool> forkedChild{false};

void afterForkInChild() VN_NO_THREAD_SAFETY_ANALYSIS {
    forkedChild = true;
    if (!loggerMutex.endFork()) {
        return;
    }
    for (uint32_t i = 0; i < loggerCount(); ++i) {
        freeAfterFork(registrationAt(i)->logger);
    }
    const CancellationDisabled noCancellation;
    unlockAndReopen();
}

// Registered at load. POSIX: prepare handlers run in reverse order of registration, so libraries
// and programs that use this one take their locks first, as when they choose a destination.
const ForkHandlers forkHandlers([] { loggerMutex.prepareFork(); }, afterForkInParent,
                                afterForkInChild);

// ---- The registry ----

// pinLibrary() takes the lock of the dynamic linker, so no lock may be held here: a thread that
// loads a plugin may hold that lock while the plugin's constructor creates a logger.
void ensureRegistry() {
    static std::atomic<bool> ready{false};
    if (ready.load(std::memory_order_acquire)) [[likely]] {
        return;
    }
    pinLibrary();
    Vector* spare = makeVector(initialCapacity);
    {
        const RegistryLock lock;
        if (loggers == nullptr) {
            std::swap(loggers, spare);
            installHandler();
        }
    }
    if (spare != nullptr) {
        vn_Vector_dtor(spare);
    }
    ready.store(true, std::memory_order_release);
}

bool addIfRoom(Registration* registration, uint32_t& capacity) {
    const RegistryLock lock;
    VN_ASSERT(loggers != nullptr);
    capacity = loggers->capacity;
    VN_ASSERT(capacity >= initialCapacity && vn_Vector_size(loggers) <= capacity);
    if (vn_Vector_size(loggers) == capacity) {
        return false;
    }
    vn_Vector_add(loggers, registration);
    return true;
}

// Allocates the larger storage before locking and frees the old one after unlocking. vn_Vector_add
// would do both with the lock held.
void growRegistry(uint32_t capacity) {
    VN_ASSERT(capacity > initialCapacity);
    Vector* other = makeVector(capacity);
    {
        const RegistryLock lock;
        if (capacity > loggers->capacity) {  // unless another thread was faster
            for (uint32_t i = 0; i < vn_Vector_size(loggers); ++i) {
                vn_Vector_add(other, vn_Vector_get(loggers, i));
            }
            VN_ASSERT(vn_Vector_size(other) == vn_Vector_size(loggers));
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

RegistryLock::RegistryLock() {
    loggerMutex.lock();
}

RegistryLock::~RegistryLock() {
    unlockAndReopen();
}

void registerLogger(FileLogger* logger) {
    ensureRegistry();
    auto* registration = static_cast<Registration*>(vn_malloc(sizeof(Registration)));
    *registration = {.logger = logger, .plan = nullptr};
    uint32_t capacity;
    while (!addIfRoom(registration, capacity)) {
        growRegistry(capacity * 2);
    }
}

void unregisterLogger(FileLogger* logger) {
    Registration* registration = removeRegistration(logger);
    VN_ASSERT(registration != nullptr);
    if (registration != nullptr) {
        VN_ASSERT(registration->mark.isSet() && registration->logger == logger);
        destroyReopenPlan(registration->plan);
        registration->mark.clear();
        vn_free(registration);
    }
}

ReopenPlan* exchangePlan(FileLogger* logger, ReopenPlan* plan) {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    VN_ASSERT(plan == nullptr || isValid(plan));
    uint32_t index;
    if (loggers == nullptr || !vn_Vector_find(loggers, logger, &index)) {
        return plan;
    }
    return std::exchange(registrationAt(index)->plan, plan);
}

uint64_t reopeningCount() {
    return reopenings.load();
}

bool inForkedChild() {
    return forkedChild.load();
}

void reopenAllOrDefer() VN_NO_THREAD_SAFETY_ANALYSIS {
    reopeningDue.store(true);
    if (loggerMutex.tryLock()) {
        const CancellationDisabled noCancellation;
        unlockAndReopen();
    }
}

}  // namespace vncommon
