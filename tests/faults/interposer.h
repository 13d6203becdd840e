// Makes the library's n-th fallible call fail. The test program's malloc, open, pthread_create ...
// replace the C library's (interposer.cpp). They pass calls on, except those that the plan selects.
// Only calls during the life of an Injection, in its thread, are counted.
//
// A failed call is reported as a line "fault NAME CALLER" on standard output; CALLER is the
// exported function that made the call, or "-". If a call is repeated many times in a row, only the
// first few are counted, except heap calls. The rest fail only together with all calls.
#ifndef VN_TESTS_FAULTS_INTERPOSER_H
#define VN_TESTS_FAULTS_INTERPOSER_H

#include <cstdint>

namespace faults {

// How calls fail. Calls that cannot fail in this way are not counted.
enum class Variant {
    usual,         // each with its most likely error
    interrupted,   // EINTR
    noDescriptor,  // EMFILE
    partial,       // not a failure: half of the bytes are transferred
    refused,       // EPERM, for calls whose other errors end the process
    noMemory,      // heap calls only
};
constexpr int variants = 6;

// Which heap calls count: those of vn_malloc, vn_realloc, vn_strdup, vn_strndup and the conversions
// of names, and those that other libraries make for us (checked); those of the library itself
// (own); or both.
enum class Memory { none, checked, own, all };

// The contents of the environment variable VN_FAULTS: numbers separated by blanks.
struct Plan {
    Variant variant = Variant::usual;
    bool onwards = false;  // the calls after the n-th fail too
    uint64_t n = 0;        // counted from 1; 0: nothing fails
    Memory memory = Memory::none;
    bool fromLoad = false;  // also counts calls of the library's static initialisers
};
constexpr char planVariable[] = "VN_FAULTS";

class Injection {
  public:
    Injection();
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;
};

template <class Body>
auto inject(Body body) {
    const Injection injection;
    return body();
}

bool failed();                  // whether any call failed in the last injection
bool failed(const char* call);  // whether this one did
bool everFailed();              // in any injection
bool hasWaited();               // whether any thread has called sem_wait

int64_t liveBlocks();  // heap blocks allocated and not freed
uint64_t countedCalls();

}  // namespace faults

#endif
