// Part of the library in coverage builds only: writes the counters of processes that end by a
// signal or by _exit(), as most failures do.
#include <signal.h>

#include <cstdlib>
#include <initializer_list>

extern "C" {

void __gcov_dump(void);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);

}  // extern "C"

namespace {

// gcov's functions crash if they get no memory. Without memory the counters are lost.
bool hasMemory() {
    void* volatile block = malloc(size_t{64} * 1024);
    free(block);
    return block != nullptr;
}

void dumpCounters() {
    if (hasMemory()) {
        __gcov_dump();
    }
}

// When it returns, the signal is raised again, with its default action.
void dumpOnSignal(int) {
    dumpCounters();
}

// Does not replace the handlers of other code, such as those of a Java virtual machine.
[[gnu::constructor]] void installHandlers() {
    at_quick_exit(dumpCounters);
    for (const int number : {SIGABRT, SIGILL}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_DFL) {
            struct sigaction action = {};
            action.sa_handler = dumpOnSignal;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(number, &action, nullptr);
        }
    }
}

}  // namespace

void __wrap__exit(int status) {
    dumpCounters();
    __real__exit(status);
}
