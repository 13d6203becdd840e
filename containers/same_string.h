// Whether two strings are equal, for lookups of a HashMap.
#ifndef VN_CONTAINERS_SAME_STRING_H
#define VN_CONTAINERS_SAME_STRING_H

#include <cstring>

#include "platform/over_reading.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vncommon {

#if defined(__SSE2__)

// Sixteen bytes at a time, without the call: a lookup among 1e3 strings takes a tenth less.
[[gnu::always_inline]] inline bool sameStringInBlocks(const char* a, const char* b) {
    constexpr size_t blockSize = 16;
    for (; isWithinPage(a, blockSize) && isWithinPage(b, blockSize);
         a += blockSize, b += blockSize) {
        const __m128i blockOfA = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
        const __m128i blockOfB = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
        const int equal = _mm_movemask_epi8(_mm_cmpeq_epi8(blockOfA, blockOfB));
        const int ends = _mm_movemask_epi8(_mm_cmpeq_epi8(blockOfA, _mm_setzero_si128()));
        if (ends != 0) {
            const int upToEnd = ends ^ (ends - 1);
            return (~equal & upToEnd) == 0;
        }
        if (equal != 0xFFFF) {
            return false;
        }
    }
    return strcmp(a, b) == 0;
}

#endif

[[gnu::always_inline]] inline bool sameString(const void* a, const void* b) {
    const auto* first = static_cast<const char*>(a);
    const auto* second = static_cast<const char*>(b);
#if defined(__SSE2__)
    if (mayReadBehindText) {
        return sameStringInBlocks(first, second);
    }
#endif
    return strcmp(first, second) == 0;
}

}  // namespace vncommon

#endif
