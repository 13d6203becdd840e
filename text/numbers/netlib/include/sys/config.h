/* Included after <math.h>: makes nan() a constant, not a call into the C library. */
#undef nan
#define nan(tag) __builtin_nan(tag)

/* Some compilers' <float.h> reads the processor's mode; the conversion needs round to nearest. */
#undef FLT_ROUNDS
#define FLT_ROUNDS 1
