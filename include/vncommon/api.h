/** @file
 * The common base of all public headers of libvncommon.
 *
 * Conventions that hold for the whole interface; the other headers refer to them by number.
 *
 *  1. Everything is plain C, callable from C11 and C++17, 64-bit Linux only.
 *  2. A record (a struct with public fields) that the caller embeds has _init and _cleanup (or
 *     _destroy); one that the library allocates has _ctor and _dtor.
 *  3. Strings are UTF-8 and NUL-terminated unless the header says otherwise. Names of files and
 *     libraries are converted to the locale's code page for system calls, and converted back in
 *     results (utf8.h).
 *  4. What a function allocates for its caller (a "new" string, array or object) belongs to the
 *     caller. Other results belong to the library or to an object, as the header says. Blocks from
 *     vn_malloc and from the platform's malloc are interchangeable: vn_free and free both release
 *     either.
 *  5. Failures come in three tiers. (a) A failed threading call is reported on standard error
 *     and the program goes on. (b) Broken preconditions and exhausted memory end the process
 *     (failure.h); some headers say that they do not check their memory. (c) Ordinary failures of
 *     files, sockets and dynamic libraries are returned as a newly allocated message; null means
 *     success.
 *  6. Compare callbacks return 0 for "equal"; the stored element comes first, the key second.
 *  7. Callbacks must not throw C++ exceptions, and the library itself throws none.
 *  8. An object is used by one thread at a time unless its header says otherwise.
 *  9. A null argument is undefined behaviour unless the header mentions null.
 *  10. Unless its header says otherwise, a function is not async-signal-safe and may change errno.
 */
#ifndef VNCOMMON_API_H
#define VNCOMMON_API_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/** @name Attributes
 * Attributes of the declarations, with which the compiler reports mistakes at the call. They expand
 * to nothing for a compiler that does not know them.
 *
 *     VN_API               exported by the shared library
 *     VN_NODISCARD         ignoring the result is a mistake: it must be freed, or it reports
 *                          whether the other results are valid; first in a declaration
 *     VN_PRINTF(f, a)      a printf format at position f, its arguments from a on (0: a va_list)
 *     VN_NORETURN          never returns
 *     VN_MALLOC            the result is a new block without pointers, or null
 *     VN_RETURNS_NONNULL   the result is never null
 *     VN_NONNULL           no pointer argument may be null
 *     VN_PURE              has no effect; the result depends on the arguments and on memory
 *     VN_CONST             has no effect; the result depends on the arguments alone
 *
 * VN_MALLOC names no function that releases the block: gcc would then report vn_free for a block of
 * malloc, which is allowed (convention 4). The library itself is compiled without the two macros
 * about null, because with them a compiler may remove the library's own tests for null.
 * @{ */

#if defined(__GNUC__)
#define VN_API __attribute__((visibility("default")))
#define VN_PRINTF(formatAt, firstAt) __attribute__((format(printf, formatAt, firstAt)))
#define VN_NORETURN __attribute__((noreturn))
#define VN_MALLOC __attribute__((malloc))
#define VN_PURE __attribute__((pure))
#define VN_CONST __attribute__((const))
#else
#define VN_API
#define VN_PRINTF(formatAt, firstAt)
#define VN_NORETURN
#define VN_MALLOC
#define VN_PURE
#define VN_CONST
#endif

#if defined(__GNUC__) && !defined(VN_BUILDING_LIBRARY)
#define VN_NONNULL __attribute__((nonnull))
#define VN_RETURNS_NONNULL __attribute__((returns_nonnull))
#else
#define VN_NONNULL
#define VN_RETURNS_NONNULL
#endif

/* The standard form where it exists: a cast to void silences it. gcc warns about the other form
 * even after such a cast. */
#if defined(__cplusplus) && __cplusplus >= 201703L
#define VN_NODISCARD [[nodiscard]]
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ > 201710L
#define VN_NODISCARD [[nodiscard]]
#elif defined(__GNUC__)
#define VN_NODISCARD __attribute__((warn_unused_result))
#else
#define VN_NODISCARD
#endif
/** @} */

#ifdef __cplusplus
#define VN_BEGIN_DECLS extern "C" {
#define VN_END_DECLS }
/* For the inline functions of the headers, so that they compile without a warning in C++, too. */
#define VN_CAST(type, value) static_cast<type>(value)
#define VN_NULL nullptr
#else
#define VN_BEGIN_DECLS
#define VN_END_DECLS
#define VN_CAST(type, value) ((type)(value))
#define VN_NULL NULL
#endif

#endif
