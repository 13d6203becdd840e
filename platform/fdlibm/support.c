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

double __math_divzero(uint32_t negative) {
    const volatile double zero = 0.0;
    return withSign(1.0 / zero, negative);
}

double __math_invalid(double x) {
    return (x - x) / (x - x);
}

/* The upper half of x: few enough bits that the product of two such halves is exact. */
static double upperHalf(double x) {
    SET_LOW_WORD(x, 0);
    return x;
}

/* A first quotient is corrected by the remainder that it leaves, which is exact because sum and
 * quotient are taken in halves. The order of operations decides the last bit: keep it. */
double vn_fdNegativeReciprocal(double x, double tail) {
    const double sum = x + tail;
    const double sumHigh = upperHalf(sum);
    const double sumLow = tail - (sumHigh - x);
    const double quotient = -1.0 / sum;
    const double quotientHigh = upperHalf(quotient);
    const double remainder = 1.0 + quotientHigh * sumHigh;
    return quotientHigh + quotient * (remainder + quotientHigh * sumLow);
}
