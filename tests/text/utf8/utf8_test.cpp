// The byte-order mark, and stepping from character to character.
#include <gtest/gtest.h>
#include <vncommon/utf8.h>

#include <cstring>
#include <string>

namespace {

int lengthOfLead(int byte) {
    if (byte < 0x80) {
        return 1;
    }
    if (byte < 0xC0 || byte > 0xF4) {
        return 7;
    }
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// A lead byte, followed by enough bytes for the longest character.
std::string padded(int byte) {
    return std::string(1, static_cast<char>(byte)) + "ABCDEFGH";
}

TEST(ByteOrderMark, IsFoundOnlyWhenComplete) {
    EXPECT_EQ(vn_hasUTF8BOM("\xEF\xBB\xBF"), 1);
    EXPECT_EQ(vn_hasUTF8BOM("\xEF\xBB\xBFtext"), 1);
    for (const char* text :
         {"", "\xEF", "\xEF\xBB", "\xEF\xBB\xBE", "\xEF\xBA\xBF", "x\xEF\xBB\xBF"}) {
        EXPECT_EQ(vn_hasUTF8BOM(text), 0) << text;
        EXPECT_EQ(vn_skipUTF8BOM(text), text);
    }
}

TEST(ByteOrderMark, IsSkippedOnce) {
    const char* text = "\xEF\xBB\xBF\xEF\xBB\xBFx";
    EXPECT_EQ(vn_skipUTF8BOM(text), text + 3);
}

TEST(ByteOrderMark, IsOneStaticText) {
    EXPECT_STREQ(vn_getUTF8BOM(), "\xEF\xBB\xBF");
    EXPECT_EQ(vn_getUTF8BOM(), vn_getUTF8BOM());
}

TEST(CharLength, OfEveryLeadByte) {
    EXPECT_EQ(vn_UTF8CharLength(""), 0);
    for (int byte = 1; byte < 256; ++byte) {
        const int length = lengthOfLead(byte);
        EXPECT_EQ(vn_UTF8CharLength(padded(byte).c_str()), length == 7 ? 0 : length) << byte;
    }
}

TEST(Length, CountsCharacters) {
    EXPECT_EQ(vn_UTF8Length(""), 0);
    EXPECT_EQ(vn_UTF8Length("abc"), 3);
    EXPECT_EQ(vn_UTF8Length("\xC3\xA9"), 1);
    EXPECT_EQ(vn_UTF8Length("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"), 5);
}

TEST(Length, IsZeroWhenAnInvalidLeadIsMet) {
    EXPECT_EQ(vn_UTF8Length("a\x80"
                            "b"),
              0);
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = "ab" + std::string(1, static_cast<char>(byte)) + "\x80\x80\x80";
        const int length = lengthOfLead(byte);
        EXPECT_EQ(vn_UTF8Length(text.c_str()), length == 4 ? 3 : 0) << byte;
    }
}

TEST(Length, LooksAtNoContinuationByte) {
    EXPECT_EQ(vn_UTF8Length("\xE2zzy"), 2);
}

TEST(CountChars, CountsWhatBeginsBeforeTheEnd) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
    const int expected[] = {0, 1, 2, 2, 3, 3, 3, 4, 4, 4, 4, 5};
    for (size_t end = 0; end <= text.size(); ++end) {
        EXPECT_EQ(vn_UTF8CountChars(text.data(), text.data() + end), expected[end]) << end;
    }
    EXPECT_EQ(vn_UTF8CountChars(text.data() + 3, text.data()), 0);
}

TEST(CountChars, StopsAtAnInvalidLeadAndGoesThroughTerminators) {
    const char* broken = "ab\xFFzz";
    EXPECT_EQ(vn_UTF8CountChars(broken, broken + 5), 2);
    const char text[] = "ab\0cd";
    EXPECT_EQ(vn_UTF8CountChars(text, text + 5), 5);
}

TEST(SkipChars, StopsAtCountTerminatorAndInvalidLead) {
    const char* text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
    const int offsets[] = {0, 1, 3, 6, 10, 11, 11, 11};
    for (int count = 0; count < 8; ++count) {
        EXPECT_EQ(vn_UTF8SkipChars(text, count) - text, offsets[count]) << count;
    }
    const char* broken = "ab\x80z";
    EXPECT_EQ(vn_UTF8SkipChars(broken, 2), broken + 2);
    EXPECT_EQ(vn_UTF8SkipChars(broken, 3), broken + 2);
}

TEST(SkipChars, HasNoLimitWithANegativeCount) {
    const char* text = "abc";
    EXPECT_EQ(vn_UTF8SkipChars(text, -1), text + 3);
    EXPECT_EQ(vn_UTF8SkipChars(text, -2147483647 - 1), text + 3);
}

TEST(FindStart, GoesBackToTheLead) {
    const char* text = "a\xF0\x9F\x98\x80z";
    for (int at = 1; at < 5; ++at) {
        EXPECT_EQ(vn_findUTF8Start(text + at), text + 1) << at;
    }
    EXPECT_EQ(vn_findUTF8Start(text), text);
    EXPECT_EQ(vn_findUTF8Start(text + 5), text + 5);
    EXPECT_EQ(vn_findUTF8Start(text + 6), text + 6);
    const char* broken = "\xFF\x80";
    EXPECT_EQ(vn_findUTF8Start(broken + 1), broken);
}

TEST(CopyChar, CopiesAndTerminates) {
    for (int byte = 1; byte < 256; ++byte) {
        char copy[12];
        std::memset(copy, '#', sizeof copy);
        vn_copyUTF8Char(copy, padded(byte).c_str());
        const auto length = static_cast<size_t>(lengthOfLead(byte));
        EXPECT_EQ(std::string(copy), padded(byte).substr(0, length)) << byte;
        EXPECT_EQ(copy[length + 1], '#') << byte;
    }
}

TEST(CopyChar, OfTheTerminatorIsEmpty) {
    char copy[3] = {'#', '#', '#'};
    vn_copyUTF8Char(copy, "");
    EXPECT_EQ(std::memcmp(copy, "\0\0#", 3), 0);
}

TEST(AsciiLetter, IsTheOneOfTheCLocale) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
        EXPECT_EQ(vn_UTF8isAsciiLetter(static_cast<char>(byte)), letter) << byte;
    }
}

}  // namespace
