// Digits by exact scaling, for most doubles and few places.
//
// In a header, because a call would cost as much as the work.
#ifndef VN_TEXT_NUMBERS_SCALED_DIGITS_H
#define VN_TEXT_NUMBERS_SCALED_DIGITS_H

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "platform/assertion.h"
#include "text/numbers/digits.h"
#include "text/numbers/exact_scaling.h"

namespace vncommon {

inline constexpr std::array<char, 200> digitPairs = [] {
    std::array<char, 200> pairs{};
    for (size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

inline int writeInteger(char* at, uint64_t value) {
    return static_cast<int>(std::to_chars(at, at + 20, value).ptr - at);
}

// Exactly `count` digits, with leading zeros.
template <typename Unsigned>
void writeDigits(char* at, Unsigned value, int count) {
    for (; count >= 2; count -= 2, value /= 100) {
        memcpy(at + count - 2, &digitPairs[2 * (value % 100)], 2);
    }
    VN_ASSERT(count == 1 ? value < 10 : value == 0);
    if (count == 1) {
        *at = static_cast<char>('0' + value % 10);
    }
}

// The digits of |x| rounded to 0 or more places, ties to even. At least one digit, which may be a
// zero, is before the point. False where scaleExactly is. room is where the text without its sign
// will be: 22 bytes and the places.
inline bool scaledDigits(double x, int places, char* room, Digits& digits) {
    uint64_t scaled;
    if (!scaleExactly(x, places, scaled)) {
        return false;
    }
    const uint64_t scale = powersOfTen[static_cast<size_t>(places)];
    const int before = writeInteger(room, scaled / scale);
    writeDigits(room + before + 1, scaled % scale, places);
    digits = {room, before + places, before, before};
    VN_ASSERT(isValid(digits) && before > 0);
    return true;
}

}  // namespace vncommon

#endif
