/** @file
 * Event writer: builds an event, a sequence or a dictionary from typed values and renders it as
 * one string.
 *
 *     VN_EventWriter* tick = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
 *     VN_EventWriter_addInt(tick, 5);
 *     VN_EventWriter_addString(tick, "a\"b");
 *     VN_EventWriter_addFloat(tick, 1.5);
 *     char* text = VN_EventWriter_toString(tick);       Tick(5,"a\"b",1.5)
 *     free(text);
 *     VN_EventWriter_dtor(tick);
 *
 * The text, without any blanks:
 *
 *     integer      signed decimal
 *     string       "content"; see escaping below
 *     character    the byte between double quotes, never escaped
 *     float        as vn_g_fmt writes it (numbers.h): .5  100  1e+06  NaN  -Infinity
 *     decimal      as vn_dec_to_string writes it (numbers.h): +15E-1
 *     boolean      true or false
 *     sequence     [element,element]
 *     dictionary   {key:value,key:value}
 *     event        name(field,field); nothing at all without a name
 *     unformatted  the text unchanged
 *
 * Values may be nested. An `any` is an event named any, with the unquoted name of the value's type
 * and the value: any(integer,5). An `optional` is an event named optional, with the value or
 * nothing: optional("x"), optional().
 *
 * Escaping. A string is escaped only if it has a backslash or a double quote: each of these gets a
 * backslash before it, a tab becomes `\t` and a newline `\n`.
 * Compat: a string with neither is written unchanged, also its tabs and newlines; readers of the
 * format rely on it.
 *
 * Ownership. Strings are copied when they are added. A child writer belongs to the writer that it
 * is added to. After that, the caller may add more to the child, but must not add it again, destroy
 * it or use it in another way. Null strings count as empty ones; a null child is kept as null,
 * except by VN_EventWriter_addRefValue.
 *
 * Memory comes from malloc and is not checked. Only memory limits the nesting depth: neither
 * rendering nor destruction is recursive. Cost: adding takes amortised constant time and one or two
 * allocations, rendering and destroying take linear time.
 *
 * Floating-point modes: the text is the same in every mode that the host has set (maths.h).
 *
 * Thread safety: none; one thread at a time builds and renders a writer (convention 8).
 */
#ifndef VNCOMMON_EVENT_WRITER_H
#define VNCOMMON_EVENT_WRITER_H

#include <string.h>
#include <vncommon/api.h>
#include <vncommon/vector.h>

VN_BEGIN_DECLS

/** The kinds of values and of writers; the numbers are part of the interface. */
enum {
    VN_EventKind_Integer = 0,     /**< signed 64-bit */
    VN_EventKind_String = 1,      /**< owned, NUL-terminated text */
    VN_EventKind_Character = 2,   /**< the low byte of the payload */
    VN_EventKind_Float = 3,       /**< the bits of a double */
    VN_EventKind_Decimal = 4,     /**< decimal64 in BID encoding */
    VN_EventKind_Boolean = 5,     /**< true when the payload's low byte is not 0 */
    VN_EventKind_Sequence = 6,    /**< owned child writer */
    VN_EventKind_Dictionary = 7,  /**< owned child writer */
    VN_EventKind_Event = 8,       /**< owned child writer */
    VN_EventKind_Unformatted = 9, /**< owned, NUL-terminated text */
    VN_EventKind_Wrapper = 10 /**< the writers of any and optional; as a value, renders nothing */
};

/** A value as the writers' Vectors hold it, one heap block per value. */
typedef struct VN_EventValue {
    void* payload; /**< one word, interpreted according to kind */
    uint32_t kind;
} VN_EventValue;

typedef struct VN_EventWriter VN_EventWriter;

/** Each writer has pointers to the operations, so that a caller that has only the record can use
 * them: `writer->addInt(writer, 5)`. Callers may read the fields; only the operations change them.
 */
struct VN_EventWriter {
    uint32_t kind;  /**< 6, 7 or 8; 10 for the wrappers of any and optional */
    char* name;     /**< owned type name of an event, or null */
    Vector* keys;   /**< of VN_EventValue*; a dictionary's keys, else empty */
    Vector* values; /**< of VN_EventValue*; fields, elements or the dictionary's values */

    void (*addInt)(VN_EventWriter* writer, int64_t value);
    void (*addString)(VN_EventWriter* writer, const char* text);
    void (*addChar)(VN_EventWriter* writer, int character);
    void (*addFloat)(VN_EventWriter* writer, double value);
    void (*addDecimal)(VN_EventWriter* writer, uint64_t value);
    void (*addBoolean)(VN_EventWriter* writer, int value);
    void (*addRefValue)(VN_EventWriter* writer, VN_EventWriter* child);
    void (*addValue)(VN_EventWriter* writer, uint32_t kind, void* payload);
    void (*addDictValue)(VN_EventWriter* writer, uint32_t keyKind, void* keyPayload,
                         uint32_t valueKind, void* valuePayload);
    void (*addAny)(VN_EventWriter* writer, uint32_t kind, void* payload, const char* typeName);
    void (*addOptional)(VN_EventWriter* writer, uint32_t kind, void* payload);
    char* (*toString)(const VN_EventWriter* writer);
    void (*addUnformatted)(VN_EventWriter* writer, const char* text);
    void (*addAnyType)(VN_EventWriter* writer, const char* text);
};

/** A new writer of kind 6, 7 or 8, destroyed by VN_EventWriter_dtor or with the writer that it is
 * added to. The name is copied; it is the type name of an event and may be null for the others. */
VN_NODISCARD VN_API VN_EventWriter* VN_EventWriter_ctor(uint32_t kind, const char* name);

/** Frees the writer and everything that it owns, also child writers. Null does nothing. */
VN_API void VN_EventWriter_dtor(VN_EventWriter* writer);

/** Adds an integer: an event's next field, or a sequence's next element. */
VN_API void VN_EventWriter_addInt(VN_EventWriter* writer, int64_t value);

/** Adds a string: an event's next field, or a sequence's next element. The text is copied. */
VN_API void VN_EventWriter_addString(VN_EventWriter* writer, const char* text);

/** Adds a character: an event's next field, or a sequence's next element. Keeps only the low byte
 * of its argument. */
VN_API void VN_EventWriter_addChar(VN_EventWriter* writer, int character);

/** Adds a float: an event's next field, or a sequence's next element. */
VN_API void VN_EventWriter_addFloat(VN_EventWriter* writer, double value);

/** Adds a decimal value (numbers.h): an event's next field, or a sequence's next element. */
VN_API void VN_EventWriter_addDecimal(VN_EventWriter* writer, uint64_t value);

/** Adds a boolean: an event's next field, or a sequence's next element. Keeps only the low byte of
 * its argument, so that 256 is false. */
VN_API void VN_EventWriter_addBoolean(VN_EventWriter* writer, int value);

/** Adds text that is written unchanged, without quotes. The text is copied. */
VN_API void VN_EventWriter_addUnformatted(VN_EventWriter* writer, const char* text);

/** Does the same as VN_EventWriter_addUnformatted. */
VN_API void VN_EventWriter_addAnyType(VN_EventWriter* writer, const char* text);

/** Adds a child, as a value of the child's own kind; the child now belongs to the writer. A null
 * child adds nothing. A child of kind 10 is neither rendered nor destroyed with its parent. */
VN_API void VN_EventWriter_addRefValue(VN_EventWriter* writer, VN_EventWriter* child);

/** Adds a value of any kind. The payload is the word of a VN_EventValue of that kind: a string,
 * which is copied (kinds 1 and 9); a child writer, which then belongs to the writer (6, 7 and 8);
 * otherwise the value itself, stored unchanged. A kind above 9 is stored and renders as nothing. */
VN_API void VN_EventWriter_addValue(VN_EventWriter* writer, uint32_t kind, void* payload);

/** Adds a key and its value: a dictionary's next entry. The payloads are as for
 * VN_EventWriter_addValue. */
VN_API void VN_EventWriter_addDictValue(VN_EventWriter* writer, uint32_t keyKind, void* keyPayload,
                                        uint32_t valueKind, void* valuePayload);

/** Adds an `any`: a value of kind 8 whose child is a kind-10 writer named "any". Unless kind is 10,
 * the child holds the type's name as an unformatted value, and the value. The type's name is
 *
 *     "integer", "string", "string", "float", "decimal", "boolean"    for kinds 0 to 5
 *     "string"                                                        for kind 9
 *     typeName                                                        for kinds 6 and 7
 *     the child's own name                                            for kind 8, but typeName if
 *         that name begins with "optional" or is missing
 *     "invalid"                                                       for kinds above 10
 *
 * typeName is copied; null counts as empty. */
VN_API void VN_EventWriter_addAny(VN_EventWriter* writer, uint32_t kind, void* payload,
                                  const char* typeName);

/** Adds an `optional`: as VN_EventWriter_addAny does, but with the name "optional" and the value
 * alone; empty for kind 10. */
VN_API void VN_EventWriter_addOptional(VN_EventWriter* writer, uint32_t kind, void* payload);

/** The payload word of an integer, for VN_EventWriter_addValue and similar calls. Also makes that
 * of a character, of a boolean (0 or 1), and of the bits of a decimal. */
static inline void* VN_EventPayload_ofInt(int64_t value) {
    void* payload;
    memcpy(&payload, &value, sizeof payload);
    return payload;
}

/** The payload word of a float, for VN_EventWriter_addValue and similar calls. */
static inline void* VN_EventPayload_ofFloat(double value) {
    void* payload;
    memcpy(&payload, &value, sizeof payload);
    return payload;
}

/** Whether the value owns a child writer: kinds 6, 7 and 8. */
VN_API bool VN_EventWriterIsReferenceType(const VN_EventValue* value) VN_PURE;

/** The writer as text, released with free; "" for a writer whose own kind is not 6, 7 or 8. */
VN_NODISCARD VN_API char* VN_EventWriter_toString(const VN_EventWriter* writer) VN_MALLOC;

/** One value as text, released with free. */
VN_NODISCARD VN_API char* valueToString(const VN_EventValue* value) VN_MALLOC;

/** The first of two passes for callers with their own buffer: the length of the value's text;
 * UINT32_MAX if it is longer than that. The payload is interpreted according to the argument kind,
 * not to the value's own. Null and kinds above 9 count 0.
 * Compat: a sequence or dictionary whose child is null counts 2, although only its opening bracket
 * is written; callers rely on the length. */
VN_API uint32_t VN_EventWriter_strlen(const VN_EventValue* value, uint32_t kind);

/** The second pass: writes the text at buffer[*position], without terminating it, and moves
 * *position to its end. The payload is interpreted according to the argument kind, not to the
 * value's own. Null and kinds above 9 write nothing.
 *
 * The limit bounds what is written, not how far the position moves:
 *  - brackets, commas, colons and the characters of an escaped string are written, and move the
 *    position, only while it is below the limit;
 *  - numbers, characters, booleans and unescaped strings are cut so that they and a terminator,
 *    which is written with them, end at buffer[limit] at the latest; the position moves by their
 *    whole length;
 *  - unformatted text likewise, but one byte earlier, and only below the limit: a bare kind-9
 *    value needs a limit of its length plus one;
 *  - decimals likewise, but they and their terminator end at most their own length after
 *    buffer[limit];
 *  - the name of an event is written whole if the position is at most the length of the name
 *    beyond the limit; otherwise it is not written and does not move the position.
 * With the length of the first pass as limit, and that many bytes plus one in the buffer, only a
 * bare kind-9 value is cut. With a smaller limit, the buffer needs after the limit twice the room
 * of the longest name or decimal (22 bytes), plus a terminator. The position stops at INT_MAX. */
VN_API void VN_EventWriter_buildString(const VN_EventValue* value, uint32_t kind, char* buffer,
                                       int* position, int limit);

VN_END_DECLS

#endif
