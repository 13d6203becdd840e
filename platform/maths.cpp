// Deterministic mathematics: FDLIBM's core routines under the public names, and a few functions
// composed of them. All compute in the default floating-point mode.
#include <vncommon/maths.h>

#include <math.h>  // signgam

#include <cstdint>
#include <limits>

#include "platform/fdlibm/routines.h"
#include "platform/float_environment.h"

namespace vncommon {
namespace {

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();
constexpr double twoTo63 = 9223372036854775808.0;

// Truncates. NaN and values out of range become the lowest integer, which is also the result of the
// x86-64 conversion instruction. The comparison is false for NaN.
int64_t toInteger(double x) {
    if (!(x >= -twoTo63 && x < twoTo63)) {
        return lowest;
    }
    return static_cast<int64_t>(x);
}

[[gnu::noinline]] double logGamma(double x) {
    return __ieee754_lgamma_r(x, &signgam);
}

[[gnu::noinline]] int64_t integralPart(double x) {
    double integral = 0;
    __fd_modf(x, &integral);
    return toInteger(integral);
}

[[gnu::noinline]] double fractionalPart(double x) {
    double integral = 0;
    return __fd_modf(x, &integral);
}

[[gnu::noinline]] int64_t binaryExponent(double x) {
    int exponent = 0;
    __fd_frexp(x, &exponent);
    return exponent;
}

[[gnu::noinline]] double mantissa(double x) {
    int exponent = 0;
    return __fd_frexp(x, &exponent);
}

[[gnu::noinline]] int64_t nearestInteger(double x) {
    const double rounded = __fd_rint(x);
    if (rounded >= twoTo63) {
        return highest;
    }
    return toInteger(rounded);
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

double vn_pow(double x, double y) {
    return inDefaultFloatMode<__ieee754_pow>(x, y);
}
double vn_exp(double x) {
    return inDefaultFloatMode<__ieee754_exp>(x);
}
double vn_log(double x) {
    return inDefaultFloatMode<__ieee754_log>(x);
}
double vn_log10(double x) {
    return inDefaultFloatMode<__ieee754_log10>(x);
}
double vn_cbrt(double x) {
    return inDefaultFloatMode<__fd_cbrt>(x);
}

double vn_sin(double x) {
    return inDefaultFloatMode<__fd_sin>(x);
}
double vn_cos(double x) {
    return inDefaultFloatMode<__fd_cos>(x);
}
double vn_tan(double x) {
    return inDefaultFloatMode<__fd_tan>(x);
}
double vn_asin(double x) {
    return inDefaultFloatMode<__ieee754_asin>(x);
}
double vn_acos(double x) {
    return inDefaultFloatMode<__ieee754_acos>(x);
}
double vn_atan(double x) {
    return inDefaultFloatMode<__fd_atan>(x);
}
double vn_atan2(double y, double x) {
    return inDefaultFloatMode<__ieee754_atan2>(y, x);
}

double vn_sinh(double x) {
    return inDefaultFloatMode<__ieee754_sinh>(x);
}
double vn_cosh(double x) {
    return inDefaultFloatMode<__ieee754_cosh>(x);
}
double vn_tanh(double x) {
    return inDefaultFloatMode<__fd_tanh>(x);
}
double vn_asinh(double x) {
    return inDefaultFloatMode<__fd_asinh>(x);
}
double vn_acosh(double x) {
    return inDefaultFloatMode<__ieee754_acosh>(x);
}
double vn_atanh(double x) {
    return inDefaultFloatMode<__ieee754_atanh>(x);
}

double vn_erf(double x) {
    return inDefaultFloatMode<__fd_erf>(x);
}
double vn_gammal(double x) {
    return inDefaultFloatMode<logGamma>(x);
}

double vn_nextafter(double x, double y) {
    return inDefaultFloatMode<__fd_nextafter>(x, y);
}
double vn_scalbn(double x, int n) {
    return inDefaultFloatMode<__fd_scalbn>(x, n);
}
double vn_fmod(double x, double y) {
    return inDefaultFloatMode<__ieee754_fmod>(x, y);
}
int64_t vn_ilogb(double x) {
    return __fd_ilogb(x);  // computes with integers only
}

int64_t vn_int(double x) {
    return inDefaultFloatMode<integralPart>(x);
}
double vn_frac(double x) {
    return inDefaultFloatMode<fractionalPart>(x);
}
int64_t vn_exponent(double x) {
    return inDefaultFloatMode<binaryExponent>(x);
}
double vn_mantissa(double x) {
    return inDefaultFloatMode<mantissa>(x);
}
int64_t vn_bankerRound(double x) {
    return inDefaultFloatMode<nearestInteger>(x);
}

void vn_SetFPUControlWord(void) {}
