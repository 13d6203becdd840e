// Whether text may be read some bytes behind its terminator, which is harmless as long as these lie
// in the page of the terminator. The checkers of memory object to it.
#ifndef VN_PLATFORM_OVER_READING_H
#define VN_PLATFORM_OVER_READING_H

#include <cstddef>
#include <cstdint>

namespace vncommon {

// False under a checker, and before the library's static initialisers have run.
extern bool mayReadBehindText;

constexpr size_t smallestPage = 4096;  // the system's pages are this large, or a multiple of it

// These are always inlined: code that is compiled for other processors uses them too, and must not
// leave copies for all.

[[gnu::always_inline]] inline size_t offsetInPage(const void* text) {
    return reinterpret_cast<uintptr_t>(text) % smallestPage;
}

[[gnu::always_inline]] inline size_t bytesInPage(const void* text) {
    return smallestPage - offsetInPage(text);
}

// Whether so many bytes can be read at text without touching the next page.
[[gnu::always_inline]] inline bool isWithinPage(const void* text, size_t size) {
    return offsetInPage(text) <= smallestPage - size;
}

}  // namespace vncommon

#endif
