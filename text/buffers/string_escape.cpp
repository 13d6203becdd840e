// The escaping appends of the string buffer. Text that needs no escape is copied in blocks.
#include <vncommon/buffers.h>

#include <array>
#include <bit>
#include <cstring>

#include "text/buffers/buffer_growth.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vncommon {
namespace {

// The text that is written for one byte.
struct Translation {
    char text[4];
    uint8_t length;
};

using Translations = std::array<Translation, 256>;

constexpr Translations copies = [] {
    Translations table = {};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        table[byte] = {{static_cast<char>(byte)}, 1};
    }
    return table;
}();

constexpr Translations plainTranslations = [] {
    Translations table = copies;
    table['\n'] = {{'\\', 'n'}, 2};
    table['\r'] = {{'\\', 'r'}, 2};
    table['"'] = {{'\\', '"'}, 2};
    table['\\'] = {{'\\', '\\'}, 2};
    return table;
}();

// For a reader that removes escapes twice.
constexpr Translations semiColonTranslations = [] {
    Translations table = plainTranslations;
    table[';'] = {{'\\', '\\', ';'}, 3};
    table['\\'] = {{'\\', '\\', '\\', '\\'}, 4};
    return table;
}();

// width is the length of the longest translation, and the room reserved for each character. So
// every character can be written with width bytes; the next one overwrites the surplus.
template <const Translations& translations, size_t width>
struct Escaper {
    static char* translate(char* to, const char* from, const char* end) {
        for (; from != end; ++from) {
            const Translation& translation = translations[static_cast<uint8_t>(*from)];
            memcpy(to, translation.text, width);
            to += translation.length;
        }
        return to;
    }

#ifdef __SSE2__
    static constexpr ptrdiff_t blockSize = 16;

    // Copies a block. Bit i of the result is set if byte i needs an escape.
    static unsigned copyBlock(char* to, const char* from) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
        __m128i found = _mm_setzero_si128();
        for (const char special : {'\n', '\r', '"', '\\', ';'}) {
            if (translations[static_cast<uint8_t>(special)].length != 1) {
                found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8(special)));
            }
        }
        return static_cast<unsigned>(_mm_movemask_epi8(found));
    }

    // Copies whole blocks. A block with more than two characters to escape is translated byte by
    // byte, at a cost that does not depend on its contents.
    static char* escape(char* to, const char* from, const char* end) {
        while (end - from >= blockSize) {
            const unsigned found = copyBlock(to, from);
            const unsigned afterFirst = found & (found - 1);
            if (found == 0) {
                to += blockSize;
                from += blockSize;
            } else if ((afterFirst & (afterFirst - 1)) == 0) {
                const int clean = std::countr_zero(found);
                to = translate(to + clean, from + clean, from + clean + 1);
                from += clean + 1;
            } else {
                to = translate(to, from, from + blockSize);
                from += blockSize;
            }
        }
        return translate(to, from, end);
    }
#else
    static char* escape(char* to, const char* from, const char* end) {
        return translate(to, from, end);
    }
#endif

    static void append(CStringBuffer* buffer, const char* text) {
        if (text == nullptr) {
            text = "null";
        }
        const uint64_t length = strlen(text);
        VN_ASSERT(isValid(buffer));
        const ReplacedBlock replaced = reserve(buffer, width * length);
        char* end = escape(buffer->data + buffer->size, text, text + length);
        *end = '\0';
        buffer->size = static_cast<uint64_t>(end - buffer->data);
        VN_ASSERT(isTerminated(buffer));
    }
};

}  // namespace
}  // namespace vncommon

using namespace vncommon;

void vn_strbufAppendStringEscape(CStringBuffer* buffer, const char* text) {
    Escaper<plainTranslations, 2>::append(buffer, text);
}

void vn_strbufAppendStringEscapeSemiColon(CStringBuffer* buffer, const char* text) {
    Escaper<semiColonTranslations, 4>::append(buffer, text);
}
