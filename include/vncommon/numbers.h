/** @file
 * Formatting and parsing of doubles; text of decimal values.
 *
 * Three formatters of a double: the shortest text that reads back to the same double, a fixed
 * number of places, a fixed number of significant digits with an exponent. All three round
 * correctly, ties to even. The point is "." in every locale. One reader of decimal text.
 * Operations on decimal values (IEEE 754-2008 decimal64, binary integer encoding, in a uint64_t
 * that only these functions interpret).
 *
 * Thread safety: every function may run on any number of threads at once.
 *
 * Stack: a call may need a scratch area of 32,000 bytes on the caller's stack; leave 40 KiB for any
 * call of this header. vn_strtod needs it for hexadecimal numbers, infinities, NaNs, results that
 * are not normal, input of more than 16,384 characters and input without a number; vn_g_fmt_fixed
 * needs it for negative precisions.
 *
 * Cost: formatting allocates nothing and takes no lock; measured: see docs/benchmarks.md.
 *
 * Floating-point modes: results are the same in every mode that the host has set (maths.h).
 */
#ifndef VNCOMMON_NUMBERS_H
#define VNCOMMON_NUMBERS_H

#include <vncommon/api.h>
#include <vncommon/threads.h>

VN_BEGIN_DECLS

/** @name Doubles to text
 * @{ */

/** Writes the shortest text that reads back to x, and returns buf. buf must have room for 25 bytes,
 * the longest text with its terminator, because the function does not know its size.
 *
 * A NaN is "NaN", whatever its sign; the infinities are "Infinity" and "-Infinity"; -0.0 is "-0".
 * Values below 1e-4 and integers with six or more zeros at their end have an exponent, of at least
 * two digits and always signed: "1e-05", "1.5e-07", "1e+06", "1.7976931348623157e+308". The others
 * have none: "100000", "123456789", "1234.5". No ".0" is added.
 * Compat: values below 1 start with the point (".5", "-.001"); readers of the text rely on it.
 */
VN_API char* vn_g_fmt(char* buf, double x);

/** Writes x with precision digits after the point: "1234.50" for 1234.5 and 2, "0.050" for 0.05
 * and 3, "2" for 2.5 and 0. Returns buf, or null when the text and its terminator do not fit into
 * size bytes. buf then holds the part that fits, without a terminator; for a NaN and for a size
 * below 2, it is unchanged.
 *
 * A precision above 100 counts as 100. A negative one rounds to the left of the point ("1200" for
 * 1234.5 and -2); if no digit is left, one zero is written for each place ("00" for 1 and -2). NaN
 * and infinities as in vn_g_fmt. A value that rounds to zero keeps its sign: "-0.00".
 */
VN_NODISCARD VN_API char* vn_g_fmt_fixed(char* buf, unsigned size, int precision, double x);

/** Writes x with precision significant digits and an exponent: "1.23e+02" for 123.4 and 3, "1e+02"
 * for 1. Returns buf or null as vn_g_fmt_fixed does.
 *
 * A precision above 100 counts as 100, one below 1 as 1.
 * Compat: zero has no sign and keeps its point ("0.e+00" for 1, "0.00e+00" for 3), and buf holds at
 * most "0." when it does not fit; callers rely on it.
 */
VN_NODISCARD VN_API char* vn_g_fmt_scientific(char* buf, unsigned size, int precision, double x);
/** @} */

/** @name Text to double
 * @{ */

/** Reads the number at the start of text, correctly rounded, and stores in *end (unless end is
 * null) where it stops. The text has optional blanks (space, `\t \n \v \f \r`), an optional sign,
 * then
 *
 *     decimal digits with or without a point, and an exponent ("e" or "E");
 *     "0x" or "0X", hexadecimal digits with or without a point, and a binary exponent ("p");
 *     "inf" or "infinity" in any case;
 *     "nan" in any case, with or without hexadecimal digits in parentheses for its payload.
 *
 * Text that starts with none of these gives 0, and *end is text itself.
 *
 * Overflow gives an infinity and underflow to zero gives zero, both with errno ERANGE. Otherwise
 * errno does not change, also for subnormal results. An exponent beyond 19999 counts as 19999.
 *
 * Cost: numbers of the usual length are fast; measured: see docs/benchmarks.md. Above 16,384
 * characters, the time grows with the square of the length and the memory with the length; running
 * out of memory ends the process (failure.h). So limit the length of text that you do not trust.
 * Numbers of more than 2^28 characters may be read wrong.
 */
VN_API double vn_strtod(const char* text, char** end);
/** @} */

/** @name Decimal values
 * @{ */

/** Writes sign (always), coefficient, "E" and signed exponent as they are stored: 1.5 held as 15
 * and -1 is "+15E-1", held as 150 and -2 it is "+150E-2". Infinities are "+Inf" and "-Inf", NaNs
 * "+NaN" and "-NaN", signalling ones "+SNaN" and "-SNaN". At most 23 bytes with the terminator. */
VN_API void vn_dec_to_string(uint64_t d, char* out);

/** Not 0 when d is a NaN (quiet or signalling). */
VN_API int vn_dec_isnan(uint64_t d) VN_CONST;

/** Not 0 when d is finite. */
VN_API int vn_dec_isfinite(uint64_t d) VN_CONST;

/** Not 0 when d is an infinity (of either sign). */
VN_API int vn_dec_isinfinite(uint64_t d) VN_CONST;

/** Positive infinity. */
VN_API uint64_t VN_DEC_INFINITY(void) VN_CONST;

/** The quiet NaN. */
VN_API uint64_t VN_DEC_NAN(void);
/** @} */

/** @name Shared state of the conversions
 * When the fast paths of the functions above do not apply, the general conversion uses big
 * integers. One lock guards their free lists, another the cache of powers of five. The locks are
 * not recursive; a thread that holds one must not convert numbers. In a child of fork() they are
 * free, unless the forking thread itself holds them.
 * @{ */

/** Locks the free lists of the big integers. Returns the result of the mutex call, 0 on success. */
VN_API int acquireBallocLock(void);

/** Unlocks the free lists of the big integers. Returns the result of the mutex call, 0 on
 * success. */
VN_API int freeBallocLock(void);

/** Locks the cache of powers of five. Returns the result of the mutex call, 0 on success. */
VN_API int acquirep5Lock(void);

/** Unlocks the cache of powers of five. Returns the result of the mutex call, 0 on success. */
VN_API int freep5Lock(void);

/** The start of the unused part of the calling thread's scratch area while the general conversion
 * runs; null outside conversions. Exported for debugging; do not set it. */
extern VN_API vn_ThreadLocal dtoa_threadLocalMemNext;

/** The size of that unused part in units of eight bytes; null outside conversions. Exported for
 * debugging; do not set it. */
extern VN_API vn_ThreadLocal dtoa_threadLocalMemLeft;
/** @} */

VN_END_DECLS

#endif
