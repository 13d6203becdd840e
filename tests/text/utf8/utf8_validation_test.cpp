// Validation, compared with a decoder; the kernels, compared with each other.
#include <gtest/gtest.h>
#include <vncommon/utf8.h>

#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/guarded_memory.h"
#include "text/utf8/utf8_kernel.h"

namespace {

using vncommon::Utf8Kernel;

// Decodes and checks for the shortest form. Compat: surrogates are valid here, unlike in Unicode.
bool isValidByDecoding(const uint8_t* bytes, size_t size) {
    for (size_t i = 0; i < size;) {
        const uint32_t lead = bytes[i];
        const size_t length = lead < 0x80             ? 1
                              : (lead & 0xE0) == 0xC0 ? 2
                              : (lead & 0xF0) == 0xE0 ? 3
                              : (lead & 0xF8) == 0xF0 ? 4
                                                      : 0;
        if (length == 0 || i + length > size) {
            return false;
        }
        uint32_t c = length == 1 ? lead : lead & (0x7FU >> length);
        for (size_t k = 1; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80) {
                return false;
            }
            c = c << 6 | (bytes[i + k] & 0x3FU);
        }
        const size_t shortest = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (length != shortest || c > 0x10FFFF) {
            return false;
        }
        i += length;
    }
    return true;
}

bool isValidByDecoding(const std::string& text) {
    return isValidByDecoding(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

std::string encode(uint32_t c) {
    std::string text;
    const auto add = [&](uint32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) {
        add(c);
    } else if (c < 0x800) {
        add(0xC0 | c >> 6);
        add(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        add(0xE0 | c >> 12);
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    } else {
        add(0xF0 | c >> 18);
        add(0x80 | (c >> 12 & 0x3F));
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    }
    return text;
}

TEST(IsUTF8, KnownCases) {
    EXPECT_EQ(vn_isUTF8(""), 1);
    EXPECT_EQ(vn_isUTF8("plain"), 1);
    EXPECT_EQ(vn_isUTF8("\xC0\x80"), 0);
    EXPECT_EQ(vn_isUTF8("\xE0\x80\x80"), 0);
    EXPECT_EQ(vn_isUTF8("\xED\xA0\x80"), 1);
    EXPECT_EQ(vn_isUTF8("\xED\xBF\xBF"), 1);
    EXPECT_EQ(vn_isUTF8("\xF4\x90\x80\x80"), 0);
    EXPECT_EQ(vn_isUTF8("\xF4\x8F\xBF\xBF"), 1);
    EXPECT_EQ(vn_isUTF8("text \xC3"), 0);
    EXPECT_EQ(vn_isUTF8("\xC3\0\xA9"), 0);  // the terminator is not a continuation byte
}

TEST(IsUTF8, EverySequenceOfUpToThreeBytes) {
    char text[4] = {};
    const auto check = [&](size_t size) {
        const auto bytes = reinterpret_cast<const uint8_t*>(text);
        ASSERT_EQ(vn_isUTF8(text), isValidByDecoding(bytes, size))
            << std::hex << +bytes[0] << ' ' << +bytes[1] << ' ' << +bytes[2];
    };
    for (int a = 1; a < 256; ++a) {
        text[0] = static_cast<char>(a);
        text[1] = text[2] = 0;
        check(1);
        for (int b = 1; b < 256; ++b) {
            text[1] = static_cast<char>(b);
            text[2] = 0;
            check(2);
            for (int c = 1; c < 256; ++c) {
                text[2] = static_cast<char>(c);
                check(3);
            }
        }
    }
}

// The limits of every range, and one byte inside each.
const std::vector<int> sweepBytes = {0x01, 0x41, 0x7F, 0x80, 0x81, 0x8F, 0x90, 0x91, 0x9F, 0xA0,
                                     0xA1, 0xBE, 0xBF, 0xC0, 0xC1, 0xC2, 0xC3, 0xDF, 0xE0, 0xE1,
                                     0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};

template <class Check>
void sweepFourBytes(Check check) {
    uint8_t bytes[5] = {};
    for (const int a : sweepBytes) {
        for (const int b : sweepBytes) {
            for (const int c : sweepBytes) {
                for (const int d : sweepBytes) {
                    bytes[0] = static_cast<uint8_t>(a);
                    bytes[1] = static_cast<uint8_t>(b);
                    bytes[2] = static_cast<uint8_t>(c);
                    bytes[3] = static_cast<uint8_t>(d);
                    check(bytes);
                }
            }
        }
    }
}

TEST(IsUTF8, SweepOfFourBytes) {
    sweepFourBytes([](const uint8_t* bytes) {
        ASSERT_EQ(vn_isUTF8(reinterpret_cast<const char*>(bytes)), isValidByDecoding(bytes, 4))
            << std::hex << +bytes[0] << ' ' << +bytes[1] << ' ' << +bytes[2] << ' ' << +bytes[3];
    });
}

TEST(IsUTF8, EveryCodePoint) {
    std::string all;
    for (uint32_t c = 1; c <= 0x10FFFF; ++c) {
        const std::string text = encode(c);
        ASSERT_EQ(vn_isUTF8(text.c_str()), 1) << c;
        all += text;
    }
    EXPECT_EQ(vn_isUTF8(all.c_str()), 1);
    EXPECT_EQ(vn_isUTF8((all + "\x80").c_str()), 0);
    EXPECT_EQ(vn_isAscii(all.c_str()), 0);
}

TEST(IsAscii, NeedsEveryTopBitClear) {
    EXPECT_EQ(vn_isAscii(""), 1);
    for (int byte = 1; byte < 256; ++byte) {
        for (const size_t size : {1U, 2U, 3U, 5U, 8U, 13U, 31U, 100U}) {
            for (size_t at = 0; at < size; ++at) {
                std::string text(size, '~');
                text[at] = static_cast<char>(byte);
                ASSERT_EQ(vn_isAscii(text.c_str()), byte < 0x80)
                    << byte << ' ' << size << ' ' << at;
            }
        }
    }
}

// Long text is checked in blocks: tests characters and faults across every block boundary.
TEST(IsUTF8, AcrossStretches) {
    for (const uint32_t c : {0xE9U, 0x20ACU, 0xD800U, 0x1F600U}) {
        const std::string character = encode(c);
        for (size_t shift = 0; shift < 8; ++shift) {
            std::string text(shift, 'x');
            while (text.size() < 20000) {
                text += character;
            }
            ASSERT_EQ(vn_isUTF8(text.c_str()), 1);
            for (const size_t joint : {4096U, 8192U, 12288U}) {
                for (size_t at = joint - 9; at < joint + 9; ++at) {
                    for (const char byte : {'x', '\x80', '\xC3', '\xE2', '\xF0', '\xFF'}) {
                        std::string broken = text;
                        broken[at] = byte;
                        ASSERT_EQ(vn_isUTF8(broken.c_str()), isValidByDecoding(broken))
                            << c << ' ' << shift << ' ' << at;
                    }
                    const std::string cut = text.substr(0, at);
                    ASSERT_EQ(vn_isUTF8(cut.c_str()), isValidByDecoding(cut));
                }
            }
        }
    }
}

TEST(IsUTF8, ContinuationBytesWithoutEnd) {
    EXPECT_EQ(vn_isUTF8(std::string(10000, '\x80').c_str()), 0);
    EXPECT_EQ(vn_isUTF8((std::string(4095, 'x') + std::string(9, '\x80')).c_str()), 0);
}

std::string randomText(std::mt19937& random, size_t size, bool ascii) {
    std::string text;
    while (text.size() < size) {
        const size_t bits = ascii ? 0 : random() % 4;
        const uint32_t limits[] = {0x80, 0x800, 0x10000, 0x110000};
        text += encode(1 + static_cast<uint32_t>(random() % (limits[bits] - 1)));
    }
    text.resize(size);  // may cut the last character
    return text;
}

std::vector<std::pair<const char*, Utf8Kernel>> kernels() {
    std::vector<std::pair<const char*, Utf8Kernel>> list{{"plain", vncommon::utf8KernelPlain}};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("ssse3")) {
        list.emplace_back("SSSE3", vncommon::utf8KernelSsse3);
    }
    if (__builtin_cpu_supports("avx2")) {
        list.emplace_back("AVX2", vncommon::utf8KernelAvx2);
    }
#endif
    return list;
}

void expectKernelsAgree(const char* text, size_t size) {
    const auto bytes = reinterpret_cast<const uint8_t*>(text);
    const bool valid = isValidByDecoding(bytes, size);
    bool ascii = true;
    for (size_t i = 0; i < size; ++i) {
        ascii = ascii && bytes[i] < 0x80;
    }
    for (const auto& [name, kernel] : kernels()) {
        if (size >= kernel.utf8Minimum) {
            ASSERT_EQ(kernel.isUtf8(bytes, size), valid) << name << ' ' << size;
        }
        if (size >= kernel.asciiMinimum) {
            ASSERT_EQ(kernel.isAscii(bytes, size), ascii) << name << ' ' << size;
        }
    }
    ASSERT_EQ(vncommon::isUtf8Bytes(text, size), valid);
    ASSERT_EQ(vncommon::isAsciiBytes(text, size), ascii);
}

// Tests unchanged texts and texts with one changed byte, next to both guards and at every
// alignment.
TEST(Kernels, AgreeAtEveryLengthAndAlignment) {
    GuardedMemory memory;
    std::mt19937 random(20260101);
    for (size_t size = 0; size <= 130; ++size) {
        for (size_t alignment = 0; alignment < 32; ++alignment) {
            const std::string text = randomText(random, size, alignment % 4 == 0);
            for (char* place : {memory.begin() + alignment, memory.end() - size - alignment}) {
                std::memcpy(place, text.data(), size);
                ASSERT_NO_FATAL_FAILURE(expectKernelsAgree(place, size));
                if (size > 0) {
                    place[random() % size] = static_cast<char>(random() % 256);
                    ASSERT_NO_FATAL_FAILURE(expectKernelsAgree(place, size));
                }
            }
        }
    }
}

TEST(Kernels, ReadNothingOutsideTheTerminatedText) {
    GuardedMemory memory;
    std::mt19937 random(20260102);
    for (size_t size = 0; size <= 130; ++size) {
        for (const bool ascii : {true, false}) {
            std::string text = randomText(random, size, ascii);
            if (!ascii && size > 0) {
                text[0] = '\xC3';
            }
            for (char* place : {memory.begin(), memory.end() - size - 1}) {
                std::memcpy(place, text.c_str(), size + 1);
                ASSERT_EQ(vn_isUTF8(place), isValidByDecoding(text));
                ASSERT_EQ(vn_isAscii(place), ascii || size == 0);
            }
        }
    }
}

// Tests all pairs, and the sweep of four bytes, at every position in a vector: after ASCII text and
// after text that needs the slow path of the vector code.
TEST(Kernels, AgreeOnFaultsAtEveryPlace) {
    for (const char* filler : {"x", "\xC3\xA9", "\xF0\x9F\x98\x80"}) {
        std::string text;
        while (text.size() < 100) {
            text += filler;
        }
        for (size_t at = 0; at < 68; ++at) {
            std::string changed = text;
            for (int a = 0; a < 256; ++a) {
                for (const int b : sweepBytes) {
                    changed[at] = static_cast<char>(a);
                    changed[at + 1] = static_cast<char>(b);
                    ASSERT_NO_FATAL_FAILURE(expectKernelsAgree(changed.data(), changed.size()));
                }
            }
        }
    }
}

TEST(Kernels, AgreeOnTheSweepOfFourBytes) {
    size_t turn = 0;
    std::string text(72, 'x');
    sweepFourBytes([&](const uint8_t* bytes) {
        const size_t at = turn++ % 68;
        std::memcpy(text.data() + at, bytes, 4);
        ASSERT_NO_FATAL_FAILURE(expectKernelsAgree(text.data(), text.size()));
        std::memset(text.data() + at, 'x', 4);
    });
}

}  // namespace
