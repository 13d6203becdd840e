/** @file
 * Small string functions: strict integer parsing, fixed-width hexadecimal, trimming, XML escaping,
 * boolean words. The callbacks for string keys of a map are in hashmap.h.
 *
 * No function keeps state, so each may be called from any thread. None ends the process.
 */
#ifndef VNCOMMON_STRINGS_H
#define VNCOMMON_STRINGS_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** @name Integers
 * Both parsers skip leading spaces and tabs (no other white space), then read one number and
 * stop after its last digit; any text may follow. A number is
 *   - "0x" or "0X" and hexadecimal digits of either case, at most 64 bits after leading zeros;
 *     the signed parser returns the bits unchanged, so 0xFFFFFFFFFFFFFFFF is -1;
 *   - or decimal digits. The locale has no effect.
 * Compat: the two parsers accept different signs; callers rely on it:
 *   - signed:   an optional '-', no '+'. Only decimal digits follow it: "-0x10" reads as 0.
 *   - unsigned: an optional '+', no '-', before either form.
 *
 * On success *error is 0 and *end points to the character after the last digit. Otherwise the
 * result is 0, *end is not written and *error is
 *   - EINVAL (22): a digit is missing, also after "0x";
 *   - ERANGE (34): the number does not fit.
 * end and error may be null. errno does not change.
 * @{ */

/** Reads a signed number at the start of text, as above. */
VN_API int64_t vn_char8ToInt64(const char* text, const char** end, int32_t* error);

/** Reads an unsigned number at the start of text, as above. */
VN_API uint64_t vn_char8ToUInt64(const char* text, const char** end, int32_t* error);

/** Writes value as exactly eight lowercase hexadecimal digits and a terminator: 9 bytes. Returns
 * output. */
VN_API char* vn_uint32ToFixedHexChar8(char* output, uint32_t value);
/** @} */

/** @name Strings
 * @{ */

/** Removes trailing white space in place by writing one terminator; a string without any is not
 * written to. White space is every byte for which isspace, in the current C locale and with the
 * byte as a signed value, is true. Null does nothing. For Unicode see vn_rTrimUTF8 (utf8.h). */
VN_API void vn_rtrim(char* text);

/** A new string for use in XML, released with free or vn_free: " & ' < > become the entities quot,
 * amp, apos, lt and gt, and the control characters 1 to 31, which XML cannot hold, become a percent
 * sign and two lowercase hexadecimal digits. Tab, line feed, carriage return and all bytes from 127
 * up are copied unchanged. The percent sign is not escaped, so the result cannot always be
 * converted back. Null if memory runs out. The block may be larger than its string. */
VN_NODISCARD VN_API char* vn_xmlEscapeString(const char* text) VN_MALLOC;

/** 1 for exactly "true", "t", "yes", "y" and "1", in upper or lower case; 0 for every other string
 * and for null. */
VN_API int vn_parseToBool(const char* text) VN_PURE;

/** Whether the string is null or "". */
VN_API bool vn_isEmptyString(const char* text) VN_PURE;
/** @} */

VN_END_DECLS

#endif
