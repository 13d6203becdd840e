// Part of the library in coverage builds only: writes the counters of processes that end by a
// signal or by _exit(), which are the ends of most failures.
#include <signal.h>

#include <cstdlib>
#include <initializer_list>

extern "C" {

void __gcov_dump(void);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);

}  // extern "C"

namespace {

// Writing needs memory; gcov's functions crash without it. Then the counters are lost.
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

// On return the signal comes again, to the default action.
void dumpOnSignal(int) {
    dumpCounters();
}

// Leaves the handlers of others alone: a Java virtual machine has some.
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
