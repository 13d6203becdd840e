/** @file
 * Event reader: reads the text of an event, a sequence or a dictionary back into an event writer
 * (event_writer.h), which holds the values and can render them again. Since 1.1.
 *
 *     VN_EventReader reader;
 *     VN_EventReader_init(&reader);
 *     VN_EventWriter* tick = VN_EventReader_read(&reader, text, strlen(text));
 *     if (tick == NULL) {
 *         printf("%s at byte %zu\n", reader.error, reader.position);
 *     }
 *     VN_EventWriter_dtor(tick);
 *
 * What is read renders as the same bytes: nothing is normalised, and a text that the writer would
 * not write is an error. In detail:
 *
 *     "content"      a string (kind 1). Its escapes must be as the writer's: all or none
 *                    (event_writer.h).
 *     """  "\"       a character (kind 2): a quote; a backslash, unless a string can begin like
 *                    this. The byte 0 between quotes is also one. All others read as strings of one
 *                    byte, because they are written like them.
 *     true, false    a boolean
 *     -5  1e+06  .5  +15E-1   an integer, a float or a decimal: the first of them that the writer
 *                    writes as these bytes. So 100 is an integer, and a float without fraction or
 *                    exponent is one as well.
 *     [ ] { } ( )    a sequence, a dictionary, an event
 *     other bytes    unformatted text (kind 9), up to a comma, a bracket or, in a key, a colon;
 *                    also numbers in another form: 1.50, +5, 007, integers beyond 64 bits
 *     no bytes       empty unformatted text; an event without a name and a missing key are written
 *                    like this
 *
 * An `any` and an `optional` read as events of that name; a type name with a comma reads as two
 * values. The name of an event is any text without comma, bracket or zero byte that does not begin
 * with a quote; in a key, it has no colon. Blanks are bytes like all others. Bytes from 128 on are
 * not checked.
 *
 * Errors. VN_EventReader_read returns null and sets `error` to one of these strings, and `position`
 * to the offset of a byte:
 *
 *     "text too long"                              maxSize
 *     "nested too deeply"                          the opening bracket
 *     "unexpected end"                             the length of the text
 *     "event, sequence or dictionary expected"     the first byte that cannot belong to one
 *     "comma or closing bracket expected"          the byte after a value
 *     "colon expected"                             the byte after a key
 *     "zero byte"                                  that byte
 *     "unknown escape"                             the backslash
 *     "needless escape"                            the backslash; the string has `\t` or `\n`, but
 *                                                  neither `\"` nor `\\`
 *     "tab or line feed not escaped"               that byte; the string has `\"` or `\\`
 *     "text after the end"                         the first byte after the value
 *
 * Memory comes from malloc and is not checked, as in the event writer. The values need much more
 * than their text, up to some 200 bytes for each byte of it: maxSize limits that. A text of opening
 * brackets needs up to some 430 bytes for each byte until its error is found: maxDepth limits that.
 *
 * Stack: leave 40 KiB. Words are read with vn_strtod, which needs that (numbers.h) for words that
 * only begin like a number, `text` and `-` among them.
 *
 * Cost: linear in the length of the text. Nothing is recursive.
 *
 * Floating-point modes: the values are the same in every mode that the host has set (maths.h).
 *
 * Thread safety: a reader is used by one thread at a time (convention 8). Not async-signal-safe.
 */
#ifndef VNCOMMON_EVENT_READER_H
#define VNCOMMON_EVENT_READER_H

#include <vncommon/api.h>
#include <vncommon/event_writer.h>

VN_BEGIN_DECLS

enum {
    VN_EventReader_defaultDepth = 100,       /**< maxDepth after VN_EventReader_init */
    VN_EventReader_defaultSize = 1024 * 1024 /**< maxSize after VN_EventReader_init */
};

/** Limits and result of a read. Owns nothing, so it needs no cleanup. The caller may change the
 * limits between reads. */
typedef struct VN_EventReader {
    uint32_t maxDepth; /**< largest nesting depth: open brackets at the same time */
    size_t maxSize;    /**< largest length of a text in bytes */
    const char* error; /**< null, or what was wrong; static string */
    size_t position;   /**< the offset of the error; without an error, how much was read */
} VN_EventReader;

/** Sets the default limits, no error, and position 0. Since 1.1. */
VN_API void VN_EventReader_init(VN_EventReader* reader);

/** Reads a text that is exactly one event, sequence or dictionary. length is its number of bytes;
 * the text needs no terminator, and may be null if length is 0. Sets the reader's error and
 * position.
 *
 * Returns a new writer, which the caller destroys with VN_EventWriter_dtor or adds to another one.
 * It does not refer to the text. Null after an error; nothing stays allocated then. errno does not
 * change. Since 1.1. */
VN_NODISCARD VN_API VN_EventWriter* VN_EventReader_read(VN_EventReader* reader, const char* text,
                                                        size_t length);

VN_END_DECLS

#endif
