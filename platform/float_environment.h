// The floating-point mode that the library computes in: round to nearest, subnormal numbers kept,
// no exception traps.
//
// A host may have set another mode for its thread. Functions whose result depends on the mode
// check the control word first. If it is not the default, they set the default mode, compute, and
// restore the host's mode. Exception flags are not part of the mode: new ones are added to the
// host's flags and stay raised.
//
// Compilers do not treat mode changes as memory accesses, and may move arithmetic across them. So
// the arithmetic is in a function that is never inlined, and the mode changes surround a call
// through a volatile pointer: the compiler cannot know which function is called.
#ifndef VN_PLATFORM_FLOAT_ENVIRONMENT_H
#define VN_PLATFORM_FLOAT_ENVIRONMENT_H

#include <fenv.h>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include <cstdint>
#include <type_traits>

#include "platform/assertion.h"

namespace vncommon {

#if defined(__x86_64__)

// MXCSR, bits 15 to 6: flush to zero, rounding, exception masks, denormals are zeros.
constexpr unsigned floatControls = 0xFFC0;
constexpr unsigned defaultFloatControls = 0x1F80;

inline bool isDefaultFloatMode() {
    return (_mm_getcsr() & floatControls) == defaultFloatControls;
}

class DefaultFloatMode {
  public:
    DefaultFloatMode() : rounding_(fegetround()), controls_(_mm_getcsr() & floatControls) {
        fesetround(FE_TONEAREST);  // x87 too: the C library's printf and scanf read its mode
        setControls(defaultFloatControls);
    }
    ~DefaultFloatMode() {
        fesetround(rounding_);
        setControls(controls_);
    }
    DefaultFloatMode(const DefaultFloatMode&) = delete;
    DefaultFloatMode& operator=(const DefaultFloatMode&) = delete;

  private:
    // Intel SDM: clearing a mask while its flag is raised does not trap; the next exception does.
    static void setControls(unsigned controls) {
        _mm_setcsr((_mm_getcsr() & ~floatControls) | controls);
    }

    int rounding_;
    unsigned controls_;
};

#elif defined(__aarch64__)

// FPCR holds only the controls and is 0 by default; the flags are in FPSR.
inline uint64_t floatControls() {
    uint64_t controls;
    asm volatile("mrs %0, fpcr" : "=r"(controls));
    return controls;
}

inline void setFloatControls(uint64_t controls) {
    asm volatile("msr fpcr, %0" : : "r"(controls) : "memory");
}

inline bool isDefaultFloatMode() {
    return floatControls() == 0;
}

class DefaultFloatMode {
  public:
    DefaultFloatMode() : controls_(floatControls()) { setFloatControls(0); }
    ~DefaultFloatMode() { setFloatControls(controls_); }
    DefaultFloatMode(const DefaultFloatMode&) = delete;
    DefaultFloatMode& operator=(const DefaultFloatMode&) = delete;

  private:
    uint64_t controls_;
};

#else

// Other processors: only the rounding mode, which standard C can change.
inline bool isDefaultFloatMode() {
    return fegetround() == FE_TONEAREST;
}

class DefaultFloatMode {
  public:
    DefaultFloatMode() : rounding_(fegetround()) { fesetround(FE_TONEAREST); }
    ~DefaultFloatMode() { fesetround(rounding_); }
    DefaultFloatMode(const DefaultFloatMode&) = delete;
    DefaultFloatMode& operator=(const DefaultFloatMode&) = delete;

  private:
    int rounding_;
};

#endif

// The rare path of inDefaultFloatMode.
template <typename Result, typename... Arguments>
[[gnu::noinline, gnu::cold]] Result callInDefaultFloatMode(
    Result (*function)(Arguments...), std::type_identity_t<Arguments>... arguments) {
    Result (*volatile const unknown)(Arguments...) = function;
    const DefaultFloatMode mode;
    VN_ASSERT(isDefaultFloatMode());
    return unknown(arguments...);
}

// Returns function(arguments...), computed in the default mode. The function must never be inlined:
// mark it [[gnu::noinline]], or define it in a source compiled without link-time optimisation.
template <auto function, typename... Arguments>
inline auto inDefaultFloatMode(Arguments... arguments) {
    if (isDefaultFloatMode()) [[likely]] {
        return function(arguments...);
    }
    return callInDefaultFloatMode(function, arguments...);
}

}  // namespace vncommon

#endif
