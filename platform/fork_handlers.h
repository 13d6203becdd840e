// Registers functions that run around every fork() of the process. Each source with a lock defines
// a static object of this type, so registration happens at load. The C library removes the
// functions when this library is unloaded.
#ifndef VN_PLATFORM_FORK_HANDLERS_H
#define VN_PLATFORM_FORK_HANDLERS_H

#include <pthread.h>

#include "platform/assertion.h"
#include "platform/check_error.h"

namespace vncommon {

struct ForkHandlers {
    ForkHandlers(void (*prepare)(), void (*inParent)(), void (*inChild)()) {
        VN_ASSERT(inChild != nullptr);
        VN_ASSERT((prepare == nullptr) == (inParent == nullptr));
        checkError(pthread_atfork(prepare, inParent, inChild), "pthread_atfork");
    }
};

}  // namespace vncommon

#endif
