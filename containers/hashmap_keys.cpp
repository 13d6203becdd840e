// The hash and compare callbacks for string keys, and the prime function for hash table sizes.
#include <vncommon/hashmap.h>

#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr uint32_t multiplier = 0x9E3779B9;

constexpr uint64_t largestPrime = 18446744073709551557U;  // the largest prime below 2^64

// For candidates of the form 6k - 1 and 6k + 1, which 2 and 3 do not divide.
bool isPrime(uint64_t candidate) {
    VN_ASSERT(candidate >= 5 && candidate % 2 != 0 && candidate % 3 != 0);
    for (uint64_t divisor = 5; divisor <= candidate / divisor; divisor += 6) {
        if (candidate % divisor == 0 || candidate % (divisor + 2) == 0) {
            return false;
        }
    }
    return true;
}

// The definition is hash = (hash + byte) * multiplier for every byte. Adding n bytes at once makes
// the chain of dependent multiplications shorter: byte i is multiplied by multiplier^(n - i).
template <size_t count>
uint32_t addBytes(uint32_t hash, const signed char* bytes) {
    uint32_t power = 1;
    uint32_t sum = 0;
    for (size_t i = count; i-- > 0;) {
        power *= multiplier;
        sum += static_cast<uint32_t>(int32_t{bytes[i]}) * power;
    }
    return hash * power + sum;
}

#if defined(__SSE2__)

// The factors of sixteen bytes, each as the sum of two 16-bit halves, low + high * 2^16. One
// instruction multiplies eight halves by eight bytes. The low half is signed; the high half
// includes the borrow from the signed low half.
struct Factors {
    alignas(16) std::array<int16_t, 16> low{};
    alignas(16) std::array<int16_t, 16> high{};
    uint32_t ofHash = 1;
};

constexpr Factors makeFactors() {
    Factors factors;
    for (size_t i = 16; i-- > 0;) {
        factors.ofHash *= multiplier;
        const auto low = static_cast<int16_t>(factors.ofHash);
        const uint32_t rest = factors.ofHash - static_cast<uint32_t>(int32_t{low});
        factors.low[i] = low;
        factors.high[i] = static_cast<int16_t>(rest >> 16);
    }
    return factors;
}

constexpr Factors factors = makeFactors();

__m128i load(const void* bytes) {
    return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

uint32_t sumOf(__m128i words) {
    words = _mm_add_epi32(words, _mm_shuffle_epi32(words, 0x4E));
    words = _mm_add_epi32(words, _mm_shuffle_epi32(words, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(words));
}

uint32_t addSixteenBytes(uint32_t hash, const signed char* bytes) {
    const __m128i block = load(bytes);
    const __m128i front = _mm_srai_epi16(_mm_unpacklo_epi8(block, block), 8);
    const __m128i back = _mm_srai_epi16(_mm_unpackhi_epi8(block, block), 8);
    const __m128i low = _mm_add_epi32(_mm_madd_epi16(front, load(factors.low.data())),
                                      _mm_madd_epi16(back, load(&factors.low[8])));
    const __m128i high = _mm_add_epi32(_mm_madd_epi16(front, load(factors.high.data())),
                                       _mm_madd_epi16(back, load(&factors.high[8])));
    return hash * factors.ofHash + sumOf(_mm_add_epi32(low, _mm_slli_epi32(high, 16)));
}

#else

uint32_t addSixteenBytes(uint32_t hash, const signed char* bytes) {
    return addBytes<16>(hash, bytes);
}

#endif

}  // namespace
}  // namespace vncommon

using namespace vncommon;

uint32_t vn_String_hash(const void* string) {
    const auto* bytes = static_cast<const signed char*>(string);
    size_t left = strlen(static_cast<const char*>(string));
    uint32_t hash = 0;
    for (; left >= 16; left -= 16, bytes += 16) {
        hash = addSixteenBytes(hash, bytes);
    }
    if (left >= 8) {
        hash = addBytes<8>(hash, bytes);
        left -= 8;
        bytes += 8;
    }
    if (left >= 4) {
        hash = addBytes<4>(hash, bytes);
        left -= 4;
        bytes += 4;
    }
    for (; left > 0; --left, ++bytes) {
        hash = addBytes<1>(hash, bytes);
    }
    return hash;
}

int32_t vn_String_compare(const void* a, const void* b) {
    return strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

uint64_t vn_nextPrime(uint64_t n) {
    if (n <= 3) {
        return n < 3 ? 2 : 3;
    }
    if (n > largestPrime) {
        return 0;
    }
    for (uint64_t multiple = n / 6 * 6;; multiple += 6) {
        if (multiple > n && isPrime(multiple - 1)) {
            return multiple - 1;
        }
        if (multiple + 1 >= n && isPrime(multiple + 1)) {
            return multiple + 1;
        }
    }
}
