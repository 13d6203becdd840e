// Integer parsing, compared with a grammar and exact 128-bit arithmetic; the other text functions.
#include <gtest/gtest.h>
#include <malloc.h>
#include <vncommon/strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

__extension__ typedef __int128 Wide;

struct Outcome {
    Wide value = 0;
    int32_t error = 0;
    ptrdiff_t end = -1;  // -1: not written
};

enum class Sign { minus, plus };

// The expected result. Unlike the parsers, collects all digits first and computes the value then.
Outcome expected(const std::string& text, Sign sign) {
    const std::string decimal = "0123456789";
    const size_t blanks = std::min(text.find_first_not_of(" \t"), text.size());
    size_t at = blanks;
    if (sign == Sign::plus && text[at] == '+') {
        ++at;
    }
    const bool hex = text.substr(at, 2) == "0x" || text.substr(at, 2) == "0X";
    bool negative = false;
    if (hex) {
        at += 2;
    } else if (sign == Sign::minus && text[at] == '-') {
        negative = true;
        ++at;
    }
    const size_t end =
        std::min(text.find_first_not_of(hex ? decimal + "abcdefABCDEF" : decimal, at), text.size());
    if (end == at) {
        return {0, EINVAL, -1};
    }
    Wide value = 0;
    const Wide tooMuch = Wide{1} << 100;
    for (; at < end && value < tooMuch; ++at) {
        const int digit = text[at] <= '9' ? text[at] - '0' : (text[at] & ~0x20) - 'A' + 10;
        value = value * (hex ? 16 : 10) + digit;
    }
    Wide maximum = std::numeric_limits<uint64_t>::max();
    if (sign == Sign::minus && !hex) {
        maximum = Wide{std::numeric_limits<int64_t>::max()} + (negative ? 1 : 0);
    }
    if (value > maximum) {
        return {0, ERANGE, -1};
    }
    if (sign == Sign::minus && hex) {
        value = static_cast<int64_t>(static_cast<uint64_t>(value));
    }
    return {negative ? -value : value, 0, static_cast<ptrdiff_t>(end)};
}

template <class Parse>
Outcome parsed(const std::string& text, Parse parse) {
    Outcome outcome;
    const char* end = nullptr;
    outcome.error = -7;
    outcome.value = parse(text.c_str(), &end, &outcome.error);
    outcome.end = end ? end - text.c_str() : -1;
    EXPECT_EQ(Wide{parse(text.c_str(), nullptr, nullptr)}, outcome.value);
    return outcome;
}

void expectBothParsers(const std::string& text) {
    const Outcome wantedInt = expected(text, Sign::minus);
    const Outcome gotInt = parsed(text, vn_char8ToInt64);
    ASSERT_TRUE(gotInt.value == wantedInt.value && gotInt.error == wantedInt.error &&
                gotInt.end == wantedInt.end)
        << "vn_char8ToInt64 of '" << text << "': " << static_cast<int64_t>(gotInt.value)
        << " error " << gotInt.error << " end " << gotInt.end;
    const Outcome wantedUInt = expected(text, Sign::plus);
    const Outcome gotUInt = parsed(text, vn_char8ToUInt64);
    ASSERT_TRUE(gotUInt.value == wantedUInt.value && gotUInt.error == wantedUInt.error &&
                gotUInt.end == wantedUInt.end)
        << "vn_char8ToUInt64 of '" << text << "': " << static_cast<uint64_t>(gotUInt.value)
        << " error " << gotUInt.error << " end " << gotUInt.end;
}

int64_t toInt64(const char* text, int32_t& error, const char** end = nullptr) {
    return vn_char8ToInt64(text, end, &error);
}
uint64_t toUInt64(const char* text, int32_t& error, const char** end = nullptr) {
    return vn_char8ToUInt64(text, end, &error);
}

TEST(Int64, KnownCases) {
    int32_t error = -1;
    const char* end = nullptr;
    EXPECT_EQ(toInt64("  -9223372036854775808", error), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(error, 0);
    EXPECT_EQ(toInt64("9223372036854775807", error), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(error, 0);
    EXPECT_EQ(toInt64("9223372036854775808", error), 0);
    EXPECT_EQ(error, 34);
    EXPECT_EQ(toInt64("-9223372036854775809", error), 0);
    EXPECT_EQ(error, 34);
    EXPECT_EQ(toInt64("+5", error), 0);
    EXPECT_EQ(error, 22);
    EXPECT_EQ(toInt64("0x", error), 0);
    EXPECT_EQ(error, 22);
    EXPECT_EQ(toInt64("\n5", error), 0);
    EXPECT_EQ(error, 22);
    EXPECT_EQ(toInt64("0xFFFFFFFFFFFFFFFF", error), -1);
    EXPECT_EQ(error, 0);
    const char* hex = "0x10zz";
    EXPECT_EQ(toInt64(hex, error, &end), 16);
    EXPECT_EQ(end, hex + 4);
    const char* negative = "-0x10";
    EXPECT_EQ(toInt64(negative, error, &end), 0);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(end, negative + 2);
}

TEST(UInt64, KnownCases) {
    int32_t error = -1;
    EXPECT_EQ(toUInt64("+5", error), 5U);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(toUInt64("-1", error), 0U);
    EXPECT_EQ(error, 22);
    EXPECT_EQ(toUInt64("18446744073709551615", error), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(error, 0);
    EXPECT_EQ(toUInt64("18446744073709551616", error), 0U);
    EXPECT_EQ(error, 34);
    EXPECT_EQ(toUInt64("+0x1F", error), 31U);
    EXPECT_EQ(toUInt64("0x10000000000000000", error), 0U);
    EXPECT_EQ(error, 34);
}

TEST(Integers, ErrorsLeaveTheEndAndErrnoAlone) {
    for (const char* text : {"", "x", "99999999999999999999", "0x", "-"}) {
        const char* end = "untouched";
        int32_t error = 0;
        errno = 1234;
        EXPECT_EQ(vn_char8ToInt64(text, &end, &error), 0);
        EXPECT_EQ(vn_char8ToUInt64(text, &end, &error), 0U);
        EXPECT_STREQ(end, "untouched");
        EXPECT_NE(error, 0);
        EXPECT_EQ(errno, 1234);
    }
}

// Numbers near every power of two and ten, with all valid and some invalid prefixes.
TEST(Integers, BoundaryTexts) {
    const auto digitsOf = [](Wide value, int base) {
        std::string text;
        do {
            text.insert(text.begin(), "0123456789abcdef"[value % base]);
            value /= base;
        } while (value != 0);
        return text;
    };
    std::vector<Wide> values;
    for (int bit = 0; bit < 70; ++bit) {
        for (int offset = -11; offset <= 11; ++offset) {
            values.push_back((Wide{1} << bit) + offset);
        }
    }
    Wide power = 1;
    for (int exponent = 0; exponent < 22; ++exponent, power *= 10) {
        for (int offset = -2; offset <= 2; ++offset) {
            values.push_back(power + offset);
        }
    }
    for (const Wide value : values) {
        if (value < 0) {
            continue;
        }
        const std::string decimal = digitsOf(value, 10);
        const std::string hex = digitsOf(value, 16);
        for (const char* prefix : {"", "-", "+", "--", "+-", " ", "\t \t-", " +", "\n", "000",
                                   "-00", "0000000000000000000000", "+0"}) {
            for (const char* suffix : {"", "x", " ", "-", "."}) {
                ASSERT_NO_FATAL_FAILURE(expectBothParsers(prefix + decimal + suffix));
            }
        }
        for (const char* prefix : {"0x", "0X", "-0x", "+0x", " 0x", "0x0", "0x00000000000000000000",
                                   "00x", "0x-", "0x "}) {
            for (const char* suffix : {"", "g", "G", " ", "x"}) {
                ASSERT_NO_FATAL_FAILURE(expectBothParsers(prefix + hex + suffix));
            }
        }
    }
}

TEST(Integers, EveryByteAtEveryPlace) {
    for (const std::string pattern :
         {"5", " 5", "\t-12", "+12", "0x1f", "-0x1", "+0xAb", "00012", "9223372036854775807",
          "-9223372036854775808", "18446744073709551615", "0xFFFFFFFFFFFFFFFF", "12 34", "0x"}) {
        for (size_t at = 0; at <= pattern.size(); ++at) {
            for (int byte = 1; byte < 256; ++byte) {
                std::string changed = pattern;
                changed.resize(std::max(pattern.size(), at + 1));
                changed[at] = static_cast<char>(byte);
                ASSERT_NO_FATAL_FAILURE(expectBothParsers(changed));
            }
            ASSERT_NO_FATAL_FAILURE(expectBothParsers(pattern.substr(0, at)));
        }
    }
}

TEST(Integers, EveryTextOfFourSpecialBytes) {
    const std::string bytes = std::string("09a Fg xX+-\t\n.") + '\xFF';
    for (const char a : bytes) {
        for (const char b : bytes) {
            for (const char c : bytes) {
                for (const char d : bytes) {
                    ASSERT_NO_FATAL_FAILURE(expectBothParsers({a, b, c, d}));
                }
            }
        }
    }
}

TEST(Integers, RandomRunsOfDigits) {
    std::mt19937 random(20260104);
    for (int turn = 0; turn < 100000; ++turn) {
        std::string text = random() % 2 == 0 ? "-" : "";
        if (random() % 4 == 0) {
            text = "0x";
        }
        for (size_t count = random() % 24; count > 0; --count) {
            text += "0123456789abcdefABCDEF"[random() % (text[0] == '0' ? 22 : 10)];
        }
        ASSERT_NO_FATAL_FAILURE(expectBothParsers(text));
    }
}

TEST(FixedHex, HasEightDigits) {
    char output[12];
    std::memset(output, '#', sizeof output);
    EXPECT_EQ(vn_uint32ToFixedHexChar8(output, 0xAB), output);
    EXPECT_STREQ(output, "000000ab");
    EXPECT_EQ(output[9], '#');
    std::mt19937 random(20260105);
    for (int turn = 0; turn < 10000; ++turn) {
        const auto value = static_cast<uint32_t>(random() >> random() % 32);
        char wanted[9];
        snprintf(wanted, sizeof wanted, "%08x", value);
        ASSERT_STREQ(vn_uint32ToFixedHexChar8(output, value), wanted);
    }
    EXPECT_STREQ(vn_uint32ToFixedHexChar8(output, 0), "00000000");
    EXPECT_STREQ(vn_uint32ToFixedHexChar8(output, UINT32_MAX), "ffffffff");
}

std::string trimmed(std::string text) {
    vn_rtrim(text.data());
    return text.c_str();
}

TEST(RTrim, CutsWhiteSpaceAtTheEnd) {
    EXPECT_EQ(trimmed("ab \t\n"), "ab");
    EXPECT_EQ(trimmed("   "), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("  a b \v\f\r"), "  a b");
    vn_rtrim(nullptr);
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool white = c == ' ' || (c >= '\t' && c <= '\r');
        EXPECT_EQ(trimmed(std::string("x") + c), white ? "x" : std::string("x") + c) << byte;
    }
}

TEST(RTrim, WritesOneTerminatorAndNothingElse) {
    std::string text = "ab \t\n";
    vn_rtrim(text.data());
    EXPECT_EQ(text, std::string("ab\0\t\n", 5));
}

TEST(RTrim, WritesNothingWhenNothingIsCut) {
    for (const char* constant : {"ab", "", " a"}) {
        vn_rtrim(const_cast<char*>(constant));  // in read-only memory
    }
}

std::string escapeOf(char c) {
    switch (c) {
        case '"':
            return "&quot;";
        case '&':
            return "&amp;";
        case '\'':
            return "&apos;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        default:
            break;
    }
    if (static_cast<unsigned char>(c) < 32 && c != '\t' && c != '\n' && c != '\r') {
        char text[4];
        snprintf(text, sizeof text, "%%%02x", c);
        return text;
    }
    return std::string(1, c);
}

size_t extraOf(char c) {
    const size_t size = escapeOf(c).size();
    return escapeOf(c)[0] == '%' && size == 3 ? 1 : size - 1;
}

void expectEscaped(const std::string& text) {
    std::string wanted;
    size_t block = text.size() + 1;
    for (const char c : text) {
        wanted += escapeOf(c);
        block += 2 * extraOf(c);
    }
    const std::unique_ptr<char, void (*)(void*)> escaped(vn_xmlEscapeString(text.c_str()), free);
    ASSERT_EQ(wanted, escaped.get());
    const std::unique_ptr<void, void (*)(void*)> asLarge(malloc(block), free);
    ASSERT_GE(malloc_usable_size(escaped.get()), block);
    // glibc: malloc leaves a remainder with the block if it is too small for a separate block.
    ASSERT_LE(malloc_usable_size(escaped.get()), malloc_usable_size(asLarge.get()) + 16);
}

// Long enough that a wrong length for one character shows in the size of the block.
TEST(XmlEscape, MeasuresEveryKind) {
    for (const char c : std::string("\"&'<>a\t\n\r\x01\x1f")) {
        expectEscaped(std::string(100, c));
    }
}

TEST(XmlEscape, KnownCases) {
    const std::unique_ptr<char, void (*)(void*)> escaped(
        vn_xmlEscapeString("a<b & \"c\"\t\x01\x1b"), free);
    EXPECT_STREQ(escaped.get(), "a&lt;b &amp; &quot;c&quot;\t%01%1b");
    expectEscaped("");
    expectEscaped("'\r\n%\x7F\x80\xFF");
}

TEST(XmlEscape, EveryByteAtEveryPlaceOfABlock) {
    for (size_t size = 1; size <= 40; ++size) {
        for (size_t at = 0; at < size; ++at) {
            for (int byte = 1; byte < 256; ++byte) {
                std::string text(size, 'x');
                text[at] = static_cast<char>(byte);
                ASSERT_NO_FATAL_FAILURE(expectEscaped(text));
            }
        }
    }
}

TEST(XmlEscape, RandomTexts) {
    std::mt19937 random(20260106);
    const std::string special = "\"&'<>\x01\x1f\t\n";
    for (int turn = 0; turn < 20000; ++turn) {
        const size_t share = 1 + random() % 20;
        std::string text(random() % 200, 'x');
        for (char& c : text) {
            c = random() % share == 0 ? special[random() % special.size()]
                                      : static_cast<char>(1 + random() % 255);
        }
        ASSERT_NO_FATAL_FAILURE(expectEscaped(text));
    }
}

TEST(ParseToBool, KnowsFiveWords) {
    for (const char* word :
         {"true", "TRUE", "tRuE", "t", "T", "yes", "YES", "Yes", "y", "Y", "1"}) {
        EXPECT_EQ(vn_parseToBool(word), 1) << word;
    }
    for (const char* word : {"", "false", "no", "on", "0", "2", "11", "yes ", " yes", "ye", "tr",
                             "truee", "yy", "y\n", "wahr"}) {
        EXPECT_EQ(vn_parseToBool(word), 0) << word;
    }
    EXPECT_EQ(vn_parseToBool(nullptr), 0);
}

TEST(EmptyString, IsNullOrHasNoBytes) {
    EXPECT_TRUE(vn_isEmptyString(nullptr));
    EXPECT_TRUE(vn_isEmptyString(""));
    EXPECT_FALSE(vn_isEmptyString(" "));
    EXPECT_FALSE(vn_isEmptyString("text"));
}

}  // namespace
