/** @file
 * UTF-8, UTF-16 and the locale's code page.
 *
 * Three groups: conversions between UTF-8 and the code page of the process's locale, conversions
 * between UTF-8 and UTF-16, and small functions on UTF-8 that do not allocate.
 *
 * Strings are NUL-terminated (api.h, convention 3); null pointers are not allowed. A new string
 * comes from malloc; the caller releases it with free or vn_free.
 *
 * Thread safety: every function may be called from any thread.
 *
 * Fork: fork() waits while another thread opens or closes ICU converters in this library, so that
 * ICU's own locks are free in the child. It cannot wait for the program's own calls of ICU.
 */
#ifndef VNCOMMON_UTF8_H
#define VNCOMMON_UTF8_H

#include <stdio.h>
#include <vncommon/api.h>

VN_BEGIN_DECLS

/** @name The locale's code page
 * It comes from the environment: from the first of LC_ALL, LC_CTYPE and LANG that is defined, even
 * if empty. The code page is everything after the first '.' of its value ("UTF-8" of
 * "en_US.UTF-8", `"UTF-8@euro"` of `"de_DE.UTF-8@euro"`). It is read once, at the first call of
 * vn_getCodepage or of a conversion; later changes of the environment have no effect.
 * @{ */

/** The name of the code page, or null when the environment names none; the conversions then use
 * ICU's default converter. The text is part of the environment: do not free or change it. */
VN_API const char* vn_getCodepage(void);

/** A new string: the input, which is in the code page, converted to UTF-8. Bytes that are invalid
 * in the code page become U+FFFD. When the code page is unknown to ICU, or anything else fails, the
 * result is a copy of the input. Null only if memory runs out.
 * Cost: opening two converters, then linear; measured: see docs/benchmarks.md. */
VN_NODISCARD VN_API char* vn_CstrToUTF8(const char* text) VN_MALLOC VN_NONNULL;

/** vn_CstrToUTF8 for an argument of the command line, which is in the code page too. */
VN_NODISCARD VN_API char* vn_cmdlineToUTF8(const char* argument) VN_MALLOC VN_NONNULL;

/** A new string: the input, which is UTF-8, converted to the code page. The result is a copy of the
 * input, never a changed or shortened text, when
 *  - the input is not well-formed,
 *  - the code page lacks one of its characters, or is unknown to ICU,
 *  - the converted text would be more than two bytes longer than the input.
 * So a file name is either converted exactly or returned unchanged. Null only if memory runs
 * out. Cost as for vn_CstrToUTF8.
 * Compat: the bound of two bytes stays; callers rely on the copy. */
VN_NODISCARD VN_API char* vn_UTF8ToCstr(const char* text) VN_MALLOC VN_NONNULL;

/** Whether a descriptor is a terminal: 1 or 0. errno is set as by isatty. */
VN_API int vn_isConsole(int descriptor);

/** Whether the descriptor of a stream is a terminal: 1 or 0. errno is set as by isatty. */
VN_API int vn_isConsoleFile(FILE* stream);
/** @} */

/** @name UTF-16
 * UTF-16 text is an array of 16-bit units in the byte order of the machine, terminated by a zero
 * unit. Unlike vn_isUTF8, the conversions reject surrogates that are encoded in UTF-8.
 * @{ */

/** A new string in UTF-8 from UTF-16; null when the input is malformed (a surrogate without its
 * partner) or memory runs out. */
VN_NODISCARD VN_API char* vn_getUTF8(const uint16_t* text) VN_MALLOC VN_NONNULL;

/** A new string in UTF-16 from UTF-8; null when the input is malformed or memory runs out. */
VN_NODISCARD VN_API uint16_t* vn_getUTF16(const char* text) VN_MALLOC VN_NONNULL;

/** The number of 16-bit units before the terminating zero unit. */
VN_API unsigned int vn_codeUnitsUTF16(const uint16_t* text) VN_PURE VN_NONNULL;
/** @} */

/** @name Tests of a whole string
 * @{ */

/** 1 if no byte has its top bit set (also for the empty text), else 0. */
VN_API int vn_isAscii(const char* text) VN_PURE VN_NONNULL;

/** 1 if the text is valid UTF-8, else 0: shortest forms only, nothing above U+10FFFF, no
 * truncated character. Nothing after the terminator is read. Cost: linear, with vector
 * instructions where the processor has them; on ASCII, little more than strlen.
 * Compat: the encoded surrogates ED A0 80 to ED BF BF are valid; callers rely on it. */
VN_API int vn_isUTF8(const char* text) VN_PURE VN_NONNULL;

/** Whether the text begins with the byte-order mark EF BB BF: 1 or 0. */
VN_API int vn_hasUTF8BOM(const char* text) VN_PURE VN_NONNULL;

/** The text after its byte-order mark EF BB BF; the text itself when it has none. */
VN_API const char* vn_skipUTF8BOM(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/** The byte-order mark EF BB BF as a static string. */
VN_API const char* vn_getUTF8BOM(void) VN_CONST VN_RETURNS_NONNULL;
/** @} */

/** @name Iterating over characters
 * These functions trust the lead byte of each character and do not check its continuation bytes,
 * so the text must not end inside a character: use vn_isUTF8 first on text from outside. The lead
 * byte gives the length: 00-7F 1, C0-DF 2, E0-EF 3, F0-F4 4. 80-BF and F5-FF cannot begin a
 * character: they are called "invalid" below.
 * Compat: C0 and C1 count as lead bytes although no valid text holds them; callers rely on it.
 * @{ */

/** Bytes of the character at text, 1 to 4; 0 at the terminator and at an invalid byte. */
VN_API unsigned char vn_UTF8CharLength(const char* text) VN_PURE VN_NONNULL;

/** The number of characters in text; 0 if it has an invalid byte. Above INT_MAX characters it wraps
 * (modulo 2^32). Cost: vn_isUTF8 and a count of bytes where the text is valid; elsewhere one step
 * per character. */
VN_API int vn_UTF8Length(const char* text) VN_PURE VN_NONNULL;

/** The number of characters that begin in [start, end). A terminator in between counts as one;
 * an invalid byte ends the count before it. All bytes of the range must be readable. It wraps and
 * costs as vn_UTF8Length does. */
VN_API int vn_UTF8CountChars(const char* start, const char* end) VN_PURE VN_NONNULL;

/** Skips count characters, but stops at the terminator and at an invalid byte. A negative count
 * sets no limit. */
VN_API const char* vn_UTF8SkipChars(const char* text,
                                    int count) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/** The lead byte of the character that contains this byte: moves back over all continuation bytes
 * (80-BF). There must be such a byte, because nothing else ends the search. */
VN_API const char* vn_findUTF8Start(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/** Copies the character at source and terminates the copy. destination has room for 8 bytes.
 * Compat: at an invalid byte, 7 bytes of the source are copied and terminated; callers rely on
 * it. */
VN_API void vn_copyUTF8Char(char* destination, const char* source) VN_NONNULL;

/** 1 if the byte is an ASCII letter, else 0, in every locale. */
VN_API int vn_UTF8isAsciiLetter(char character) VN_CONST;
/** @} */

/** @name Comparison
 * @{ */

/** Compares without regard to case: negative, 0 or positive.
 * Two ASCII strings are compared with strcasecmp. Otherwise Unicode's default case folding and
 * canonical equivalence apply, in the order of the UTF-16 units of the decomposed strings (so an
 * accented letter comes after its plain one). A malformed string then equals every other, and so
 * does every string if memory runs out. Only this second comparison allocates.
 * How strcasecmp compares I and i depends on the locale of the calling thread.
 * Cost on ASCII: both strings are scanned to their ends, then strcasecmp. */
VN_API int vn_UTF8CaseCmp(const char* a, const char* b) VN_NONNULL;
/** @} */

/** @name White space
 * White space is U+0009-000D, U+001C-0020, U+00A0, U+1680, U+180E, U+2000-200A, U+2028, U+2029,
 * U+202F, U+205F and U+3000, in every locale. The no-break spaces are included.
 * Compat: U+0085 is not included; callers rely on it.
 * @{ */

/** The first character that is not white space, or the terminator. */
VN_API const char* vn_skipSpacesUTF8(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/** The end of the text without its trailing white space, where a caller may write a terminator. The
 * text is not changed, and nothing before its start is read. */
VN_API const char* vn_rTrimUTF8(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;
/** @} */

VN_END_DECLS

#endif
