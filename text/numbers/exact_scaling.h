// A double times a power of ten, rounded once. Uses integers only, so the rounding mode of the
// processor has no effect.
#ifndef VN_TEXT_NUMBERS_EXACT_SCALING_H
#define VN_TEXT_NUMBERS_EXACT_SCALING_H

#include <bit>
#include <cstdint>

#include "platform/assertion.h"
#include "text/numbers/powers_of_ten.h"

namespace vncommon {

constexpr int mostScaledPlaces = static_cast<int>(powersOfTen.size()) - 1;

// |x| * 10^places rounded to an integer, ties to even. False from 2^52 on, for an infinity or a
// NaN, and where the result needs more than 63 bits. places is 0 to mostScaledPlaces.
inline bool scaleExactly(double x, int places, uint64_t& scaled) {
    __extension__ typedef unsigned __int128 Wide;  // NOLINT(modernize-use-using): no __extension__
    constexpr int fractionBits = 52;
    constexpr int productBits = fractionBits + 1 + 64;
    constexpr uint64_t hiddenBit = uint64_t{1} << fractionBits;

    VN_ASSERT(places >= 0 && places <= mostScaledPlaces);

    // |x| is mantissa / 2^shift.
    const auto bits = std::bit_cast<uint64_t>(x);
    const uint64_t mantissa = (bits & (hiddenBit - 1)) | hiddenBit;
    int shift = 1023 + fractionBits - static_cast<int>(bits >> fractionBits & 0x7ff);
    if (shift < 1) {
        return false;
    }
    if (shift > productBits) {  // below one half: zero and subnormal numbers are here
        scaled = 0;
        return true;
    }
    Wide product = Wide{mantissa} * powersOfTen[static_cast<size_t>(places)];
    if (shift > 63) {  // of the bits far below one half, only zero or not zero matters
        constexpr int far = 62;
        const bool rest = (static_cast<uint64_t>(product) << (64 - far)) != 0;
        product = product >> far | (rest ? 1 : 0);
        shift -= far;
    }
    VN_ASSERT(shift >= 1 && shift <= 63);
    product += uint64_t{1} << (shift - 1);  // one half
    const auto low = static_cast<uint64_t>(product);
    const auto high = static_cast<uint64_t>(product >> 64);
    if (high >> (shift - 1) != 0) {
        return false;
    }
    scaled = high << (64 - shift) | low >> shift;
    const bool tie = low << (64 - shift) == 0;
    scaled -= tie ? scaled & 1 : 0;
    return true;
}

}  // namespace vncommon

#endif
