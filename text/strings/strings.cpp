// Integer parsing, fixed-width hexadecimal, trimming, XML escaping, boolean words.
#include <vncommon/strings.h>

#include <strings.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// ---- Integers ----

struct Parsed {
    uint64_t value;
    const char* end;
    int32_t error;
};

constexpr uint8_t noDigit = 0xFF;

constexpr std::array<uint8_t, 256> makeHexValues() {
    std::array<uint8_t, 256> values{};
    values.fill(noDigit);
    for (uint8_t i = 0; i < 16; ++i) {
        const char digit = hexDigits[i];
        values[static_cast<uint8_t>(digit)] = i;
        values[static_cast<uint8_t>(digit >= 'a' ? digit - 'a' + 'A' : digit)] = i;
    }
    return values;
}

constexpr std::array<uint8_t, 256> hexValues = makeHexValues();

const char* skipBlanks(const char* text) {
    while (*text == ' ' || *text == '\t') {
        ++text;
    }
    return text;
}

bool hasHexPrefix(const char* text) {
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

Parsed parseHex(const char* digits) {
    uint64_t value = 0;
    const char* at = digits;
    for (;; ++at) {
        const uint8_t digit = hexValues[static_cast<uint8_t>(*at)];
        if (digit == noDigit) {
            return {value, at, at == digits ? EINVAL : 0};
        }
        if (value > UINT64_MAX >> 4) {
            return {0, at, ERANGE};
        }
        value = value << 4 | digit;
    }
}

unsigned decimalDigit(const char* text) {
    return static_cast<unsigned>(static_cast<uint8_t>(*text)) - '0';  // above 9 if not a digit
}

// 18 digits cannot overflow, so only later digits are checked.
Parsed parseDecimal(const char* digits, uint64_t maximum) {
    uint64_t value = 0;
    const char* at = digits;
    unsigned digit = decimalDigit(at);
    // An address as a number: a short text ends before it, and a pointer must not leave the text.
    const auto unchecked = reinterpret_cast<uintptr_t>(digits) + 18;
    for (; digit <= 9 && reinterpret_cast<uintptr_t>(at) != unchecked; digit = decimalDigit(at)) {
        value = value * 10 + digit;
        ++at;
    }
    for (; digit <= 9; digit = decimalDigit(++at)) {
        if (value > maximum / 10 || (value == maximum / 10 && digit > maximum % 10)) {
            return {0, at, ERANGE};
        }
        value = value * 10 + digit;
    }
    return {value, at, at == digits ? EINVAL : 0};
}

uint64_t storeResult(const Parsed& parsed, const char** end, int32_t* error) {
    VN_ASSERT(parsed.error == 0 || parsed.value == 0);
    if (error) {
        *error = parsed.error;
    }
    if (parsed.error != 0) {
        return 0;
    }
    if (end) {
        *end = parsed.end;
    }
    return parsed.value;
}

// ---- XML ----

struct Escape {
    char text[6];
    uint8_t size;
    uint8_t extra;  // added to the measured size of the block, see measureExtra
};

constexpr Escape makeEscape(uint8_t byte) {
    switch (byte) {
        case '"':
            return {{'&', 'q', 'u', 'o', 't', ';'}, 6, 5};
        case '&':
            return {{'&', 'a', 'm', 'p', ';'}, 5, 4};
        case '\'':
            return {{'&', 'a', 'p', 'o', 's', ';'}, 6, 5};
        case '<':
            return {{'&', 'l', 't', ';'}, 4, 3};
        case '>':
            return {{'&', 'g', 't', ';'}, 4, 3};
        default:
            break;
    }
    if (byte < 32 && byte != '\t' && byte != '\n' && byte != '\r') {
        return {{'%', hexDigits[byte >> 4], hexDigits[byte & 15]}, 3, 1};
    }
    return {{static_cast<char>(byte)}, 1, 0};
}

constexpr std::array<Escape, 256> makeEscapes() {
    std::array<Escape, 256> escapes{};
    for (size_t byte = 1; byte < escapes.size(); ++byte) {
        escapes[byte] = makeEscape(static_cast<uint8_t>(byte));
    }
    return escapes;
}

constexpr std::array<Escape, 256> escapes = makeEscapes();

const Escape& escapeOf(char c) {
    return escapes[static_cast<uint8_t>(c)];
}

// Blocks without a byte that may need an escape are copied whole, for speed on plain text;
// measured: see docs/benchmarks.md.
constexpr ptrdiff_t blockSize = 16;

bool isPlainBlock(const char* bytes) {
    using Bytes [[gnu::vector_size(blockSize)]] = uint8_t;
    using Words [[gnu::vector_size(blockSize)]] = uint64_t;
    Bytes block;
    std::memcpy(&block, bytes, sizeof block);
    const auto special = reinterpret_cast<Words>((block < 32) | (block == '"') | (block == '&') |
                                                 (block == '\'') | (block == '<') | (block == '>'));
    return (special[0] | special[1]) == 0;
}

size_t measureExtra(const char* text, const char* end) {
    size_t extra = 0;
    while (text != end) {
        const ptrdiff_t size = std::min(blockSize, end - text);
        if (size < blockSize || !isPlainBlock(text)) {
            for (ptrdiff_t i = 0; i < size; ++i) {
                extra += escapeOf(text[i]).extra;
            }
        }
        text += size;
    }
    return extra;
}

// The output has at least as much room as there is text left. So while eight bytes of text are
// left, all eight bytes of an escape's record are written, without a branch.
char* writeEscaped(char* output, const char* text, const char* end) {
    VN_ASSERT(text <= end);
    while (end - text >= blockSize) {
        if (isPlainBlock(text)) {
            std::memcpy(output, text, blockSize);
            output += blockSize;
            text += blockSize;
            continue;
        }
        for (const char* const stop = text + blockSize - sizeof(Escape); text != stop; ++text) {
            std::memcpy(output, &escapeOf(*text), sizeof(Escape));
            output += escapeOf(*text).size;
        }
    }
    for (; text != end; ++text) {
        const Escape& escape = escapeOf(*text);
        for (uint8_t i = 0; i < escape.size; ++i) {
            *output++ = escape.text[i];
        }
    }
    return output;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

int64_t vn_char8ToInt64(const char* text, const char** end, int32_t* error) {
    text = skipBlanks(text);
    if (hasHexPrefix(text)) {
        return static_cast<int64_t>(storeResult(parseHex(text + 2), end, error));
    }
    if (*text == '-') {
        const auto limit = static_cast<uint64_t>(INT64_MAX) + 1;
        return static_cast<int64_t>(-storeResult(parseDecimal(text + 1, limit), end, error));
    }
    return static_cast<int64_t>(storeResult(parseDecimal(text, INT64_MAX), end, error));
}

uint64_t vn_char8ToUInt64(const char* text, const char** end, int32_t* error) {
    text = skipBlanks(text);
    text += *text == '+';
    return storeResult(hasHexPrefix(text) ? parseHex(text + 2) : parseDecimal(text, UINT64_MAX),
                       end, error);
}

char* vn_uint32ToFixedHexChar8(char* output, uint32_t value) {
    for (unsigned i = 0; i < 8; ++i) {
        output[i] = hexDigits[value >> (28 - 4 * i) & 15];
    }
    output[8] = '\0';
    return output;
}

void vn_rtrim(char* text) {
    if (vn_isEmptyString(text)) {
        return;
    }
    char* const end = text + std::strlen(text);
    char* at = end;
    while (at != text && std::isspace(static_cast<signed char>(at[-1]))) {
        --at;
    }
    if (at != end) {
        *at = '\0';
    }
}

char* vn_xmlEscapeString(const char* text) {
    const size_t size = std::strlen(text);
    const char* const end = text + size;
    const size_t blockBytes = size + 2 * measureExtra(text, end) + 1;
    auto* const block = static_cast<char*>(std::malloc(blockBytes));
    if (block) {
        char* const terminator = writeEscaped(block, text, end);
        VN_ASSERT(terminator < block + blockBytes);
        *terminator = '\0';
    }
    return block;
}

int vn_parseToBool(const char* text) {
    if (text) {
        for (const char* accepted : {"true", "t", "yes", "y", "1"}) {
            if (strcasecmp(text, accepted) == 0) {
                return 1;
            }
        }
    }
    return 0;
}

bool vn_isEmptyString(const char* text) {
    return !text || *text == '\0';
}
