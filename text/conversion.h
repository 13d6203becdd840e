// netlib's conversion between doubles and decimal text, for the sources of this folder.
//
// It is the reference: numbers.cpp takes a faster way wherever that gives the same bytes, and the
// tests compare the two through this header.
#ifndef VN_TEXT_CONVERSION_H
#define VN_TEXT_CONVERSION_H

#include <cstddef>

namespace vncommon {

enum class DigitMode {
    shortest = 0,     // the shortest digits that read back to the same double
    significant = 2,  // at most so many significant digits; less than 1 counts as 1
    places = 3,       // up to so many places behind the point, negative: before it
};

constexpr int largestPrecision = 100;
constexpr size_t digitAreaSize = 512;
constexpr int infinityPoint = 9999;

// The value is 0.d1d2d3... times 10 to the power point. The digits have no leading or trailing
// zeros (zero is "0") and may be none when a negative number of places leaves nothing. An infinity
// is the text "Infinity" and infinityPoint.
struct Digits {
    const char* text;
    int length;
    int point;
    bool negative;  // also for -0.0
};

// Digits of x, which is not a NaN. precision is at most largestPrecision and ignored for the
// shortest. The digits stand in area or in constant text. Ties go to even.
Digits convertToDigits(double x, DigitMode mode, int precision, char (&area)[digitAreaSize]);

// The general path of vn_strtod.
double readDouble(const char* text, char** end);

// The general paths of the three formatters, for every argument that those take.
char* layOutShortest(char* buffer, double x);
char* layOutFixed(char* buffer, unsigned size, int precision, double x);
char* layOutScientific(char* buffer, unsigned size, int precision, double x);

}  // namespace vncommon

#endif
