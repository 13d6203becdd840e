// Makes the n-th fallible call that the library makes fail. The test program's own malloc, open,
// pthread_create ... stand before the C library's (interposer.cpp). They pass everything on, except
// what the plan says for calls made while an Injection lives, by its thread.
//
// A failed call is reported as a line "fault NAME CALLER" on standard output; CALLER is the
// exported function that made the call, or "-". Of calls (other than for memory) that
// are repeated in a row only the first few count; the others fail if failures go on by then.
#ifndef VN_TESTS_FAULTS_INTERPOSER_H
#define VN_TESTS_FAULTS_INTERPOSER_H

#include <cstdint>

namespace faults {

// How calls fail; calls that cannot fail that way are not counted.
enum class Variant {
    usual,         // each with the error that is likeliest for it
    interrupted,   // EINTR
    noDescriptor,  // EMFILE
    partial,       // no failure: half of the bytes are transferred
    refused,       // EPERM, for what otherwise ends the process
    noMemory,      // heap calls only
};
constexpr int variants = 6;

// Which heap calls count: those of vn_malloc, vn_realloc, vn_strdup, vn_strndup and the conversions
// of names, and those that other libraries make for us (checked); those of the library itself
// (own); or both.
enum class Memory { none, checked, own, all };

// What the environment variable VN_FAULTS holds, as numbers with a blank between.
struct Plan {
    Variant variant = Variant::usual;
    bool onwards = false;  // the calls after the n-th fail too
    uint64_t n = 0;        // from 1; 0 for no failure at all
    Memory memory = Memory::none;
    bool fromLoad = false;  // what the library's static initialisers call counts too
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

int64_t liveBlocks();  // of the heap: allocated and not freed
uint64_t countedCalls();

}  // namespace faults

#endif
