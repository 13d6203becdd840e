// The digits of a double, from whichever source, where its text is to be.
#ifndef VN_TEXT_NUMBERS_DIGITS_H
#define VN_TEXT_NUMBERS_DIGITS_H

#include <cstddef>

namespace vncommon {

constexpr int largestPrecision = 100;

// Room for any digits, and for any text laid out from them.
constexpr size_t digitAreaSize = 512;
using DigitArea = char[digitAreaSize];

// The value is 0.d1d2d3... times 10 to the power point. After the first `gap` digits is a byte that
// is no digit, as room for the decimal point: the layout moves it, and each source leaves it where
// that costs least. gap is length where there is none.
struct Digits {
    char* text;
    int length;
    int gap;
    int point;
};

}  // namespace vncommon

#endif
