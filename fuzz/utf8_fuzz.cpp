// The in-place UTF-8 functions, compared with decoding by arithmetic. An input is the misalignment
// of the text, a second text to compare with, and the text.
#include <unicode/unorm.h>
#include <vncommon/utf8.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/oracles.h"

namespace {

using fuzz::CodePoint;
using Points = std::vector<CodePoint>;

bool isWhite(uint32_t value) {
    static constexpr uint32_t others[] = {0x20,   0xA0,   0x1680, 0x180E, 0x2028,
                                          0x2029, 0x202F, 0x205F, 0x3000};
    return (value >= 0x09 && value <= 0x0D) || (value >= 0x1C && value <= 0x1F) ||
           (value >= 0x2000 && value <= 0x200A) ||
           std::find(std::begin(others), std::end(others), value) != std::end(others);
}

// The end of leading white space in arbitrary bytes.
size_t whiteAtStart(const std::string& text) {
    size_t position = 0;
    while (position < text.size()) {
        const auto point = fuzz::decodeOne(std::string_view(text).substr(position));
        if (!point || !isWhite(point->value)) {
            break;
        }
        position += point->length;
    }
    return position;
}

// The start of trailing white space in arbitrary bytes.
size_t whiteAtEnd(const std::string& text) {
    size_t end = text.size();
    for (size_t length = 1; length <= std::min<size_t>(end, 3);) {
        const auto point = fuzz::decodeOne(std::string_view(text).substr(end - length, length));
        if (point && point->length == length && isWhite(point->value)) {
            end -= length;
            length = 1;
        } else {
            ++length;
        }
    }
    return end;
}

void checkStepping(const char* text, size_t length, const Points& points) {
    const int count = static_cast<int>(points.size());
    FUZZ_REQUIRE(vn_UTF8Length(text) == count);
    FUZZ_REQUIRE(vn_UTF8CountChars(text, text + length) == count);
    FUZZ_REQUIRE(vn_UTF8SkipChars(text, -1) == text + length);
    FUZZ_REQUIRE(vn_UTF8SkipChars(text, count + 1) == text + length);
    const char* position = text;
    for (int i = 0; i < std::min(count, 64); ++i) {
        const size_t bytes = points[static_cast<size_t>(i)].length;
        FUZZ_REQUIRE(vn_UTF8CharLength(position) == bytes);
        FUZZ_REQUIRE(vn_UTF8SkipChars(text, i) == position);
        FUZZ_REQUIRE(vn_UTF8CountChars(text, position) == i);
        char copy[8];
        vn_copyUTF8Char(copy, position);
        FUZZ_REQUIRE(std::string(position, bytes) == copy);
        FUZZ_REQUIRE(vn_findUTF8Start(position + bytes - 1) == position);
        position += bytes;
    }
}

// The position where stepping by lead bytes ends: at an invalid one, or at or after the end.
struct Walk {
    size_t position;
    int count;
};

Walk walk(const char* text, size_t length) {
    size_t position = 0;
    int count = 0;
    for (; position < length; ++count) {
        const auto lead = static_cast<uint8_t>(text[position]);
        if ((lead >= 0x80 && lead < 0xC0) || lead > 0xF4) {
            break;
        }
        position += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    }
    return {position, count};
}

// Malformed text. vn_UTF8Length and vn_UTF8SkipChars are not called if stepping would leave the
// text, which is outside the contract.
void checkMalformed(const char* text, size_t length) {
    for (size_t part = length; part > 0; part /= 2) {
        FUZZ_REQUIRE(vn_UTF8CountChars(text, text + part) == walk(text, part).count);
    }
    const auto [position, count] = walk(text, length);
    if (position > length) {
        return;
    }
    FUZZ_REQUIRE(vn_UTF8Length(text) == (position < length ? 0 : count));
    FUZZ_REQUIRE(vn_UTF8SkipChars(text, -1) == text + position);
    FUZZ_REQUIRE(vn_UTF8CharLength(text + position) == 0);
}

bool isAscii(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

// UTF-16 of well-formed text without surrogates; otherwise null.
std::optional<std::u16string> toUtf16(const std::string& text) {
    const auto points = fuzz::decodeUtf8(text);
    if (!points) {
        return std::nullopt;
    }
    std::u16string units;
    for (const CodePoint& point : *points) {
        if (fuzz::isSurrogate(point.value)) {
            return std::nullopt;
        }
        if (point.value >= 0x10000) {
            units += static_cast<char16_t>(0xD800 + ((point.value - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + (point.value & 0x3FF));
        } else {
            units += static_cast<char16_t>(point.value);
        }
    }
    return units;
}

int compareFolded(const std::string& a, const std::string& b) {
    const auto first = toUtf16(a);
    const auto second = toUtf16(b);
    if (!first || !second) {
        return 0;
    }
    UErrorCode status = U_ZERO_ERROR;
    return unorm_compare(first->c_str(), -1, second->c_str(), -1, U_COMPARE_IGNORE_CASE, &status);
}

void checkComparison(const std::string& a, const std::string& b) {
    const fuzz::ExactText first(a);
    const fuzz::ExactText second(b, 1);
    const int expected =
        isAscii(a) && isAscii(b) ? strcasecmp(a.c_str(), b.c_str()) : compareFolded(a, b);
    FUZZ_REQUIRE(sign(vn_UTF8CaseCmp(first.get(), second.get())) == sign(expected));
    FUZZ_REQUIRE(sign(vn_UTF8CaseCmp(second.get(), first.get())) == -sign(expected));
}

void checkMark(const char* text, const std::string& content) {
    const bool hasMark = content.compare(0, 3, "\xEF\xBB\xBF") == 0;
    FUZZ_REQUIRE(vn_hasUTF8BOM(text) == hasMark);
    FUZZ_REQUIRE(vn_skipUTF8BOM(text) == text + (hasMark ? 3 : 0));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const size_t shift = input.byte() % 64;
    const std::string other = input.terminatedText();
    const std::string content = input.terminatedRest();
    const fuzz::ExactText exact(content, shift);
    const char* text = exact.get();

    FUZZ_REQUIRE(vn_isAscii(text) == isAscii(content));
    const auto points = fuzz::decodeUtf8(content);
    FUZZ_REQUIRE(vn_isUTF8(text) == points.has_value());
    if (points) {
        checkStepping(text, content.size(), *points);
    } else {
        checkMalformed(text, content.size());
    }
    FUZZ_REQUIRE(vn_skipSpacesUTF8(text) == text + whiteAtStart(content));
    FUZZ_REQUIRE(vn_rTrimUTF8(text) == text + whiteAtEnd(content));
    checkMark(text, content);
    checkComparison(content, other);
    checkComparison(content, content);
    return 0;
}
