// Implementations of the checks of a stretch of bytes. utf8_validation.cpp chooses one when the
// library is loaded.
#ifndef VN_TEXT_UTF8_UTF8_KERNEL_H
#define VN_TEXT_UTF8_UTF8_KERNEL_H

#include <cstddef>
#include <cstdint>

namespace vncommon {

struct Utf8Kernel {
    // Each check has a minimum size of the stretch and reads nothing outside it.
    bool (*isAscii)(const uint8_t* bytes, size_t size);  // no byte has its top bit set
    size_t asciiMinimum;
    bool (*isUtf8)(const uint8_t* bytes, size_t size);  // whole, valid characters
    size_t utf8Minimum;
};

extern const Utf8Kernel utf8KernelPlain;  // words and byte tables, for any size
#if defined(__x86_64__)
extern const Utf8Kernel utf8KernelSsse3;
extern const Utf8Kernel utf8KernelAvx2;
#endif

// With the kernel chosen for this machine, or the plain one where the stretch is too short for it.
bool isAsciiBytes(const char* bytes, size_t size);
bool isUtf8Bytes(const char* bytes, size_t size);

// Text of unknown length is measured and then checked one stretch at a time. The second pass finds
// the bytes in the first-level cache, and neither pass reads after the terminator.
constexpr size_t stretchSize = 4096;

constexpr bool isContinuation(char byte) {
    return (static_cast<uint8_t>(byte) & 0xC0) == 0x80;
}

// Returns size, which is at least 4, without a last character that may continue after it.
size_t wholeCharacters(const char* text, size_t size);

}  // namespace vncommon

#endif
