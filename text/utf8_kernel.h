// The ways to check a stretch of bytes. utf8_validation.cpp chooses one when the library is loaded.
#ifndef VN_TEXT_UTF8_KERNEL_H
#define VN_TEXT_UTF8_KERNEL_H

#include <cstddef>
#include <cstdint>

namespace vncommon {

struct Utf8Kernel {
    // Checks of a stretch. None of its bytes is zero, and nothing outside of it is read. Each
    // check has a least size.
    bool (*isAscii)(const uint8_t* bytes, size_t size);  // no byte has its top bit set
    size_t asciiMinimum;
    bool (*isUtf8)(const uint8_t* bytes, size_t size);  // whole, valid characters
    size_t utf8Minimum;

    // How many bytes two terminated texts have in common before the terminator: ASCII, equal but
    // for the case of letters. Any smaller answer is allowed. Reads behind a terminator, but never
    // in another page.
    size_t (*commonAscii)(const uint8_t* a, const uint8_t* b);

    // vn_UTF8CaseCmp. Reads behind terminators in the same way.
    int (*caseCompare)(const char* a, const char* b);
};

// Finds letters in a vector of up to 32 bytes. It lies in memory because compilers put such
// constants together in every call otherwise, which takes as long as to compare a short name.
struct LetterMasks {
    alignas(32) uint8_t caseBit[32];
    uint8_t move[32];         // added, makes 'z' the greatest signed byte
    uint8_t belowMovedA[32];  // what lies below 'a' then
};

[[gnu::visibility("hidden")]] extern const LetterMasks letterMasks;

// The rest of vn_UTF8CaseCmp, when so many bytes at the start of both texts are ASCII and equal but
// for the case of letters.
int compareFrom(size_t common, const char* a, const char* b);     // and the next ones are not
int compareAfter(size_t compared, const char* a, const char* b);  // the next ones may be too
int askLocale(const char* a, const char* b);                      // both texts end there

// Where the C library keeps this thread's table of lower-case letters, or null before the first
// question. To ask by the call for it takes as long as to compare 20 bytes.
extern constinit thread_local const int32_t* const* lowerCase
    __attribute__((tls_model("initial-exec")));

// For texts that are ASCII and equal but for the case of letters.
[[gnu::always_inline]] inline int compareEqual(const char* a, const char* b) {
    if (lowerCase != nullptr && (*lowerCase)[size_t{'I'}] == 'i') [[likely]] {
        return 0;
    }
    return askLocale(a, b);
}

extern const Utf8Kernel utf8KernelPlain;  // words and byte tables, for any size
#if defined(__x86_64__)
extern const Utf8Kernel utf8KernelSsse3;
extern const Utf8Kernel utf8KernelAvx2;
#endif

[[gnu::visibility("hidden")]] extern Utf8Kernel utf8Kernel;  // the one chosen for this machine

// With the chosen kernel, or the plain one where the stretch is too short for it.
bool isAsciiBytes(const char* bytes, size_t size);
bool isUtf8Bytes(const char* bytes, size_t size);

inline size_t commonAscii(const char* a, const char* b) {
    return utf8Kernel.commonAscii(reinterpret_cast<const uint8_t*>(a),
                                  reinterpret_cast<const uint8_t*>(b));
}

}  // namespace vncommon

#endif
