// The SIGHUP handler.
#ifndef VN_LOGGING_SIGHUP_H
#define VN_LOGGING_SIGHUP_H

#include "logging/registry.h"

namespace vncommon {

// Puts our handler in force and saves the disposition before it in prevsighup, unless that is
// ours already. Returns what sigaction() returned.
int installHandler() VN_REQUIRES(loggerMutex);

// Keeps the library in memory for as long as the process lives, because other code may keep the
// handler's address. Takes the lock of the dynamic linker. Does nothing in the child of a fork,
// where POSIX rules dlopen() out: another thread of the parent may have been loading a library. So
// a child must not unload the library if its parent had not logged before the fork.
void pinLibrary();

}  // namespace vncommon

#endif
