/* FDLIBM's routines under their names in this library: core routines keep their names, public
 * functions have the prefix __fd_. Plain C: FDLIBM's own sources include this file too. */
#ifndef VN_FDLIBM_ROUTINES_H
#define VN_FDLIBM_ROUTINES_H

#ifdef __cplusplus
extern "C" {
#endif

double __ieee754_acos(double x);
double __ieee754_acosh(double x);
double __ieee754_asin(double x);
double __ieee754_atan2(double y, double x);
double __ieee754_atanh(double x);
double __ieee754_cosh(double x);
double __ieee754_exp(double x);
double __ieee754_fmod(double x, double y);
double __ieee754_lgamma_r(double x, int* sign);
double __ieee754_log(double x);
double __ieee754_log10(double x);
double __ieee754_pow(double x, double y);
double __ieee754_sinh(double x);
double __ieee754_sqrt(double x);

double __fd_asinh(double x);
double __fd_atan(double x);
double __fd_cbrt(double x);
double __fd_copysign(double x, double y);
double __fd_cos(double x);
double __fd_erf(double x);
double __fd_erfc(double x);
double __fd_expm1(double x);
double __fd_floor(double x);
double __fd_frexp(double x, int* exponent);
int __fd_ilogb(double x);
double __fd_log1p(double x);
double __fd_modf(double x, double* integral);
double __fd_nextafter(double x, double y);
double __fd_rint(double x);
double __fd_scalbn(double x, int n);
double __fd_sin(double x);
double __fd_tan(double x);
double __fd_tanh(double x);

#ifdef __cplusplus
}
#endif

#endif
