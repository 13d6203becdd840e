/* UTF-8, UTF-16 and the locale's code page.
 *
 * Three groups: conversions between UTF-8 and the code page of the process's locale, between
 * UTF-8 and UTF-16, and small tools that work on UTF-8 in place without allocating.
 *
 * Text is NUL-terminated (api.h, convention 3); a null pointer is outside the contract. A text
 * that a function returns as "new" comes from malloc and is released with free or vn_free.
 *
 * Thread-safety: every function may be called from any thread.
 *
 * Fork: fork() waits for conversions that are opening or closing ICU's converters, so that ICU's
 * own locks are free in the child. It cannot wait for the program's own calls of ICU.
 */
#ifndef VNCOMMON_UTF8_H
#define VNCOMMON_UTF8_H

#include <stdio.h>
#include <vncommon/api.h>

VN_BEGIN_DECLS

/* ---- The locale's code page ----------------------------------------------------------------
 *
 * The environment decides: the first of LC_ALL, LC_CTYPE and LANG that is defined, even when it
 * is empty, and of its value what follows the first '.', up to the end ("UTF-8" of
 * "en_US.UTF-8", "UTF-8@euro" of "de_DE.UTF-8@euro"). It is read once, at the first call of
 * vn_getCodepage or of a conversion; later changes of the environment are not seen.
 */

/* The name of the code page, or null when the environment names none; ICU's default converter
 * then serves. The text lies in the environment: do not free or change it. */
VN_API const char* vn_getCodepage(void);

/* A new text: the input, which is in the code page, as UTF-8. Bytes that mean nothing in the
 * code page are replaced by U+FFFD. When the code page is unknown to ICU, or anything else
 * fails, the result is a copy of the input. Null only when there is no memory.
 * Cost: some microseconds for opening two converters, then a few nanoseconds per byte. */
VN_NODISCARD VN_API char* vn_CstrToUTF8(const char* text) VN_MALLOC VN_NONNULL;

/* The same, for an argument of the command line, which is in the code page too. */
VN_NODISCARD VN_API char* vn_cmdlineToUTF8(const char* argument) VN_MALLOC VN_NONNULL;

/* A new text: the input, which is UTF-8, in the code page. The result is a copy of the input,
 * never a changed or shortened text, when
 *  - the input is not well-formed,
 *  - the code page lacks one of its characters, or is unknown to ICU,
 *  - its form in the code page is more than two bytes longer than the input. This bound is
 *    deliberate.
 * A file name is thus either converted exactly or handed on as it is. Null only when there is
 * no memory. Cost as for vn_CstrToUTF8. */
VN_NODISCARD VN_API char* vn_UTF8ToCstr(const char* text) VN_MALLOC VN_NONNULL;

/* Whether a descriptor, or the descriptor of a stream, is a terminal: 1 or 0. errno is left as
 * isatty leaves it. */
VN_API int vn_isConsole(int descriptor);
VN_API int vn_isConsoleFile(FILE* stream);

/* ---- UTF-16 --------------------------------------------------------------------------------
 *
 * UTF-16 text is an array of 16-bit units in the byte order of the machine, ended by a zero
 * unit. Unlike vn_isUTF8, the conversions reject surrogates that are encoded in UTF-8.
 */

/* A new text in the other encoding; null when the input is malformed (in UTF-16: a surrogate
 * without its partner) or there is no memory. */
VN_NODISCARD VN_API char* vn_getUTF8(const uint16_t* text) VN_MALLOC VN_NONNULL;
VN_NODISCARD VN_API uint16_t* vn_getUTF16(const char* text) VN_MALLOC VN_NONNULL;

/* The number of 16-bit units before the terminating zero unit. */
VN_API unsigned int vn_codeUnitsUTF16(const uint16_t* text) VN_PURE VN_NONNULL;

/* ---- Questions about a whole text ---------------------------------------------------------- */

/* 1 if no byte has its top bit set (so for the empty text), else 0. */
VN_API int vn_isAscii(const char* text) VN_PURE VN_NONNULL;

/* 1 if the text is valid UTF-8, else 0: shortest forms only, nothing above U+10FFFF, no
 * truncated character. Deliberately, the encoded surrogates ED A0 80 to ED BF BF are valid.
 * Nothing after the terminator is read. Cost: vector instructions where the processor has
 * them; on ASCII, little more than strlen. */
VN_API int vn_isUTF8(const char* text) VN_PURE VN_NONNULL;

/* The byte-order mark EF BB BF: whether the text begins with it (1 or 0), the text behind it
 * (or the text itself when it has none), and the mark as a static text. */
VN_API int vn_hasUTF8BOM(const char* text) VN_PURE VN_NONNULL;
VN_API const char* vn_skipUTF8BOM(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;
VN_API const char* vn_getUTF8BOM(void) VN_CONST VN_RETURNS_NONNULL;

/* ---- Stepping ------------------------------------------------------------------------------
 *
 * These trust the lead byte of each character and look at no continuation byte, so the text
 * must not end inside a character: use vn_isUTF8 first on text from outside. The lead byte
 * gives the length: 00-7F 1, C0-DF 2, E0-EF 3, F0-F4 4. C0 and C1 count as leads here although
 * no valid text holds them. 80-BF and F5-FF cannot begin a character: "invalid" below.
 */

/* Bytes of the character at text, 1 to 4; 0 at the terminator and at an invalid byte. */
VN_API unsigned char vn_UTF8CharLength(const char* text) VN_PURE VN_NONNULL;

/* The number of characters in text; 0 when an invalid byte is met. Cost: that of vn_isUTF8 and a
 * count of bytes where the text is valid; elsewhere one step per character. */
VN_API int vn_UTF8Length(const char* text) VN_PURE VN_NONNULL;

/* The number of characters that begin in [start, end). A terminator in between counts as one;
 * an invalid byte ends the count before it. All bytes of the range must be readable. Cost as for
 * vn_UTF8Length. */
VN_API int vn_UTF8CountChars(const char* start, const char* end) VN_PURE VN_NONNULL;

/* count characters further, but not past the terminator and not past an invalid byte. A
 * negative count sets no limit. */
VN_API const char* vn_UTF8SkipChars(const char* text,
                                    int count) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/* The lead byte of the character that holds this byte: back over all continuation bytes
 * (80-BF). There must be a lead byte: nothing else ends the search. */
VN_API const char* vn_findUTF8Start(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/* Copies the character at source and terminates the copy. destination has room for 8 bytes: at
 * an invalid byte, 7 bytes of the source are copied and terminated. Callers rely on the copy
 * being made even so. */
VN_API void vn_copyUTF8Char(char* destination, const char* source) VN_NONNULL;

/* 1 if the byte is an ASCII letter, else 0; the locale plays no part. */
VN_API int vn_UTF8isAsciiLetter(char character) VN_CONST;

/* ---- Comparison ---------------------------------------------------------------------------- */

/* Compares without regard to case: negative, 0 or positive.
 * Two ASCII texts compare as strcasecmp has it. Otherwise Unicode's default case folding and
 * canonical equivalence apply, in the order of the UTF-16 units of the decomposed texts (so an
 * accented letter stands behind its plain one). A malformed text then equals every other, since
 * nothing can be said about it, and so does every text without memory. Only this second way
 * allocates.
 * What strcasecmp makes of I and i depends on the locale of the calling thread.
 * Cost on ASCII: both texts are scanned to their ends, then strcasecmp. */
VN_API int vn_UTF8CaseCmp(const char* a, const char* b) VN_NONNULL;

/* ---- White space ---------------------------------------------------------------------------
 *
 * White space is U+0009-000D, U+001C-0020, U+00A0, U+1680, U+180E, U+2000-200A, U+2028, U+2029,
 * U+202F, U+205F and U+3000: with the no-break spaces, without U+0085. The locale plays no part.
 */

/* The first character that is not white space, or the terminator. */
VN_API const char* vn_skipSpacesUTF8(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

/* The end of the text without its trailing white space: the place for a terminator. The text is
 * not changed, and nothing before it is read. */
VN_API const char* vn_rTrimUTF8(const char* text) VN_PURE VN_NONNULL VN_RETURNS_NONNULL;

VN_END_DECLS

#endif
