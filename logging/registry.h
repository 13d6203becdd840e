// The registry of all loggers of the process and its lock, loggerMutex.
//
// Users of the lock: everything that adds, removes or redirects a logger; the SIGHUP handler,
// which reopens all of them; and fork(), which holds it so that the registry is consistent in the
// child. Rules:
//  1. The handler never waits. It leaves a note that a reopening is due and tries the lock once.
//     The thread that releases the lock reads the note and reopens, until no note is left. So no
//     signal needs to be blocked, and the handler cannot deadlock with the code that it interrupts
//     (malloc, a fork, a holder of this lock).
//  2. The holder allocates and frees no memory, takes no other lock and uses no stdio stream,
//     because a release may happen in a handler or right after a fork. It may wait in open(), so
//     code that writes a line must not take this lock.
//  3. The lock records its owner (OwnedLock): a signal handler may fork while its thread holds it.
//  4. The holder is not cancelled: open() and close() are cancellation points.
#ifndef VN_LOGGING_REGISTRY_H
#define VN_LOGGING_REGISTRY_H

#include <cstdint>

#include <vncommon/file_logger.h>

#include "platform/cancellation.h"
#include "platform/owned_lock.h"

namespace vncommon {

struct ReopenPlan;

extern OwnedLock loggerMutex;

class VN_SCOPED_CAPABILITY RegistryLock {
  public:
    RegistryLock() VN_ACQUIRE(loggerMutex);
    ~RegistryLock() VN_RELEASE();
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

  private:
    CancellationDisabled noCancellation_;
};

// Adds an initialised logger. The first call of the process creates the registry and installs the
// SIGHUP handler. The caller holds no lock, because this calls dlopen() (see pinLibrary()).
void registerLogger(FileLogger* logger);

// Removes the logger. After it returns, the SIGHUP handler does not use the logger.
void unregisterLogger(FileLogger* logger);

// Sets the logger's plan, null for none, and returns the previous one. Pass that to
// destroyReopenPlan() after the registry is unlocked. Call this in the same locked section as the
// change of destination that the plan belongs to.
ReopenPlan* exchangePlan(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

// The number of reopenings of all loggers, counted when each begins. A file that was opened before
// the count changed may have been renamed since.
uint64_t reopeningCount();

// Whether this process was forked since the library was loaded.
bool inForkedChild();

// Reopens every logger now, or leaves that to the thread that holds the lock. Async-signal-safe.
void reopenAllOrDefer();

}  // namespace vncommon

#endif
