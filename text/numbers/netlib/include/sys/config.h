/* Comes behind <math.h>: a NaN is a constant, not a call into the C library. */
#undef nan
#define nan(tag) __builtin_nan(tag)

/* <float.h> of some compilers asks the processor; the conversion is for rounding to nearest. */
#undef FLT_ROUNDS
#define FLT_ROUNDS 1
