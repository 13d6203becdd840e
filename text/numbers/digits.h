// The digits of a double, stored where its text will be.
#ifndef VN_TEXT_NUMBERS_DIGITS_H
#define VN_TEXT_NUMBERS_DIGITS_H

#include <cstddef>

namespace vncommon {

constexpr int largestPrecision = 100;

// Room for any digits, and for any text laid out from them.
constexpr size_t digitAreaSize = 512;
using DigitArea = char[digitAreaSize];

// The value is 0.d1d2d3... times 10 to the power point. After the first `gap` digits, one byte is
// left free for the decimal point. Each source leaves it where that is cheapest, and the layout
// moves it. gap equals length if there is no free byte.
struct Digits {
    char* text;
    int length;
    int gap;
    int point;
};

[[maybe_unused]] inline bool isValid(const Digits& digits) {
    return digits.text != nullptr && digits.gap >= 0 && digits.gap <= digits.length;
}

}  // namespace vncommon

#endif
