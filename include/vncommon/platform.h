/** @file
 * Descriptions of the processor and of the Linux distribution, one line each, for logs and
 * diagnostics; and two text helpers for reading the files that they come from.
 *
 * Ownership: both descriptions are made on the first call, kept for the life of the process and
 * belong to the library. The caller must not free or change them.
 *
 * Thread safety: every function may be called from any thread. First calls that race all return
 * the same text.
 *
 * Cost: the first call opens and reads a file, the others read a pointer.
 */
#ifndef VNCOMMON_PLATFORM_H
#define VNCOMMON_PLATFORM_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** The processor, from the first block of /proc/cpuinfo, in at most 1023 bytes. For example, on x86
 * and on ARM:
 *
 *     vendor GenuineIntel family 6 model 85 stepping 4: Intel(R) Xeon(R) Platinum 8124M
 *     implementer code 0x41 achitecture 8 part code 0xd0c: (null)
 *
 * Parts that the file does not have are left out, except the model name, which is then "(null)". A
 * file without any part gives " : (null)". If the file cannot be opened, "FAIL: " and the system's
 * error go to standard error (as perror writes them) and the result is "Unknown CPU". Exhausted
 * memory ends the process as in failure.h.
 * Compat: " achitecture " is misspelled; callers match the text. */
VN_API const char* vn_getCPUDetails(void);

/** The Linux distribution, from the first of these files that can be opened; "Unknown Linux
 * platform" if no file can be opened, if the file has no such value, or if memory for the
 * result runs out.
 *
 *     /etc/os-release, /usr/lib/os-release    NAME without its last byte, a blank, VERSION
 *                                             without its first byte (see below)
 *     /etc/lsb-release                        the value of DISTRIB_DESCRIPTION
 *     /etc/redhat-release, /etc/SuSE-release  the first line
 *     /etc/debian_version                     "Debian " and the first line
 *
 * Values are copied as they are, with their quotes. Reading of os-release stops at the VERSION
 * line, so a NAME after it is ignored.
 * Compat: in os-release only NAME's closing and VERSION's opening quote are removed, so the usual
 * quoted values give `"Debian GNU/Linux 12 (bookworm)"` with both quotes, and an unquoted value
 * loses its last or first byte; callers expect it. */
VN_API const char* vn_getFullPlatformName(void);

/** The value of a line "key: value": two bytes after its first colon, or the line's terminator
 * if there is no colon or the line ends before. Never null, never beyond the terminator. */
VN_API const char* find_colon(const char* line) VN_PURE VN_RETURNS_NONNULL;

/** Cuts text at its first line feed: writes the terminator there, or (again) at the text's end
 * if there is none. Returns the index of that terminator, the new length. */
VN_API size_t strip_linebreak(char* text);

VN_END_DECLS

#endif
