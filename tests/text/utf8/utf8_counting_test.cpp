// Compares vn_UTF8Length and vn_UTF8CountChars with a walk from lead byte to lead byte, also over
// malformed text.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vncommon/utf8.h>

#include <climits>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "support/guarded_memory.h"

namespace {

constexpr size_t invalid = 7;

size_t lengthOfLead(char lead) {
    const auto byte = static_cast<uint8_t>(lead);
    if (byte < 0x80) {
        return 1;
    }
    if (byte < 0xC0 || byte > 0xF4) {
        return invalid;
    }
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

int modelOfLength(const char* text) {
    int count = 0;
    for (; *text != '\0'; ++count) {
        if (lengthOfLead(*text) == invalid) {
            return 0;
        }
        text += lengthOfLead(*text);
    }
    return count;
}

int modelOfCount(const char* text, size_t size) {
    int count = 0;
    for (size_t at = 0; at < size && lengthOfLead(text[at]) != invalid; ++count) {
        at += lengthOfLead(text[at]);
    }
    return count;
}

// The bytes after the text. A truncated last character makes the walk step over the terminator;
// these bytes then end the walk, of the model too.
const std::string after("\0ab\0\0\0\0", 7);

std::string bytesOf(const char* text, size_t size) {
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        const char* digits = "0123456789ABCDEF";
        hex += digits[static_cast<uint8_t>(text[i]) >> 4];
        hex += digits[static_cast<uint8_t>(text[i]) & 15];
    }
    return hex;
}

void expectAsTheModel(const std::string& text) {
    const std::string padded = text + after;
    ASSERT_EQ(vn_UTF8Length(padded.c_str()), modelOfLength(padded.c_str()))
        << bytesOf(text.data(), text.size());
    ASSERT_EQ(vn_UTF8CountChars(text.data(), text.data() + text.size()),
              modelOfCount(text.data(), text.size()))
        << bytesOf(text.data(), text.size());
}

// A text that ends with a sequence, which can be changed in place.
class ChangingText {
  public:
    ChangingText(const std::string& before, size_t size, const std::string& behind)
        : _text(before + std::string(size, 'x') + behind + after),
          _at(before.size()),
          _size(_text.size() - after.size()) {}

    void check(std::initializer_list<int> bytes) {
        char* next = _text.data() + _at;
        for (const int byte : bytes) {
            *next++ = static_cast<char>(byte);
        }
        const char* text = _text.data();
        ASSERT_EQ(vn_UTF8Length(text), modelOfLength(text)) << bytesOf(text, _size);
        ASSERT_EQ(vn_UTF8CountChars(text, text + _size), modelOfCount(text, _size))
            << bytesOf(text, _size);
    }

  private:
    std::string _text;
    size_t _at;
    size_t _size;
};

TEST(Counting, EverySequenceOfUpToThreeBytes) {
    ChangingText one("", 1, "");
    ChangingText two("", 2, "");
    ChangingText three("", 3, "");
    for (int a = 0; a < 256; ++a) {
        ASSERT_NO_FATAL_FAILURE(one.check({a}));
        for (int b = 0; b < 256; ++b) {
            ASSERT_NO_FATAL_FAILURE(two.check({a, b}));
            for (int c = 0; c < 256; ++c) {
                ASSERT_NO_FATAL_FAILURE(three.check({a, b, c}));
            }
        }
    }
}

// The limits of every range of bytes.
constexpr int edges[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2,
                         0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
// One byte of each class.
constexpr int kinds[] = {0x00, 0x41, 0x80, 0xA5, 0xC3, 0xE0, 0xED, 0xF0, 0xF4, 0xFE};

std::string repeated(const std::string& character, size_t size) {
    std::string text;
    while (text.size() < size) {
        text += character;
    }
    return text;
}

const std::string fillers[] = {"x", "\xC3\xA9", "\xE4\xBD\xA0", "\xF0\x9F\x98\x80"};

// Puts the sequence at the start, in the middle and at the end of a text that is long enough for
// the vector code.
template <class Check>
void inLongTexts(size_t size, Check check) {
    for (const std::string& filler : fillers) {
        for (const size_t before : {0U, 36U, 72U}) {
            ChangingText text(repeated(filler, before), size, repeated(filler, 72 - before));
            check(text);
        }
    }
}

TEST(Counting, EveryPairAndAThirdByteInLongTexts) {
    inLongTexts(3, [](ChangingText& text) {
        for (int a = 0; a < 256; ++a) {
            for (int b = 0; b < 256; ++b) {
                ASSERT_NO_FATAL_FAILURE(text.check({a, b, kinds[(a * 7 + b) % 10]}));
            }
        }
    });
}

TEST(Counting, EdgesInFourBytes) {
    ChangingText four("", 4, "");
    for (const int a : edges) {
        for (const int b : edges) {
            for (const int c : edges) {
                for (const int d : edges) {
                    ASSERT_NO_FATAL_FAILURE(four.check({a, b, c, d}));
                }
            }
        }
    }
}

void checkKindsInSixBytes(ChangingText& six) {
    for (const int a : kinds) {
        for (const int b : kinds) {
            for (const int c : kinds) {
                for (const int d : kinds) {
                    ASSERT_NO_FATAL_FAILURE(six.check({a, b, c, d, b, a}));
                    ASSERT_NO_FATAL_FAILURE(six.check({a, b, c, d, c, b}));
                    ASSERT_NO_FATAL_FAILURE(six.check({a, b, c, d, d, d}));
                }
            }
        }
    }
}

TEST(Counting, KindsInFiveAndSixBytes) {
    ChangingText five("", 5, "");
    ChangingText six("", 6, "");
    for (int number = 0; number < 1'000'000; ++number) {
        const int a = kinds[number / 100'000];
        const int b = kinds[number / 10'000 % 10];
        const int c = kinds[number / 1000 % 10];
        const int d = kinds[number / 100 % 10];
        const int e = kinds[number / 10 % 10];
        if (number % 10 == 0) {
            ASSERT_NO_FATAL_FAILURE(five.check({a, b, c, d, e}));
        }
        ASSERT_NO_FATAL_FAILURE(six.check({a, b, c, d, e, kinds[number % 10]}));
    }
}

TEST(Counting, KindsInSixBytesOfLongTexts) {
    inLongTexts(6, checkKindsInSixBytes);
}

std::string randomText(std::mt19937& random, size_t size) {
    const size_t kind = random() % 5;
    std::string text;
    while (text.size() < size) {
        text += fillers[kind < 4 ? kind : random() % 4];
    }
    return text;
}

// Changes some bytes of the text to bytes that break characters but do not end the walk, and in
// some texts to any byte.
void damage(std::mt19937& random, std::string& text) {
    const char leads[] = {'x', '\xC3', '\xC0', '\xE0', '\xED', '\xF0', '\xF4'};
    for (size_t faults = random() % 6; faults > 0; --faults) {
        const size_t at = random() % text.size();
        if (random() % 4 == 0) {
            text.erase(at, 1 + random() % 3);
            text += 'x';
        } else {
            text[at] = leads[random() % sizeof leads];
        }
    }
    if (random() % 8 == 0) {
        text[random() % text.size()] = static_cast<char>(random());
    }
}

TEST(Counting, RandomAndDamagedTexts) {
    std::mt19937 random(20260104);
    for (int turn = 0; turn < 4000; ++turn) {
        const size_t limit = turn % 4 == 0 ? 20000 : 400;
        std::string text = randomText(random, 1 + random() % limit);
        ASSERT_NO_FATAL_FAILURE(expectAsTheModel(text));
        damage(random, text);
        ASSERT_NO_FATAL_FAILURE(expectAsTheModel(text));
        const size_t part = random() % text.size();
        ASSERT_EQ(vn_UTF8CountChars(text.data(), text.data() + part),
                  modelOfCount(text.data(), part));
    }
}

TEST(Counting, BytesAtRandom) {
    std::mt19937 random(20260105);
    std::vector<char> leads;  // bytes that do not end the walk
    for (int byte = 1; byte < 0xF5; byte += byte == 0x7F ? 0x41 : 1) {
        leads.push_back(static_cast<char>(byte));
    }
    for (int turn = 0; turn < 2000; ++turn) {
        std::string text(1 + random() % 9000, '\0');
        for (char& c : text) {
            c = leads[random() % leads.size()];
        }
        ASSERT_NO_FATAL_FAILURE(expectAsTheModel(text));
    }
}

// Long text is counted in blocks: tests characters, faults and ends at every block boundary.
TEST(Counting, AcrossStretches) {
    for (const std::string& filler : fillers) {
        for (size_t shift = 0; shift < 4; ++shift) {
            const std::string text = std::string(shift, 'x') + repeated(filler, 13000);
            for (const size_t joint : {64U, 128U, 2048U, 4096U, 8192U, 12288U}) {
                for (size_t at = joint - 9; at < joint + 9; ++at) {
                    ASSERT_NO_FATAL_FAILURE(expectAsTheModel(text.substr(0, at)));
                    for (const char byte : {'x', '\x80', '\xC3', '\xE2', '\xF0', '\xFF'}) {
                        std::string broken = text;
                        broken[at] = byte;
                        ASSERT_NO_FATAL_FAILURE(expectAsTheModel(broken));
                    }
                }
            }
        }
    }
}

// Empty, whole and truncated text directly before a guarded page.
TEST(Counting, ReadsNothingOutsideTheText) {
    GuardedMemory memory;
    const auto page = static_cast<size_t>(memory.end() - memory.begin());
    for (const std::string& filler : fillers) {
        for (size_t size = 0; size < page; size += size == 300 ? page - 320 : 1) {
            const std::string text = repeated(filler, size).substr(0, size);
            char* const cut = memory.end() - size;
            std::memcpy(cut, text.data(), size);
            ASSERT_EQ(vn_UTF8CountChars(cut, memory.end()), modelOfCount(text.data(), size));

            const std::string whole = repeated(filler, size / 2) + std::string(size % 5, 'y');
            char* const terminated = memory.end() - whole.size() - 1;
            std::memcpy(terminated, whole.c_str(), whole.size() + 1);
            ASSERT_EQ(vn_UTF8Length(terminated), modelOfLength(whole.c_str()));
        }
    }
}

// Maps one MiB of text again and again, so that the text needs no more memory than that.
TEST(Counting, WrapsAboveTheLargestInt) {
    constexpr size_t pieceSize = size_t{1} << 20;
    constexpr size_t pieces = 2049;
    const int file = memfd_create("text", MFD_CLOEXEC);
    const std::string letters(pieceSize, 'a');
    ASSERT_EQ(write(file, letters.data(), letters.size()), static_cast<ssize_t>(letters.size()));
    void* reserved = mmap(nullptr, (pieces + 1) * pieceSize, PROT_READ,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(reserved, MAP_FAILED);
    auto* text = static_cast<char*>(reserved);
    for (size_t i = 0; i < pieces; ++i) {
        ASSERT_EQ(mmap(text + i * pieceSize, pieceSize, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0),
                  text + i * pieceSize);
    }
    constexpr int wrapped = INT_MIN + static_cast<int>(pieceSize);
    EXPECT_EQ(vn_UTF8Length(text), wrapped);
    EXPECT_EQ(vn_UTF8CountChars(text, text + pieces * pieceSize), wrapped);
    munmap(reserved, (pieces + 1) * pieceSize);
    close(file);
}

}  // namespace
