// Why the handler is safe in any interrupted code:
//  - It never waits for a lock: rule 1 of registry.h.
//  - Everything it needs is prepared before the signal (reopening.h). It allocates and frees
//    nothing and makes async-signal-safe calls only: open, fcntl, dup2, close, tcgetattr, write.
//    POSIX does not list pthread_setcancelstate and strerrordesc_np. In glibc 2.36 they use only
//    the thread's own control block and a constant table. The library is linked with -z now, so
//    the dynamic linker resolves no symbol in the handler.
//  - It takes no logger's own mutex. A thread may be writing a line to the descriptor that is
//    replaced: dup2() replaces it atomically, and the fields of a logger are accessed atomically.
//  - errno is restored.
//  - The library is pinned before the handler is installed, and nothing that the handler uses is
//    destroyed at exit.
#include "logging/sighup.h"

#include <dlfcn.h>

#include <cerrno>
#include <csignal>

#include <vncommon/file_logger.h>

#include "platform/assertion.h"

struct sigaction prevsighup;

namespace vncommon {
namespace {

using ExtendedHandler = void (*)(int, siginfo_t*, void*);

// ---- The disposition before ours ----
//
// A signal may arrive in another thread while the disposition is being replaced, and its handler
// takes no lock. The only harmful mix is a call of an SA_SIGINFO handler with one argument. So
// SA_SIGINFO is set before the handler changes and cleared after it. Linux also passes three
// arguments to plain handlers.

ExtendedHandler previousHandler() {
    return __atomic_load_n(&prevsighup.sa_sigaction, __ATOMIC_SEQ_CST);
}

void setPreviousFlags(int flags) {
    __atomic_store_n(&prevsighup.sa_flags, flags, __ATOMIC_SEQ_CST);
}

void savePrevious(const struct sigaction& action) {
    setPreviousFlags(prevsighup.sa_flags | SA_SIGINFO);
    __atomic_store_n(&prevsighup.sa_sigaction, action.sa_sigaction, __ATOMIC_SEQ_CST);
    setPreviousFlags(action.sa_flags);
    prevsighup.sa_mask = action.sa_mask;
}

void passOn(int signal, siginfo_t* info, void* context) {
    struct sigaction previous = {};
    do {
        previous.sa_sigaction = previousHandler();
        previous.sa_flags = __atomic_load_n(&prevsighup.sa_flags, __ATOMIC_SEQ_CST);
    } while (previous.sa_sigaction != previousHandler());
    if (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN) {
        return;
    }
    if ((previous.sa_flags & SA_SIGINFO) != 0) {
        previous.sa_sigaction(signal, info, context);
    } else {
        previous.sa_handler(signal);
    }
}

// ---- Signals that come back ----
//
// Other code may install its handler for SIGHUP after us and call ours as the previous one. After
// FileLogger_reinstallSignalHandler, we pass the signal on to that handler, and it calls ours
// again. Such a nested call must not be passed on again.
//
// The address of the context distinguishes it from a new signal. Linux stores the context of a
// signal on the stack just before the handler's frame, so a new one is between that frame and the
// frame that passes the signal on. In a nested call, the other handler passes the old context,
// none, or an arbitrary register value. (Comparing frames is also correct if the previous handler
// left with longjmp() and passingFrame is stale.)

// Static TLS, because access to any other may allocate.
[[gnu::tls_model("initial-exec")]] thread_local const void* passingFrame = nullptr;

bool comesBack(const void* frame, const void* context) {
    const bool isInside = passingFrame != nullptr && frame < passingFrame;
    const bool isNewSignal = frame < context && context < passingFrame;
    return isInside && !isNewSignal;
}

void sighupHandler(int signal, siginfo_t* info, void* context) {
    const int errnoBefore = errno;
    reopenAllOrDefer();
    errno = errnoBefore;
    const void* frame = __builtin_frame_address(0);
    if (signal != SIGHUP || comesBack(frame, context)) {
        return;
    }
    const void* outerFrame = passingFrame;
    passingFrame = frame;
    passOn(signal, info, context);
    passingFrame = outerFrame;
}

bool isOurs(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == sighupHandler;
}

// Calls sigaction() and saves the disposition that it returns.
int exchangeDisposition(const struct sigaction* to) {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    struct sigaction before;
    const int result = sigaction(SIGHUP, to, &before);
    if (result == 0 && !isOurs(before)) {
        savePrevious(before);
    }
    return result;
}

}  // namespace

// Saves the previous disposition first, because our handler may need it as soon as it is installed.
// Saves it again when installing, in case other code has changed it.
int installHandler() {
    struct sigaction ours = {};
    ours.sa_sigaction = sighupHandler;
    ours.sa_flags = SA_SIGINFO;
    sigemptyset(&ours.sa_mask);
    const int result = exchangeDisposition(nullptr);
    return result != 0 ? result : exchangeDisposition(&ours);
}

void pinLibrary() {
    if (inForkedChild()) {
        return;
    }
    Dl_info library;
    if (dladdr(reinterpret_cast<void*>(sighupHandler), &library) != 0) {
        dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

}  // namespace vncommon

using namespace vncommon;

int FileLogger_reinstallSignalHandler(void) {
    pinLibrary();  // there may be no logger yet
    const RegistryLock lock;
    return installHandler();
}
