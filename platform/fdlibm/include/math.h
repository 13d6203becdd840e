/* Replaces the system's <math.h> while FDLIBM is compiled, and only then.
 *
 * Every public function of FDLIBM gets the prefix __fd_. Otherwise the compiler, which treats sin
 * and others as built-ins, or the dynamic linker could use the system's function instead. The
 * renaming must happen here: on the command line it would also rename the system's declarations.
 */
#ifndef VN_FDLIBM_MATH_H
#define VN_FDLIBM_MATH_H

#include <limits.h>

#define asinh __fd_asinh
#define atan __fd_atan
#define cbrt __fd_cbrt
#define copysign __fd_copysign
#define cos __fd_cos
#define erf __fd_erf
#define erfc __fd_erfc
#define expm1 __fd_expm1
#define floor __fd_floor
#define frexp __fd_frexp
#define ilogb __fd_ilogb
#define log1p __fd_log1p
#define modf __fd_modf
#define nextafter __fd_nextafter
#define rint __fd_rint
#define scalbn __fd_scalbn
#define sin __fd_sin
#define tan __fd_tan
#define tanh __fd_tanh

#include "platform/fdlibm/routines.h"

/* One instruction, no library call. */
#define fabs(x) __builtin_fabs(x)

/* The results of FDLIBM's ilogb for 0 and for NaN. */
#define FP_ILOGB0 (-INT_MAX)
#define FP_ILOGBNAN INT_MAX

/* Excludes code that FDLIBM does not need and that would need more of <math.h>. */
#define HAVE_FAST_ROUND 0

#endif
