/** @file
 * The version of the library: of these headers, and of the library that is loaded.
 *
 * The three numbers below are the only place that defines it; the build reads them from here.
 * Versions follow semantic versioning. The major number is the SONAME's: it changes when a program
 * linked against an earlier version would have to be changed or compiled again.
 *
 * A function whose comment says "Since 1.1." is missing from libraries before that version; all
 * others have been there since 1.0.
 */
#ifndef VNCOMMON_VERSION_H
#define VNCOMMON_VERSION_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

#define VN_VERSION_MAJOR 1
#define VN_VERSION_MINOR 1
#define VN_VERSION_PATCH 0

/** A version as one number; a later version has a larger number: 10203 for 1.2.3. */
#define VN_VERSION_NUMBER_OF(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))

/** The version of these headers as such a number. */
#define VN_VERSION_NUMBER VN_VERSION_NUMBER_OF(VN_VERSION_MAJOR, VN_VERSION_MINOR, VN_VERSION_PATCH)

/** Whether these headers are of that version or a later one. Can be used in `#if`. */
#define VN_VERSION_AT_LEAST(major, minor, patch) \
    (VN_VERSION_NUMBER >= VN_VERSION_NUMBER_OF(major, minor, patch))

/* Helpers for VN_VERSION_STRING. */
#define VN_VERSION_LITERAL(number) #number
#define VN_VERSION_TEXT(major, minor, patch) \
    VN_VERSION_LITERAL(major) "." VN_VERSION_LITERAL(minor) "." VN_VERSION_LITERAL(patch)

/** The version of these headers as a literal, "1.2.3". */
#define VN_VERSION_STRING VN_VERSION_TEXT(VN_VERSION_MAJOR, VN_VERSION_MINOR, VN_VERSION_PATCH)

/** The version of the library that is loaded, "1.2.3"; it may be later than VN_VERSION_STRING, with
 * which the caller was compiled. Static text: do not free it. Any thread, also in a signal handler.
 * Since 1.1. */
VN_API const char* vn_version(void);

VN_END_DECLS

#endif
