// Byte-order mark, stepping from character to character, and counting. The other utf8_ files hold
// validation, white space and the conversions.
#include <vncommon/utf8.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/assertion.h"
#include "text/utf8/utf8_kernel.h"

namespace vncommon {
namespace {

constexpr uint8_t notALead = 7;
constexpr char utf8Bom[] = "\xEF\xBB\xBF";

// The length in bytes of the character that a lead byte starts.
// Compat: C0 and C1 are leads here although the validator rejects them; callers rely on it.
constexpr std::array<uint8_t, 256> makeLengths() {
    std::array<uint8_t, 256> lengths{};
    for (size_t byte = 0; byte < lengths.size(); ++byte) {
        lengths[byte] = byte < 0x80   ? 1
                        : byte < 0xC0 ? notALead
                        : byte < 0xE0 ? 2
                        : byte < 0xF0 ? 3
                        : byte < 0xF5 ? 4
                                      : notALead;
    }
    return lengths;
}

constexpr std::array<uint8_t, 256> utf8_length = makeLengths();

uint8_t lengthAt(const char* text) {
    return utf8_length[static_cast<uint8_t>(*text)];
}

bool isInvalid(const char* text) {
    return lengthAt(text) == notALead;
}

struct Counted {
    const char* next;  // where counting continues: after the last character, or at an invalid byte
    size_t characters;
};

Counted countByTable(const char* text, const char* end) {
    size_t count = 0;
    for (; text < end && !isInvalid(text); ++count) {
        text += lengthAt(text);
    }
    return {text, count};
}

// The sum of a block fits in one byte, so compilers can add sixteen or more bytes at a time.
size_t countLeads(const char* text, size_t size) {
    constexpr size_t blockSize = 240;
    size_t count = 0;
    for (const char* const end = text + size; text != end;) {
        const char* const blockEnd = text + std::min(blockSize, static_cast<size_t>(end - text));
        uint8_t inBlock = 0;
        for (; text != blockEnd; ++text) {
            inBlock = static_cast<uint8_t>(inBlock + !isContinuation(*text));
        }
        VN_ASSERT(inBlock <= blockSize);
        count += inBlock;
    }
    return count;
}

// The characters that begin in a stretch. In valid text, that is the number of lead bytes. A
// stretch that is not valid is halved, and only the smallest parts are counted with the table: it
// is slow, because each step needs the length of the character before. A last character that
// continues after the stretch may be left for the next stretch.
Counted countStretch(const char* text, size_t size) {
    constexpr size_t smallest = 64;
    const char* const end = text + size;
    if (isAsciiBytes(text, size)) {
        return {end, size};
    }
    if (size < smallest) {
        return countByTable(text, end);
    }
    const size_t whole = wholeCharacters(text, size);
    if (isUtf8Bytes(text, whole)) {
        return {text + whole, countLeads(text, whole)};
    }
    const Counted first = countStretch(text, size / 2);  // ends at most 3 bytes after the half
    VN_ASSERT(first.next >= text && first.next <= text + size / 2 + 3);
    if (isInvalid(first.next)) {
        return first;
    }
    const Counted second = countStretch(first.next, static_cast<size_t>(end - first.next));
    return {second.next, first.characters + second.characters};
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

int vn_hasUTF8BOM(const char* text) {
    return text[0] == utf8Bom[0] && text[1] == utf8Bom[1] && text[2] == utf8Bom[2];
}

const char* vn_skipUTF8BOM(const char* text) {
    return vn_hasUTF8BOM(text) ? text + 3 : text;
}

const char* vn_getUTF8BOM() {
    return utf8Bom;
}

unsigned char vn_UTF8CharLength(const char* text) {
    const uint8_t length = lengthAt(text);
    return *text == '\0' || length == notALead ? uint8_t{0} : length;
}

int vn_UTF8Length(const char* text) {
    size_t count = 0;
    while (*text != '\0') {
        if (isInvalid(text)) {
            return 0;
        }
        const auto [next, characters] = countStretch(text, strnlen(text, stretchSize));
        VN_ASSERT(next > text);
        text = next;
        count += characters;
    }
    return static_cast<int>(count);
}

int vn_UTF8CountChars(const char* start, const char* end) {
    size_t count = 0;
    while (start < end && !isInvalid(start)) {
        const size_t size = std::min(stretchSize, static_cast<size_t>(end - start));
        const auto [next, characters] = countStretch(start, size);
        VN_ASSERT(next > start || isInvalid(next));
        start = next;
        count += characters;
    }
    return static_cast<int>(count);
}

const char* vn_UTF8SkipChars(const char* text, int count) {
    for (; count != 0 && *text != '\0' && !isInvalid(text); count -= count > 0) {
        text += lengthAt(text);
    }
    return text;
}

const char* vn_findUTF8Start(const char* text) {
    while (isContinuation(*text)) {
        --text;
    }
    return text;
}

void vn_copyUTF8Char(char* destination, const char* source) {
    const uint8_t length = lengthAt(source);
    if (length == notALead) {
        destination[0] = '\0';
    }
    for (uint8_t i = 0; i < length; ++i) {
        destination[i] = source[i];
    }
    destination[length] = '\0';
}

int vn_UTF8isAsciiLetter(char character) {
    const int upper = static_cast<uint8_t>(character) & ~0x20;
    return upper >= 'A' && upper <= 'Z';
}
