// Compiled with AVX2 instructions; see utf8_vector_kernel.h.
#include "text/utf8/utf8_kernel.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include "text/utf8/utf8_vector_kernel.h"

namespace vncommon {
namespace {

struct Avx2 {
    using Vector = __m256i;

    static Vector zero() { return _mm256_setzero_si256(); }
    static Vector all(uint8_t value) { return _mm256_set1_epi8(static_cast<char>(value)); }
    static Vector load(const uint8_t* bytes) {
        return _mm256_loadu_si256(reinterpret_cast<const Vector*>(bytes));
    }
    static Vector both(Vector a, Vector b) { return _mm256_and_si256(a, b); }
    static Vector either(Vector a, Vector b) { return _mm256_or_si256(a, b); }
    static Vector differ(Vector a, Vector b) { return _mm256_xor_si256(a, b); }
    static Vector topBits(Vector v) { return both(v, all(0x80)); }
    static Vector lowerHalves(Vector v) { return both(v, all(0x0F)); }
    static Vector upperHalves(Vector v) { return lowerHalves(_mm256_srli_epi16(v, 4)); }
    static Vector subtractToZero(Vector v, uint8_t value) {
        return _mm256_subs_epu8(v, all(value));
    }
    static bool isAscii(Vector v) { return _mm256_movemask_epi8(v) == 0; }
    static bool isZero(Vector v) { return _mm256_testz_si256(v, v) != 0; }

    // The element at each index of 0 to 15.
    static Vector lookUp(const uint8_t (&table)[16], Vector indices) {
        const __m128i half = _mm_loadu_si128(reinterpret_cast<const __m128i*>(table));
        return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(half), indices);
    }

    // The bytes that are `count` positions before those of v in the text.
    template <int count>
    static Vector shiftedBy(Vector previous, Vector v) {
        const Vector middle = _mm256_permute2x128_si256(previous, v, 0x21);
        return _mm256_alignr_epi8(v, middle, 16 - count);
    }
};

}  // namespace

constinit const Utf8Kernel utf8KernelAvx2 = makeKernel<Avx2>();

}  // namespace vncommon
#endif
