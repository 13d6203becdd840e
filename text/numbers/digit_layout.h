// The forms of a number. A layout turns digits into text in place; the sign is before them. Each
// layout returns the end of the text, which is not terminated.
//
// In a header, because a call would cost as much as the work.
#ifndef VN_TEXT_NUMBERS_DIGIT_LAYOUT_H
#define VN_TEXT_NUMBERS_DIGIT_LAYOUT_H

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/assertion.h"
#include "text/numbers/digits.h"

namespace vncommon {

// "e", the sign, two or three digits.
inline char* putExponent(char* at, int exponent) {
    const int magnitude = std::abs(exponent);
    VN_ASSERT(magnitude < 1000);
    *at++ = 'e';
    *at++ = exponent < 0 ? '-' : '+';
    if (magnitude >= 100) {
        *at++ = static_cast<char>('0' + magnitude / 100);
    }
    *at++ = static_cast<char>('0' + magnitude / 10 % 10);
    *at++ = static_cast<char>('0' + magnitude % 10);
    return at;
}

inline void moveGap(const Digits& digits, int to) {
    VN_ASSERT(isValid(digits) && to >= 0 && to <= digits.length);
    char* const from = digits.text + digits.gap;
    if (to > digits.gap) {
        memmove(from, from + 1, static_cast<size_t>(to - digits.gap));
    } else if (to < digits.gap) {
        memmove(digits.text + to + 1, digits.text + to, static_cast<size_t>(digits.gap - to));
    }
}

// Puts the point after `before` digits, if more digits follow. Returns the end.
inline char* putPoint(const Digits& digits, int before) {
    moveGap(digits, before);
    char* const end = digits.text + digits.length;
    if (before == digits.length) {
        return end;
    }
    digits.text[before] = '.';
    return end + 1;
}

// "ddd.ddd", or "ddd000" where the digits end before the point. At least one digit, which may be
// a zero, is before the point.
inline char* layOutFixed(const Digits& digits) {
    VN_ASSERT(digits.point > 0);
    const int before = std::min(digits.point, digits.length);
    return std::fill_n(putPoint(digits, before), digits.point - before, '0');
}

// "d.ddde+XX", or "de+XX". No leading zeros.
inline char* layOutScientific(const Digits& digits) {
    return putExponent(putPoint(digits, 1), digits.point - 1);
}

// ".000ddd": no zero before the point.
inline char* layOutBelowOne(const Digits& digits) {
    VN_ASSERT(digits.point <= 0);
    moveGap(digits, 0);
    const int zeros = -digits.point;
    char* const first = digits.text + 1 + zeros;
    if (zeros > 0) {
        memmove(first, digits.text + 1, static_cast<size_t>(digits.length));
    }
    digits.text[0] = '.';
    std::fill_n(digits.text + 1, zeros, '0');
    return first + digits.length;
}

// The form of vn_g_fmt. Zeros lead only after the point; an integer ends with at most five zeros.
inline char* layOutShortest(const Digits& digits) {
    if (digits.point < -3 || digits.point > digits.length + 5) {
        return layOutScientific(digits);
    }
    return digits.point <= 0 ? layOutBelowOne(digits) : layOutFixed(digits);
}

}  // namespace vncommon

#endif
