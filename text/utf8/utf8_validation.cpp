// Validation of UTF-8: the plain path over byte tables, the choice of a vector kernel when the
// library is loaded, and the walk over a text of unknown length.
#include <vncommon/utf8.h>

#include <array>
#include <cstring>

#include "platform/assertion.h"
#include "text/utf8/utf8_kernel.h"

namespace vncommon {
namespace {

constexpr uint8_t invalidLead = 7;

// The class of a lead byte: 0 for ASCII, 1-6 for a row of the tables below, 7 for no lead byte.
constexpr std::array<uint8_t, 256> makeSequenceTypes() {
    std::array<uint8_t, 256> types{};
    for (size_t byte = 0; byte < types.size(); ++byte) {
        types[byte] = byte < 0x80    ? 0
                      : byte < 0xC2  ? invalidLead
                      : byte < 0xE0  ? 1
                      : byte == 0xE0 ? 2
                      : byte < 0xF0  ? 3
                      : byte == 0xF0 ? 4
                      : byte < 0xF4  ? 5
                      : byte == 0xF4 ? 6
                                     : invalidLead;
    }
    return types;
}

constexpr std::array<uint8_t, 256> utf8_sequenceType = makeSequenceTypes();

// Lowest and highest value of each continuation byte, by class.
// Compat: ED is in class 3, so encoded surrogates are valid; callers rely on it.
constexpr uint8_t utf8_validMin[][4] = {{},
                                        {0x80},
                                        {0xA0, 0x80},
                                        {0x80, 0x80},
                                        {0x90, 0x80, 0x80},
                                        {0x80, 0x80, 0x80},
                                        {0x80, 0x80, 0x80}};
constexpr uint8_t utf8_validMax[][4] = {{},
                                        {0xBF},
                                        {0xBF, 0xBF},
                                        {0xBF, 0xBF},
                                        {0xBF, 0xBF, 0xBF},
                                        {0xBF, 0xBF, 0xBF},
                                        {0x8F, 0xBF, 0xBF}};

template <class Word>
Word load(const uint8_t* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The last word overlaps the one before if size is not a multiple of the word size.
template <class Word>
bool isAsciiByWords(const uint8_t* bytes, size_t size) {
    VN_ASSERT(size >= sizeof(Word));
    const uint8_t* const last = bytes + size - sizeof(Word);
    Word any = load<Word>(last);
    for (; bytes < last; bytes += sizeof(Word)) {
        any |= load<Word>(bytes);
    }
    return (any & static_cast<Word>(0x8080808080808080)) == 0;
}

bool isAsciiPlain(const uint8_t* bytes, size_t size) {
    if (size >= 8) {
        return isAsciiByWords<uint64_t>(bytes, size);
    }
    if (size >= 4) {
        return isAsciiByWords<uint32_t>(bytes, size);
    }
    return size == 0 || (bytes[0] | bytes[size / 2] | bytes[size - 1]) < 0x80;
}

bool isUtf8Plain(const uint8_t* bytes, size_t size) {
    const uint8_t* const end = bytes + size;
    while (bytes != end) {
        const uint8_t type = utf8_sequenceType[*bytes++];
        if (type == invalidLead) {
            return false;
        }
        VN_ASSERT(type < std::size(utf8_validMin));
        for (size_t i = 0; utf8_validMin[type][i] != 0; ++i, ++bytes) {
            if (bytes == end || *bytes < utf8_validMin[type][i] ||
                *bytes > utf8_validMax[type][i]) {
                return false;
            }
        }
    }
    return true;
}

constexpr Utf8Kernel plainKernel = {isAsciiPlain, 0, isUtf8Plain, 0};

// Usable before the constructor below has run: the plain path works on every processor.
constinit Utf8Kernel chosenKernel = plainKernel;

#if defined(__x86_64__)
[[gnu::constructor]] void chooseKernel() {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) {
        chosenKernel = utf8KernelAvx2;
    } else if (__builtin_cpu_supports("ssse3")) {
        chosenKernel = utf8KernelSsse3;
    }
}
#endif

}  // namespace

const Utf8Kernel utf8KernelPlain = plainKernel;

bool isAsciiBytes(const char* bytes, size_t size) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes);
    return size < chosenKernel.asciiMinimum ? isAsciiPlain(data, size)
                                            : chosenKernel.isAscii(data, size);
}

bool isUtf8Bytes(const char* bytes, size_t size) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes);
    return size < chosenKernel.utf8Minimum ? isUtf8Plain(data, size)
                                           : chosenKernel.isUtf8(data, size);
}

size_t wholeCharacters(const char* text, size_t size) {
    VN_ASSERT(size >= 4);
    size_t start = size;
    while (start > size - 4 && isContinuation(text[start - 1])) {
        --start;
    }
    return static_cast<uint8_t>(text[start - 1]) < 0x80 ? start : start - 1;
}

}  // namespace vncommon

using namespace vncommon;

int vn_isAscii(const char* text) {
    for (;;) {
        const size_t size = strnlen(text, stretchSize);
        if (!isAsciiBytes(text, size)) {
            return 0;
        }
        if (size < stretchSize) {
            return 1;
        }
        text += size;
    }
}

int vn_isUTF8(const char* text) {
    for (;;) {
        size_t size = strnlen(text, stretchSize);
        const bool last = size < stretchSize;
        if (!isAsciiBytes(text, size)) {
            size = last ? size : wholeCharacters(text, size);
            if (!isUtf8Bytes(text, size)) {
                return 0;
            }
        }
        if (last) {
            return 1;
        }
        text += size;
    }
}
