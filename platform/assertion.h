// VN_ASSERT states an invariant: something that is true unless the library has a defect or a
// program uses a record after its cleanup. Assertions are on in builds for debugging, with
// sanitizers and for fuzzing (VN_ASSERTIONS); a release build contains none.
//
// A condition has no effects, and reads only what its function may read anyway. Where a caller's
// mistake has a documented result, the function tests for it, in every build.
#ifndef VN_PLATFORM_ASSERTION_H
#define VN_PLATFORM_ASSERTION_H

#if defined(VN_ASSERTIONS)

namespace vncommon {

// Writes "FILE:LINE: FUNCTION: assertion failed: CONDITION\n" to standard error and aborts. Uses
// neither the heap nor a lock, so that an assertion may be anywhere, also in a signal handler.
[[noreturn]] void failAssertion(const char* condition, const char* file, int line,
                                const char* function);

}  // namespace vncommon

#define VN_ASSERT(condition) \
    ((condition) ? void() : ::vncommon::failAssertion(#condition, __FILE__, __LINE__, __func__))

#else

// Compiled, so that a condition cannot rot; not evaluated.
#define VN_ASSERT(condition) static_cast<void>(sizeof(static_cast<bool>(condition)))

#endif

#endif
