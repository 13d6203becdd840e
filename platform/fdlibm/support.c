/* What FDLIBM needs beside its own files. No errno is set here: the core routines have none. */
#include "fdlibm.h"
#include "math_config.h"

/* The square root is exact to the last bit by IEEE 754, so the instruction gives what FDLIBM's
 * loop over the bits gives, in a fifteenth of the time (arc sine: 13 against 208 ns). */
double __ieee754_sqrt(double x) {
    return __builtin_sqrt(x);
}

static double withSign(double magnitude, uint32_t negative) {
    return negative ? -magnitude : magnitude;
}

double __math_oflow(uint32_t negative) {
    const volatile double huge = 1e300;
    return withSign(huge * huge, negative);
}

double __math_uflow(uint32_t negative) {
    const volatile double tiny = 1e-300;
    return withSign(tiny * tiny, negative);
}

double __math_divzero(uint32_t negative) {
    const volatile double zero = 0.0;
    return withSign(1.0 / zero, negative);
}

double __math_invalid(double x) {
    return (x - x) / (x - x);
}
