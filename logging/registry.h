// The registry of all loggers of the process and its lock, loggerMutex.
//
// Who shares the lock: everything that adds, removes or redirects a logger; the SIGHUP handler,
// which reopens all of them; and fork(), which holds it so that the child finds the registry
// whole. Rules that keep these apart:
//  1. The handler never waits. It leaves a note that a reopening is due and tries the lock once.
//     Whoever releases the lock looks at the note and reopens then, until no note is left. So a
//     signal need not be blocked anywhere, and nothing that the handler interrupted (malloc, a
//     fork, a holder of this very lock) can be what it waits for.
//  2. The holder allocates and frees no memory, takes no other lock and touches no stdio stream,
//     since a release may happen in a handler or right after a fork. It may wait in open(), so
//     nothing that writes a line takes this lock.
//  3. The lock knows its owner (OwnedLock): a signal handler may fork in the middle of a section.
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

// Adds an initialised logger. The first call of the process makes the registry and installs the
// SIGHUP handler. No lock may be held: it loads a library (see pinLibrary()).
void registerLogger(FileLogger* logger);

// Removes the logger; from its return on no handler touches the logger.
void unregisterLogger(FileLogger* logger);

// Gives the logger another plan, null for none, and returns the one before, for
// destroyReopenPlan() once the registry is unlocked. Call it under the same lock as the change of
// destination that the plan belongs to.
ReopenPlan* exchangePlan(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

// How often all loggers were reopened, counted when a reopening begins. A file that was opened
// before the count changed may have been renamed since.
uint64_t reopeningCount();

// Whether this process was forked since the library was loaded.
bool inForkedChild();

// Reopens every logger now, or leaves that to the thread that holds the lock. Async-signal-safe.
void reopenAllOrLeaveNote();

}  // namespace vncommon

#endif
