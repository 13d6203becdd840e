// Compiled with SSSE3 instructions; see utf8_vector_kernel.h.
#include "text/utf8/utf8_kernel.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include "text/utf8/utf8_vector_kernel.h"

namespace vncommon {
namespace {

struct Ssse3 {
    using Vector = __m128i;

    static Vector zero() { return _mm_setzero_si128(); }
    static Vector all(uint8_t value) { return _mm_set1_epi8(static_cast<char>(value)); }
    static Vector load(const uint8_t* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const Vector*>(bytes));
    }
    static Vector both(Vector a, Vector b) { return _mm_and_si128(a, b); }
    static Vector either(Vector a, Vector b) { return _mm_or_si128(a, b); }
    static Vector differ(Vector a, Vector b) { return _mm_xor_si128(a, b); }
    static Vector topBits(Vector v) { return both(v, all(0x80)); }
    static Vector lowerHalves(Vector v) { return both(v, all(0x0F)); }
    static Vector upperHalves(Vector v) { return lowerHalves(_mm_srli_epi16(v, 4)); }
    static Vector subtractToZero(Vector v, uint8_t value) { return _mm_subs_epu8(v, all(value)); }
    static bool isAscii(Vector v) { return _mm_movemask_epi8(v) == 0; }
    static bool isZero(Vector v) { return _mm_movemask_epi8(_mm_cmpeq_epi8(v, zero())) == 0xFFFF; }

    // The element at each index of 0 to 15.
    static Vector lookUp(const uint8_t (&table)[16], Vector indices) {
        return _mm_shuffle_epi8(load(table), indices);
    }

    // The bytes that are `count` positions before those of v in the text.
    template <int count>
    static Vector shiftedBy(Vector previous, Vector v) {
        return _mm_alignr_epi8(v, previous, 16 - count);
    }
};

}  // namespace

constinit const Utf8Kernel utf8KernelSsse3 = makeKernel<Ssse3>();

}  // namespace vncommon
#endif
