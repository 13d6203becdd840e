/** @file
 * Growable buffers: a string buffer for text and a byte buffer for binary contents.
 *
 * Both are plain records that the caller embeds, often on the stack. The functions manage only
 * the block that the record points to and never release the record. Call Init first and Destroy
 * last; in between the fields may be read, not written. Blocks come from vn_malloc (failure.h), so
 * an append does not report failures: if memory runs out, or the size overflows 64 bits, the
 * process ends with the message of vn_checkMemory.
 *
 * Growth, the same for every append of both buffers: with need = size + bytes to be added (one
 * for a single character, the worst case for the escapes), the string buffer grows when
 * need >= capacity, the byte buffer when need > capacity. The new capacity is need * 2 for a need
 * below 5000, else need + need / 2. Growing takes a new block, copies, and frees the old one, so
 * appending n bytes costs O(n) amortised. Pointers into the block (results of GetString,
 * GetBytes and the appends) hold until the next operation that grows or shrinks it.
 *
 * Sources: a null string is not an error; it is read as "null". A source may be inside the
 * buffer's own block, or be the buffer itself, also if the append makes the buffer grow.
 *
 * Not thread-safe: a buffer is used by one thread at a time (convention 8).
 */
#ifndef VNCOMMON_BUFFERS_H
#define VNCOMMON_BUFFERS_H

#include <stdarg.h>

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** @name String buffer
 * Holds a terminated string: after every operation size < capacity and data[size] is 0, except
 * after an oddity of vn_strbufAppendVA, below. The counted text may hold NUL bytes, but replacing
 * a block copies only its string: everything after the first NUL becomes NUL bytes.
 * @{ */

/** A growable string. */
typedef struct CStringBuffer {
    uint64_t size;     /**< characters in use, without the terminator */
    uint64_t capacity; /**< bytes of the block */
    char* data;        /**< the block */
} CStringBuffer;

/** Makes an empty string in a block of initialCapacity bytes (0 means 20). Returns the block. */
VN_API char* vn_strbufInit(CStringBuffer* buffer, uint64_t initialCapacity);

/** Frees the block when freeData is not 0. With 0 the block stays and belongs to the caller, who
 * releases it with vn_free. */
VN_API void vn_strbufDestroy(CStringBuffer* buffer, int freeData);

/** Appends a string. Returns where the appended text begins. */
VN_API char* vn_strbufAppendString(CStringBuffer* buffer, const char* text);

/** Appends exactly length characters: those of text, then NUL bytes if text is shorter. Null
 * appends the four characters "null". Returns the start of the block.
 * Compat: the NUL bytes are appended because callers lay out fixed-width fields this way. */
VN_API char* vn_strbufAppendStringN(CStringBuffer* buffer, const char* text, uint64_t length);

/** Appends character as one byte. */
VN_API void vn_strbufAppendChar(CStringBuffer* buffer, int character);

/** Appends the string of another buffer (up to its first NUL). Returns as
 * vn_strbufAppendString does. */
VN_API char* vn_strbufAppendBuf(CStringBuffer* buffer, const CStringBuffer* other);

/** Appends the formatted arguments, of any length. A null format appends "null", an empty one
 * nothing. Arguments that cannot be formatted (a wide character that the locale lacks) append
 * nothing.
 * Compat: an empty result of a format that is not empty ends the process, with
 * vn_checkError(1, "vn_strbufAppendFormat: vsnprintf"); callers rely on it. */
VN_API void vn_strbufAppendFormat(CStringBuffer* buffer, const char* format, ...) VN_PRINTF(2, 3);

/** vn_strbufAppendFormat for an argument list, with a fixed limit. The list must not be used again.
 * Makes room for 10000 characters and writes at most 9999 of them.
 * Compat: two results are odd; callers rely on them:
 *  - an empty result adds 10000 to size and sets the byte at index 10000 of the block (not of the
 *    appended part) to 0; the added bytes are NUL bytes;
 *  - a result longer than 9999 characters adds its whole length to size, although only 9999 are
 *    written. The string ends early, and size may exceed capacity until the next append makes
 *    the buffer grow. */
VN_API void vn_strbufAppendVA(CStringBuffer* buffer, const char* format, va_list arguments)
    VN_PRINTF(2, 0);

/** Appends text with escapes; all other bytes are copied, tabs and control characters included.
 * Grows as for twice the length.
 *
 *     newline            \n
 *     carriage return    \r
 *     "                  \"
 *     \                  \\
 */
VN_API void vn_strbufAppendStringEscape(CStringBuffer* buffer, const char* text);

/** Appends text with escapes for a reader that removes escapes twice; all other bytes are
 * copied. Grows as for four times the length.
 *
 *     newline            \n
 *     carriage return    \r
 *     "                  \"
 *     ;                  \\;
 *     \                  \\\\
 */
VN_API void vn_strbufAppendStringEscapeSemiColon(CStringBuffer* buffer, const char* text);

/** Appends the contents of a file. The buffer grows as if it were read in steps of 100 bytes. Null
 * on success; otherwise a new message, released with vn_free:
 *
 *     "Can't open file due to error: %s"   the system's message; the buffer is unchanged
 *     "Problem while reading from file"    the part that was read stays appended
 */
VN_NODISCARD VN_API char* vn_strbufAppendFile(CStringBuffer* buffer, const char* path) VN_MALLOC;

/** Cuts the text to newSize characters; does nothing if it is not longer. A block much larger than
 * the new text (newSize + 20000 < capacity and newSize * 2 < capacity) is replaced by one of
 * newSize * 2 bytes, at least 20. */
VN_API void vn_strbufTruncate(CStringBuffer* buffer, uint64_t newSize);

/** The string; owned by the buffer. */
VN_API char* vn_strbufGetString(const CStringBuffer* buffer) VN_PURE;

/** The number of characters in use, without the terminator. */
VN_API uint64_t vn_strbufGetSize(const CStringBuffer* buffer) VN_PURE;

/* The usual case of vn_strbufAppendChar is inlined, because the call costs more than the work;
 * measured: see docs/benchmarks.md. The exported function does the same; taking the address gives
 * the exported one. */
#if defined(__GNUC__) && !defined(VN_BUILDING_LIBRARY)
extern inline __attribute__((gnu_inline)) void vn_strbufAppendChar(CStringBuffer* buffer,
                                                                   int character) {
    if (buffer->size + 1 < buffer->capacity) {
        char* end = buffer->data + buffer->size;
        ++buffer->size;
        end[0] = VN_CAST(char, character);
        end[1] = '\0';
    } else {
        const char byte = VN_CAST(char, character);
        vn_strbufAppendStringN(buffer, &byte, 1);
    }
}
#endif
/** @} */

/** @name Byte buffer
 * Holds any bytes, without a terminator: size <= capacity.
 * @{ */

/** A growable byte array. */
typedef struct CByteBuffer {
    uint64_t size;     /**< bytes in use */
    uint64_t capacity; /**< bytes of the block */
    uint8_t* data;     /**< the block */
} CByteBuffer;

/** Makes an empty buffer with an uninitialised block of initialCapacity bytes (0 means 20). Returns
 * the block. */
VN_API uint8_t* vn_bytebufInit(CByteBuffer* buffer, uint64_t initialCapacity);

/** Frees the block when freeData is not 0. With 0 the block stays and belongs to the caller, who
 * releases it with vn_free. */
VN_API void vn_bytebufDestroy(CByteBuffer* buffer, int freeData);

/** Appends the characters of a string without its terminator. Returns where they begin. */
VN_API uint8_t* vn_bytebufAppendString(CByteBuffer* buffer, const char* text);

/** Appends length bytes; null appends nothing. Returns where they begin. */
VN_API uint8_t* vn_bytebufAppendBytes(CByteBuffer* buffer, const void* bytes, uint64_t length);

/** Appends one byte. Returns its index. */
VN_API uint64_t vn_bytebufAppendByte(CByteBuffer* buffer, int byte);

/** Inserts length bytes before the contents; null inserts nothing. Cost: linear in both sizes. */
VN_API void vn_bytebufInsertBytesAtStart(CByteBuffer* buffer, const void* bytes, uint64_t length);

/** Cuts the contents to newSize bytes; does nothing if they are not longer. Shrinks the block under
 * the same condition as the string buffer.
 * Compat: the new block has exactly newSize * 2 bytes, also 0, because callers rely on having no
 * minimum. */
VN_API void vn_bytebufTruncate(CByteBuffer* buffer, uint64_t newSize);

/** The number of bytes in use. */
VN_API uint64_t vn_bytebufGetSize(const CByteBuffer* buffer) VN_PURE;

/** The bytes; owned by the buffer. */
VN_API uint8_t* vn_bytebufGetBytes(const CByteBuffer* buffer) VN_PURE;
/** @} */

VN_END_DECLS

#endif
