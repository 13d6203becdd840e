/* Small text functions: strict integer parsing, fixed-width hexadecimal, trimming, XML escaping,
 * boolean words. The callbacks for text keys of a map are in hashmap.h.
 *
 * None of these keeps state, so each may be called from any thread; none ends the process.
 */
#ifndef VNCOMMON_STRINGS_H
#define VNCOMMON_STRINGS_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/* ---- Integers ------------------------------------------------------------------------------
 *
 * Both parsers skip leading spaces and tabs (no other white space), then read one number and
 * stop behind its last digit: whatever follows is no error. A number is
 *   - "0x" or "0X" and hexadecimal digits of either case, at most 64 bits of them behind leading
 *     zeros; the signed parser returns the bits as they are, so 0xFFFFFFFFFFFFFFFF is -1;
 *   - or decimal digits. The locale plays no part.
 * The signs differ, deliberately:
 *   - signed:   an optional '-', no '+'. Only decimal digits follow it: "-0x10" reads as 0.
 *   - unsigned: an optional '+', no '-', before either form.
 *
 * On success *error is 0 and *end points behind the last digit. Otherwise the result is 0, *end
 * is not written and *error is
 *   - EINVAL (22): no digit where one must stand, a bare "0x" included;
 *   - ERANGE (34): the number does not fit.
 * Either pointer may be null. errno is not touched.
 */
VN_API int64_t vn_char8ToInt64(const char* text, const char** end, int32_t* error);
VN_API uint64_t vn_char8ToUInt64(const char* text, const char** end, int32_t* error);

/* Writes value as exactly eight lowercase hexadecimal digits and a terminator: 9 bytes. Returns
 * output. */
VN_API char* vn_uint32ToFixedHexChar8(char* output, uint32_t value);

/* ---- Text ---------------------------------------------------------------------------------- */

/* Cuts trailing white space off in place, by writing one terminator; a text that has none is not
 * written at all. White space is what isspace of the C locale in force says of each byte, taken
 * as a signed value. Nothing happens for null. For Unicode see vn_rTrimUTF8 (utf8.h). */
VN_API void vn_rtrim(char* text);

/* A new text for use in XML, released with free or vn_free: " & ' < > become &quot; &amp; &apos;
 * &lt; &gt;, and the control characters 1 to 31, which XML cannot hold, become a percent sign and
 * two lowercase hexadecimal digits. Tab, line feed, carriage return and all bytes from 127 up are
 * copied as they are; '%' is not escaped, so this is not for reading back. Null when there is no
 * memory. The block is larger than its text needs. */
VN_NODISCARD VN_API char* vn_xmlEscapeString(const char* text) VN_MALLOC;

/* 1 for "true", "t", "yes", "y" and "1" without regard to case, with nothing before or behind
 * them; 0 for every other text and for null. */
VN_API int vn_parseToBool(const char* text) VN_PURE;

/* Whether the text is null or "". */
VN_API bool vn_isEmptyString(const char* text) VN_PURE;

VN_END_DECLS

#endif
