// Digits of finite doubles from the standard library, for the layout of the same name.
//
// room is where the text without its sign will be: 23 bytes, or up to last.
#ifndef VN_TEXT_NUMBERS_STANDARD_DIGITS_H
#define VN_TEXT_NUMBERS_STANDARD_DIGITS_H

#include "text/numbers/digits.h"

namespace vncommon {

Digits shortestDigits(double x, char* room);

// precision is 0 to largestPrecision.
Digits fixedDigits(double x, int precision, char* room, char* last);

// x is not zero; precision is 1 to largestPrecision.
Digits scientificDigits(double x, int precision, char* room, char* last);

}  // namespace vncommon

#endif
