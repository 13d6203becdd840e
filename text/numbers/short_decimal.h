// Shortest digits of short decimals, such as prices, counts and measurements.
//
// Correctness: n / 1e6 with n below 2^53 is rounded once, so it is the double nearest to that
// decimal of six places. If it equals x, the decimal reads back to x. No other decimal of at most
// 15 digits has the same nearest double, so this one, without trailing zeros, is the shortest.
// An integer below 2^53 has neighbouring doubles at a distance of at most 1, so any shorter text
// reads back to another number. An integer with six trailing zeros needs an exponent: not here.
//
// In a header, because a call would cost as much as the work.
#ifndef VN_TEXT_NUMBERS_SHORT_DECIMAL_H
#define VN_TEXT_NUMBERS_SHORT_DECIMAL_H

#include <cmath>
#include <cstdint>

#include "text/numbers/digits.h"
#include "text/numbers/scaled_digits.h"

namespace vncommon {

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
    return true;
}

}  // namespace vncommon

#endif
