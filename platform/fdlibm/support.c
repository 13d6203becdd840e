/* Functions that FDLIBM needs in addition to its own files. They do not set errno: the core
 * routines do not either. */
#include "fdlibm.h"
#include "math_config.h"

/* IEEE 754: the square root is correctly rounded. So the instruction returns the same bits as
 * FDLIBM's loop over the bits, and is faster. */
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
