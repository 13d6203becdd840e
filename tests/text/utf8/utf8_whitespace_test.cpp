// White space, forwards and backwards: every code point, and broken encodings.
#include <gtest/gtest.h>
#include <vncommon/utf8.h>

#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

const std::set<uint32_t> whiteSpace = {
    0x09,   0x0A,   0x0B,   0x0C,   0x0D,   0x1C,   0x1D,   0x1E,   0x1F,   0x20,
    0xA0,   0x1680, 0x180E, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005, 0x2006,
    0x2007, 0x2008, 0x2009, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000};

// Encodes in the given number of bytes, also if that is more than necessary.
std::string encodeIn(size_t length, uint32_t c) {
    if (length == 1) {
        return std::string(1, static_cast<char>(c));
    }
    std::string text(length, '\0');
    for (size_t i = length; i-- > 1; c >>= 6) {
        text[i] = static_cast<char>(0x80 | (c & 0x3F));
    }
    text[0] = static_cast<char>((0xF00 >> length & 0xFF) | c);
    return text;
}

std::string encode(uint32_t c) {
    return encodeIn(c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4, c);
}

size_t skipped(const std::string& text) {
    return static_cast<size_t>(vn_skipSpacesUTF8(text.c_str()) - text.c_str());
}

size_t trimmed(const std::string& text) {
    return static_cast<size_t>(vn_rTrimUTF8(text.c_str()) - text.c_str());
}

TEST(WhiteSpace, EveryCodePointBothWays) {
    size_t found = 0;
    for (uint32_t c = 1; c <= 0x10FFFF; ++c) {
        const std::string character = encode(c);
        const bool white = whiteSpace.count(c) != 0;
        found += white;
        ASSERT_EQ(skipped(character), white ? character.size() : 0) << c;
        ASSERT_EQ(skipped(character + "x"), white ? character.size() : 0) << c;
        ASSERT_EQ(trimmed(character), white ? 0 : character.size()) << c;
        ASSERT_EQ(trimmed("x" + character), white ? 1 : 1 + character.size()) << c;
    }
    EXPECT_EQ(found, whiteSpace.size());
}

TEST(WhiteSpace, OnlyTheShortestForm) {
    for (const uint32_t c : whiteSpace) {
        for (size_t length = encode(c).size() + 1; length <= 4; ++length) {
            const std::string character = encodeIn(length, c);
            EXPECT_EQ(skipped(character), 0U) << c;
            EXPECT_EQ(trimmed(character), character.size()) << c;
        }
    }
}

TEST(WhiteSpace, IncompleteCharactersStay) {
    for (const uint32_t c : whiteSpace) {
        const std::string character = encode(c);
        for (size_t cut = 1; cut < character.size(); ++cut) {
            EXPECT_EQ(skipped(std::string(" ").append(character, 0, cut)), 1U) << c;
            const std::string tail = character.substr(cut);
            EXPECT_EQ(trimmed(tail), tail.size()) << c;
            EXPECT_EQ(trimmed(std::string("x").append(tail) + " "), 1 + tail.size()) << c;
        }
    }
}

TEST(SkipSpaces, KnownCases) {
    EXPECT_EQ(skipped(""), 0U);
    EXPECT_EQ(skipped("x  "), 0U);
    EXPECT_EQ(skipped("\xE2\x80\x83\x78"), 3U);
    EXPECT_EQ(skipped("\xC2\x85\x78"), 0U);
    EXPECT_EQ(skipped(" \t\xC2\xA0\xE3\x80\x80\n"), 8U);
}

TEST(RTrim, KnownCases) {
    EXPECT_EQ(trimmed(""), 0U);
    EXPECT_EQ(trimmed("ab\xE3\x80\x80 "), 2U);
    EXPECT_EQ(trimmed("   "), 0U);
    EXPECT_EQ(trimmed("  x"), 3U);
}

// The text has a block of exactly its size: a sanitizer reports a read before the start.
TEST(RTrim, ReadsNothingBeforeTheStart) {
    for (const uint32_t c : whiteSpace) {
        const std::string character = encode(c);
        for (size_t cut = 0; cut <= character.size(); ++cut) {
            const std::string tail = character.substr(cut);
            const std::unique_ptr<char[]> block(new char[tail.size() + 1]);
            std::memcpy(block.get(), tail.c_str(), tail.size() + 1);
            const auto expected = static_cast<ptrdiff_t>(cut == 0 ? 0 : tail.size());
            EXPECT_EQ(vn_rTrimUTF8(block.get()) - block.get(), expected);
        }
    }
}

// The model trims lists of whole characters.
TEST(WhiteSpace, RandomTexts) {
    std::mt19937 random(20260103);
    const std::vector<uint32_t> spaces(whiteSpace.begin(), whiteSpace.end());
    for (int turn = 0; turn < 20000; ++turn) {
        std::vector<uint32_t> characters(random() % 8);
        std::string text;
        for (uint32_t& c : characters) {
            c = random() % 4 != 0 ? spaces[random() % spaces.size()]
                                  : static_cast<uint32_t>(1 + random() % 0x3100);
            text += encode(c);
        }
        size_t first = 0;
        for (const uint32_t c : characters) {
            if (whiteSpace.count(c) == 0) {
                break;
            }
            first += encode(c).size();
        }
        size_t end = text.size();
        for (size_t i = characters.size(); i-- > 0 && whiteSpace.count(characters[i]) != 0;) {
            end -= encode(characters[i]).size();
        }
        ASSERT_EQ(skipped(text), first);
        ASSERT_EQ(trimmed(text), end);
    }
}

}  // namespace
