// Whether text may be read some bytes behind its terminator, which is harmless as long as these lie
// in the page of the terminator. The checkers of memory object to it.
#ifndef VN_PLATFORM_OVER_READING_H
#define VN_PLATFORM_OVER_READING_H

#include <cstddef>
#include <cstdint>

namespace vncommon {

// False under a checker, and before the library's static initialisers have run.
extern bool mayReadBehindText;

// Whether so many bytes can be read at text without touching the next page. Always inlined: code
// that is compiled for other processors uses it too, and must not leave copies for all.
[[gnu::always_inline]] inline bool isWithinPage(const void* text, size_t size) {
    constexpr size_t pageSize = 4096;  // or a multiple of it
    return reinterpret_cast<uintptr_t>(text) % pageSize <= pageSize - size;
}

}  // namespace vncommon

#endif
