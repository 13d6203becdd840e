/* Stands in for the system's <math.h> while FDLIBM is compiled, and for nothing else.
 *
 * Every public function of FDLIBM gets the prefix __fd_, so that neither the compiler (which
 * knows sin and its like as built-ins) nor the dynamic linker can take it for the system's. The
 * renaming must happen here: on the command line it would also hit declarations of the system.
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

/* The answers of FDLIBM's ilogb. */
#define FP_ILOGB0 (-INT_MAX)
#define FP_ILOGBNAN INT_MAX

/* Keeps code out that FDLIBM does not need and that asks for more of <math.h>. */
#define HAVE_FAST_ROUND 0

#endif
