/* What every public header of libvncommon starts from.
 *
 * Conventions that hold for the whole interface; the other headers refer to them by number.
 *
 *  1. Everything is plain C, callable from C11 and C++17, 64-bit Linux only.
 *  2. A record that the caller embeds has _init and _cleanup (or _destroy); one that the
 *     library allocates has _ctor and _dtor.
 *  3. All text is UTF-8 and NUL-terminated. Names of files and libraries are converted to the
 *     locale's code page on the way to the system and back on the way in (utf8.h).
 *  4. Memory that a function returns to its caller is the caller's. Blocks from vn_malloc and
 *     from the platform's malloc are interchangeable: vn_free and free both release either.
 *  5. Failures come in three tiers. (a) A failed threading call is reported on standard error
 *     and the program goes on. (b) Broken preconditions and exhausted memory end the process
 *     (failure.h). (c) Ordinary failures of files, sockets and dynamic libraries come back as a
 *     newly allocated message text, null meaning success.
 *  6. Compare callbacks return 0 for "equal"; the stored element comes first, the probe second.
 *  7. Callbacks must not throw C++ exceptions, and the library itself throws none.
 *  8. An object is used by one thread at a time unless its header says otherwise.
 *  9. A null pointer where no header mentions null is outside the contract.
 */
#ifndef VNCOMMON_API_H
#define VNCOMMON_API_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* Marks what the shared library exports. */
#define VN_API __attribute__((visibility("default")))

/* Lets the compiler check the arguments of the functions that take a format: the position of
 * the format and of its first argument (0 when they come as a va_list), counted from 1. */
#define VN_PRINTF(formatAt, firstAt) __attribute__((format(printf, formatAt, firstAt)))

/* Marks a function that never returns. */
#define VN_NORETURN __attribute__((noreturn))

#ifdef __cplusplus
#define VN_BEGIN_DECLS extern "C" {
#define VN_END_DECLS }
#else
#define VN_BEGIN_DECLS
#define VN_END_DECLS
#endif

#endif
