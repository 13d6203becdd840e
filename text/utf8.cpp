// Byte-order mark and stepping from character to character. Validation, white space and the
// conversions have files of their own beside this one.
#include <vncommon/utf8.h>

#include <array>

namespace {

constexpr uint8_t notALead = 7;
constexpr char utf8Bom[] = "\xEF\xBB\xBF";

// Bytes of the character that a lead byte starts. C0 and C1 are leads here on purpose, although
// the validator rejects them.
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

}  // namespace

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
    int count = 0;
    for (; *text != '\0'; ++count) {
        const uint8_t length = lengthAt(text);
        if (length == notALead) {
            return 0;
        }
        text += length;
    }
    return count;
}

int vn_UTF8CountChars(const char* start, const char* end) {
    int count = 0;
    for (; start < end && lengthAt(start) != notALead; ++count) {
        start += lengthAt(start);
    }
    return count;
}

const char* vn_UTF8SkipChars(const char* text, int count) {
    for (; count != 0 && *text != '\0' && lengthAt(text) != notALead; count -= count > 0) {
        text += lengthAt(text);
    }
    return text;
}

const char* vn_findUTF8Start(const char* text) {
    while ((static_cast<uint8_t>(*text) & 0xC0) == 0x80) {
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
