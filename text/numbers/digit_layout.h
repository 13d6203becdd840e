// The forms of a number: digits, from whichever source, are made its text where they are. The sign
// is before them. Each layout returns the end of the text, which is not terminated.
//
// In a header: calls would take as long as the work.
#ifndef VN_TEXT_NUMBERS_DIGIT_LAYOUT_H
#define VN_TEXT_NUMBERS_DIGIT_LAYOUT_H

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "text/numbers/digits.h"

namespace vncommon {

inline char* putZeros(char* at, int count) {
    if (count <= 0) {
        return at;
    }
    memset(at, '0', static_cast<size_t>(count));
    return at + count;
}

// "e", the sign, two or three digits.
inline char* putExponent(char* at, int exponent) {
    const int magnitude = std::abs(exponent);
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
    char* const from = digits.text + digits.gap;
    if (to > digits.gap) {
        memmove(from, from + 1, static_cast<size_t>(to - digits.gap));
    } else if (to < digits.gap) {
        memmove(digits.text + to + 1, digits.text + to, static_cast<size_t>(digits.gap - to));
    }
}

// The point after so many digits, if more follow. Returns the end.
inline char* putPoint(const Digits& digits, int before) {
    moveGap(digits, before);
    char* const end = digits.text + digits.length;
    if (before == digits.length) {
        return end;
    }
    digits.text[before] = '.';
    return end + 1;
}

// "ddd.ddd", or "ddd000" where the digits end before the point. At least one digit is before the
// point; zeros are as good as others.
inline char* layOutFixed(const Digits& digits) {
    const int before = std::min(digits.point, digits.length);
    return putZeros(putPoint(digits, before), digits.point - before);
}

// "d.ddde+XX", or "de+XX". No leading zeros.
inline char* layOutScientific(const Digits& digits) {
    return putExponent(putPoint(digits, 1), digits.point - 1);
}

// ".000ddd": no zero before the point.
inline char* layOutBelowOne(const Digits& digits) {
    moveGap(digits, 0);
    const int zeros = -digits.point;
    char* const first = digits.text + 1 + zeros;
    if (zeros > 0) {
        memmove(first, digits.text + 1, static_cast<size_t>(digits.length));
    }
    digits.text[0] = '.';
    putZeros(digits.text + 1, zeros);
    return first + digits.length;
}

// The form of vn_g_fmt. No leading zeros, except where the point is before them; no trailing ones,
// but an integer may have five.
inline char* layOutShortest(const Digits& digits) {
    if (digits.point < -3 || digits.point > digits.length + 5) {
        return layOutScientific(digits);
    }
    return digits.point <= 0 ? layOutBelowOne(digits) : layOutFixed(digits);
}

}  // namespace vncommon

#endif
