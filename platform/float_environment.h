// The floating-point mode that the library computes in: round to nearest, subnormal numbers kept,
// no exception traps.
//
// A host may have set another one for its thread. Functions whose result depends on the mode look
// at the control word first and, if it is not the default, run in the default mode and put the
// host's back. The flags of raised exceptions are no part of the mode: those raised meanwhile stay
// raised, beside those that the host had.
//
// Compilers move arithmetic across changes of the mode, which are no memory accesses to them. So
// the arithmetic is in a function that is not inlined, and the changes surround a call through a
// volatile pointer: what it calls, and hence what it computes, is unknown at compile time.
#ifndef VN_PLATFORM_FLOAT_ENVIRONMENT_H
#define VN_PLATFORM_FLOAT_ENVIRONMENT_H

#include <fenv.h>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include <cstdint>
#include <type_traits>

namespace vncommon {

#if defined(__x86_64__)

// MXCSR: flush to zero, rounding, masks of exceptions and denormals are zeros are bits 15 to 6.
constexpr unsigned floatControls = 0xFFC0;
constexpr unsigned defaultFloatControls = 0x1F80;

inline bool isDefaultFloatMode() {
    return (_mm_getcsr() & floatControls) == defaultFloatControls;
}

class DefaultFloatMode {
  public:
    DefaultFloatMode() : rounding_(fegetround()), controls_(_mm_getcsr() & floatControls) {
        fesetround(FE_TONEAREST);  // of the x87 unit too: the C library's printf and scanf ask it
        setControls(defaultFloatControls);
    }
    ~DefaultFloatMode() {
        fesetround(rounding_);
        setControls(controls_);
    }
    DefaultFloatMode(const DefaultFloatMode&) = delete;
    DefaultFloatMode& operator=(const DefaultFloatMode&) = delete;

  private:
    // Intel SDM: a mask cleared beside a raised flag does not trap; the next exception does.
    static void setControls(unsigned controls) {
        _mm_setcsr((_mm_getcsr() & ~floatControls) | controls);
    }

    int rounding_;
    unsigned controls_;
};

#elif defined(__aarch64__)

// FPCR holds the controls alone, 0 by default; the flags are in FPSR.
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

// Without processor-specific code: the rounding mode alone.
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

// The rare way of inDefaultFloatMode.
template <typename Result, typename... Arguments>
[[gnu::noinline, gnu::cold]] Result callInDefaultFloatMode(
    Result (*function)(Arguments...), std::type_identity_t<Arguments>... arguments) {
    Result (*volatile const unknown)(Arguments...) = function;
    const DefaultFloatMode mode;
    return unknown(arguments...);
}

// function(arguments...) in the default mode. The function must not be inlined: [[gnu::noinline]],
// or defined in another source that takes no part in link-time optimisation.
template <auto function, typename... Arguments>
inline auto inDefaultFloatMode(Arguments... arguments) {
    if (isDefaultFloatMode()) [[likely]] {
        return function(arguments...);
    }
    return callInDefaultFloatMode(function, arguments...);
}

}  // namespace vncommon

#endif
