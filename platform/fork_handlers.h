// Registers functions to run around every fork() of the process, as a static object of the source
// whose lock they look after: from load on, and removed by the C library with this library.
#ifndef VN_PLATFORM_FORK_HANDLERS_H
#define VN_PLATFORM_FORK_HANDLERS_H

#include <pthread.h>

#include "platform/failure.h"

namespace vncommon {

struct ForkHandlers {
    ForkHandlers(void (*prepare)(), void (*inParent)(), void (*inChild)()) {
        checkError(pthread_atfork(prepare, inParent, inChild), "pthread_atfork");
    }
};

}  // namespace vncommon

#endif
