// Part of the library in coverage builds only: writes the counters of processes that end by a
// signal or by _exit(), which are the ends of most failures.
#include <signal.h>

#include <initializer_list>

extern "C" {

void __gcov_dump(void);
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);

void __wrap__exit(int status) {
    __gcov_dump();
    __real__exit(status);
}

}  // extern "C"

namespace {

// On return the signal comes again, to the default action.
void dumpCounters(int) {
    __gcov_dump();
}

[[gnu::constructor]] void dumpOnSignals() {
    struct sigaction action = {};
    action.sa_handler = dumpCounters;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGABRT, SIGILL, SIGSEGV}) {
        sigaction(number, &action, nullptr);
    }
}

}  // namespace
