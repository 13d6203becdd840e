/** @file
 * Mathematics that gives the same bits on every machine and in every build.
 *
 * The functions of the first section return exactly what FDLIBM 5.3 returns, to the last bit,
 * whatever compiler, flags, processor and C library are in use: FDLIBM is compiled into this
 * library by fixed rules, and the system's mathematics is never called. The C library's functions
 * of the same names may differ in the last place from machine to machine; these do not.
 *
 * Arguments are ordinary doubles, angles are radians.
 *
 * Floating-point modes: the host (the program) may have set any mode for its thread: another
 * rounding mode, flushing of subnormal numbers to zero (FTZ, DAZ), or exceptions that trap. The
 * results are those of the default mode. A function that finds another mode sets the default one
 * while it runs and then restores the host's. No exception traps meanwhile; the flags of exceptions
 * that it raises are added to the host's, as in the default mode. On processors other than x86-64
 * and arm64 this is true for the rounding mode only.
 *
 * Errors: none is reported. FDLIBM's core routines are called without its layer of error
 * handling, so errno stays as it was, and the special values (NaN, +-infinity, +-0) are the
 * results, as each comment says. A NaN argument gives NaN unless the comment says otherwise. The
 * sign and payload of that NaN depend on the processor and are not promised.
 *
 * Thread safety: any thread, no locks, no shared state except signgam (see vn_gammal). Nothing is
 * allocated. Cost: highest for the trigonometric functions of angles beyond 10^6; measured: see
 * docs/benchmarks.md.
 */
#ifndef VNCOMMON_MATHS_H
#define VNCOMMON_MATHS_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** @name Powers and logarithms
 * @{ */

/** x to the power y; 1 when y is 0, NaN when x is negative and y not integral, both finite. FDLIBM
 * differs from the C standard here: NaN as either operand gives NaN even if x is 1 (but not if y is
 * 0), and 1 and -1 to an infinite power give NaN. */
VN_API double vn_pow(double x, double y);

/** e to the power x: infinity above 709.78, 0 below -745.13. */
VN_API double vn_exp(double x);

/** The natural logarithm: -infinity for +-0, NaN below 0. */
VN_API double vn_log(double x);

/** The logarithm to base 10: -infinity for +-0, NaN below 0. */
VN_API double vn_log10(double x);

/** The cube root; keeps the sign. */
VN_API double vn_cbrt(double x);
/** @} */

/** @name Trigonometric functions
 * @{ */

/** The sine; NaN for infinities. */
VN_API double vn_sin(double x);

/** The cosine; NaN for infinities. */
VN_API double vn_cos(double x);

/** The tangent; NaN for infinities. */
VN_API double vn_tan(double x);

/** The arc sine, -pi/2 to pi/2; NaN outside -1 to 1. */
VN_API double vn_asin(double x);

/** The arc cosine, 0 to pi; NaN outside -1 to 1. */
VN_API double vn_acos(double x);

/** The arc tangent, -pi/2 to pi/2. */
VN_API double vn_atan(double x);

/** The angle of the point (x, y), -pi to pi. The signs of zeros count: vn_atan2(+-0, -0) is +-pi.
 */
VN_API double vn_atan2(double y, double x);
/** @} */

/** @name Hyperbolic functions
 * @{ */

/** The hyperbolic sine. */
VN_API double vn_sinh(double x);

/** The hyperbolic cosine. */
VN_API double vn_cosh(double x);

/** The hyperbolic tangent. */
VN_API double vn_tanh(double x);

/** The inverse hyperbolic sine. */
VN_API double vn_asinh(double x);

/** The inverse hyperbolic cosine; NaN below 1. */
VN_API double vn_acosh(double x);

/** The inverse hyperbolic tangent: +-infinity for +-1, NaN beyond. */
VN_API double vn_atanh(double x);
/** @} */

/** @name Error and gamma functions
 * @{ */

/** The error function. */
VN_API double vn_erf(double x);

/** The natural logarithm of the absolute value of the gamma function; +infinity for 0, negative
 * integers and infinities. The sign of the gamma function (1 or -1) is left in the C library's own
 * variable signgam, the one that `<math.h>` declares. All threads share that variable: a program
 * that calls this from several threads at once can rely on the result but not on the sign. */
VN_API double vn_gammal(double x);
/** @} */

/** @name Parts of doubles, neighbours, remainder, rounding
 * @{ */

/** The double next to x towards y; x if equal. */
VN_API double vn_nextafter(double x, double y);

/** x * 2^n, rounded once. */
VN_API double vn_scalbn(double x, int n);

/** The remainder of x / y with the sign of x, exact; NaN for infinite x and for y = 0. */
VN_API double vn_fmod(double x, double y);

/** The exponent e of x = m * 2^e with 1 <= |m| < 2. -2147483647 for 0, 2147483647 for infinities
 * and NaN. */
VN_API int64_t vn_ilogb(double x);

/** The integral part of x (FDLIBM's modf, rounded towards zero). NaN and values that do not fit
 * give -9223372036854775808. */
VN_API int64_t vn_int(double x);

/** The fractional part: x minus its integral part, exact, with the sign of x. +-0 for integers,
 * infinities and, as in FDLIBM's modf, for NaN. */
VN_API double vn_frac(double x);

/** The exponent e of x = m * 2^e with 0.5 <= |m| < 1 (FDLIBM's frexp); 0 for 0, infinities and
 * NaN. */
VN_API int64_t vn_exponent(double x);

/** The mantissa m of x = m * 2^e with 0.5 <= |m| < 1 (FDLIBM's frexp); x itself for 0, infinities
 * and NaN. */
VN_API double vn_mantissa(double x);

/** x rounded to the nearest integer, a tie to the even one: 2.5 gives 2, 3.5 gives 4, -2.5 gives
 * -2. Values beyond the signed 64-bit range give its nearest end, NaN gives the lower end,
 * -9223372036854775808. */
VN_API int64_t vn_bankerRound(double x);

/** Does nothing. Kept because compiled programs call it; it once set the precision of a floating
 * point unit that 64-bit programs do not use. */
VN_API void vn_SetFPUControlWord(void);
/** @} */

VN_END_DECLS

#endif
