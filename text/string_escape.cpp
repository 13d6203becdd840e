// The escaping appends of the string buffer: runs that need no escape are copied whole.
#include <array>
#include <bit>
#include <cstring>

#include "text/buffers.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

// The escape of one character. Text is copied with the fixed width of its table, so that table's
// room per character is never less than that.
struct Escape {
    char character;
    uint8_t length;
    char text[5];
};

constexpr std::array<Escape, 4> plainEscapes = {{
    {'\n', 2, "\\n"},
    {'\r', 2, "\\r"},
    {'"', 2, "\\\""},
    {'\\', 2, "\\\\"},
}};

// For a reader that removes escapes twice.
constexpr std::array<Escape, 5> semiColonEscapes = {{
    {'\n', 2, "\\n"},
    {'\r', 2, "\\r"},
    {'"', 2, "\\\""},
    {';', 3, "\\\\;"},
    {'\\', 4, "\\\\\\\\"},
}};

// escapes: the table. width: the longest escape, which is the room kept for each character.
template <const auto& escapes, size_t width>
struct Escaper {
    // By byte: the number of its escape counted from 1, or 0.
    static constexpr std::array<uint8_t, 256> escapeOf = [] {
        std::array<uint8_t, 256> table = {};
        for (size_t i = 0; i < escapes.size(); ++i) {
            table[static_cast<uint8_t>(escapes[i].character)] = static_cast<uint8_t>(i + 1);
        }
        return table;
    }();

#ifdef __SSE2__
    // Copies 16 bytes; bit i of the result tells that byte i needs an escape.
    static unsigned copyBlock(char* to, const char* from) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
        __m128i found = _mm_setzero_si128();
        for (const Escape& escape : escapes) {
            found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(escape.character)));
        }
        return static_cast<unsigned>(_mm_movemask_epi8(found));
    }

    // Copies blocks up to the first character that needs an escape, or to the last whole block.
    static void copyBlocks(char*& to, const char*& from, const char* end) {
        while (end - from >= 16) {
            const unsigned found = copyBlock(to, from);
            const int clean = found == 0 ? 16 : std::countr_zero(found);
            to += clean;
            from += clean;
            if (found != 0) {
                return;
            }
        }
    }
#else
    static void copyBlocks(char*&, const char*&, const char*) {}
#endif

    // to has room for width bytes per character. Returns the end of what was written.
    static char* escape(char* to, const char* from, const char* end) {
        while (from != end) {
            copyBlocks(to, from, end);
            uint8_t escapeNumber = 0;
            while (from != end && (escapeNumber = escapeOf[static_cast<uint8_t>(*from)]) == 0) {
                *to++ = *from++;
            }
            if (from != end) {
                const Escape& escape = escapes[escapeNumber - 1u];
                memcpy(to, escape.text, width);
                to += escape.length;
                ++from;
            }
        }
        return to;
    }

    static void append(CStringBuffer* buffer, const char* text) {
        if (text == nullptr) {
            text = "null";
        }
        const uint64_t length = strlen(text);
        const vncommon::ReplacedBlock replaced = vncommon::reserve(buffer, width * length);
        char* end = escape(buffer->data + buffer->size, text, text + length);
        *end = '\0';
        buffer->size = static_cast<uint64_t>(end - buffer->data);
    }
};

}  // namespace

void vn_strbufAppendStringEscape(CStringBuffer* buffer, const char* text) {
    Escaper<plainEscapes, 2>::append(buffer, text);
}

void vn_strbufAppendStringEscapeSemiColon(CStringBuffer* buffer, const char* text) {
    Escaper<semiColonEscapes, 4>::append(buffer, text);
}
