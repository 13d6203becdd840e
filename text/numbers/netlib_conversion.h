// netlib's conversion between doubles and decimal text: the general path, for every argument.
//
// It is the reference: faster paths are used only where they give the same bytes, and the tests
// compare them with this one.
#ifndef VN_TEXT_NUMBERS_NETLIB_CONVERSION_H
#define VN_TEXT_NUMBERS_NETLIB_CONVERSION_H

#include "text/numbers/digits.h"

namespace vncommon {

enum class DigitMode {
    shortest = 0,     // the shortest digits that read back to the same double
    significant = 2,  // at most that many significant digits; less than 1 counts as 1
    places = 3,       // at most that many places after the point; if negative, before it
};

// Digits of a finite x without leading zeros (zero is "0"), or none when a negative number of
// places leaves nothing. Trailing zeros remain only where a tie of an integer is rounded down: 205
// to two digits is "20". precision is at most largestPrecision and ignored for the shortest. room
// holds digitAreaSize bytes, less one for a sign. Ties go to even.
Digits convertToDigits(double x, DigitMode mode, int precision, char* room);

// The general path of vn_strtod.
double readDouble(const char* text, char** end);

}  // namespace vncommon

#endif
