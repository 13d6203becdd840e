// Shortest digits of short decimals, such as prices, counts and measurements.
//
// Correctness: n / 1e6 with n below 2^53 is rounded once, so it is the double nearest to that
// decimal of six places; the same holds for n / 100. If it equals x, the decimal reads back to x.
// No other decimal of at most 15 digits has the same nearest double, so this one, without trailing
// zeros, is the shortest. An integer below 2^53 has neighbouring doubles at a distance of at most
// 1, so any shorter text reads back to another number. An integer with six trailing zeros needs an
// exponent: not here.
//
// In a header, because a call would cost as much as the work.
#ifndef VN_TEXT_NUMBERS_SHORT_DECIMAL_H
#define VN_TEXT_NUMBERS_SHORT_DECIMAL_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "platform/assertion.h"
#include "text/numbers/digits.h"
#include "text/numbers/scaled_digits.h"

namespace vncommon {

// The eight digits of a number below 10^8, each in a byte, the first one in the lowest byte. Every
// step splits all lanes of the word at once: into four digits each, two, one. A lane is divided by
// a multiplication; 10486 is 2^20 / 100 and 103 is 2^10 / 10, both rounded up.
inline uint64_t eightDigits(uint32_t number) {
    const uint64_t fours = number / 10000 | uint64_t{number % 10000} << 32;
    const uint64_t upper = fours * 10486 >> 20 & 0x0000'007f'0000'007f;
    const uint64_t twos = upper | (fours - upper * 100) << 16;
    const uint64_t tens = twos * 103 >> 10 & 0x000f'000f'000f'000f;
    return tens | (twos - tens * 10) << 8;
}

// Writes eight digits as text, the lowest byte first.
inline void putEight(char* at, uint64_t digits) {
    uint64_t text = digits | 0x3030'3030'3030'3030;
    if constexpr (std::endian::native == std::endian::big) {
        text = __builtin_bswap64(text);
    }
    memcpy(at, &text, sizeof text);
}

// The digits of hundredths / 100, for 1 to 10^8 - 1 hundredths.
inline Digits priceDigits(uint32_t hundredths, char* room) {
    const uint64_t digits = eightDigits(hundredths);
    const int zeros = std::min(std::countr_zero(digits) / 8, 6);
    const int before = 6 - zeros;
    putEight(room, digits >> (8 * zeros));
    putEight(room + before + 1, digits >> 48);
    const int after = (digits >> 48 != 0 ? 1 : 0) + (digits >> 56 != 0 ? 1 : 0);
    return {room, before + after, before, before};
}

// The shortest digits of an integer below 2^53, or of a magnitude from 1e-4 to below 1e9 with at
// most six places. False for the others, and for those whose text has an exponent. room is where
// the text without its sign will be: 24 bytes.
inline bool shortDecimalDigits(double x, char* room, Digits& digits) {
    constexpr int places = 6;
    constexpr auto million = static_cast<int64_t>(powersOfTen[places]);
    const double magnitude = std::fabs(x);
    if (!(magnitude >= 1e-4 && magnitude < 0x1p53)) {
        return false;
    }
    // Whole numbers and prices: all digits fit in one word.
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): the division below rejects a wrong candidate
    const auto hundredths = static_cast<int64_t>(magnitude * 100 + 0.5);
    if (magnitude < 1e6 && static_cast<double>(hundredths) / 100 == magnitude) {
        digits = priceDigits(static_cast<uint32_t>(hundredths), room);
        return true;
    }
    const auto integer = static_cast<int64_t>(magnitude);
    if (static_cast<double>(integer) == magnitude) {
        const int length = writeInteger(room, static_cast<uint64_t>(integer));
        digits = {room, length, length, length};
        return integer % million != 0;
    }
    uint64_t scaled;
    if (magnitude >= 1e9 || !scaleExactly(magnitude, places, scaled) ||
        static_cast<double>(static_cast<int64_t>(scaled)) / million != magnitude) {
        return false;
    }
    const int before = integer == 0 ? 0 : writeInteger(room, static_cast<uint64_t>(integer));
    const auto fraction = static_cast<int64_t>(scaled) - integer * million;
    writeDigits(room + before + 1, static_cast<uint32_t>(fraction), places);
    digits = {room, before + places, before, before};
    while (digits.text[digits.length] == '0') {
        --digits.length;
    }
    VN_ASSERT(digits.length >= before && digits.length > 0);
    return true;
}

}  // namespace vncommon

#endif
