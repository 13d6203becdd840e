// The SIGHUP handler.
#ifndef VN_LOGGING_SIGHUP_H
#define VN_LOGGING_SIGHUP_H

#include "logging/registry.h"

namespace vncommon {

// Installs our handler and saves the previous disposition in prevsighup, unless that is our own.
// Returns the result of sigaction().
int installHandler() VN_REQUIRES(loggerMutex);

// Keeps the library loaded until the process ends, because other code may keep the address of the
// handler. Takes the lock of the dynamic linker. Does nothing in the child of a fork: POSIX does
// not allow dlopen() there, because another thread of the parent may have been loading a library.
// So a child must not unload the library if its parent had no logger before the fork.
void pinLibrary();

}  // namespace vncommon

#endif
