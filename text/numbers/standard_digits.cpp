#include "text/numbers/standard_digits.h"

#include <charconv>
#include <cmath>

#include "platform/assertion.h"

namespace vncommon {

namespace {

// Reads what std::to_chars writes after the 'e': a sign and two or three digits.
int exponentValue(const char* text, const char* end) {
    VN_ASSERT(*text == '+' || *text == '-');
    int magnitude = (text[1] - '0') * 10 + (text[2] - '0');
    if (end - text > 3) {
        magnitude = magnitude * 10 + (text[3] - '0');
    }
    return *text == '-' ? -magnitude : magnitude;
}

// "d.ddde+XX".
Digits digitsOfScientific(char* text, const char* end) {
    const char* letter = end[-4] == 'e' ? end - 4 : end - 5;
    const int point = exponentValue(letter + 1, end) + 1;
    const auto width = static_cast<int>(letter - text);
    VN_ASSERT(*letter == 'e' && width != 2);
    return {text, width == 1 ? 1 : width - 1, 1, point};
}

}  // namespace

Digits shortestDigits(double x, char* room) {
    constexpr int longest = 23;  // "1.7976931348623157e+308"
    const char* end =
        std::to_chars(room, room + longest, std::fabs(x), std::chars_format::scientific).ptr;
    return digitsOfScientific(room, end);
}

Digits fixedDigits(double x, int precision, char* room, char* last) {
    VN_ASSERT(precision >= 0 && precision <= largestPrecision);
    const char* end =
        std::to_chars(room, last, std::fabs(x), std::chars_format::fixed, precision).ptr;
    VN_ASSERT(end > room && end <= last);
    const auto width = static_cast<int>(end - room);
    const int before = precision == 0 ? width : width - precision - 1;
    return {room, before + precision, before, before};
}

Digits scientificDigits(double x, int precision, char* room, char* last) {
    VN_ASSERT(x != 0 && precision >= 1 && precision <= largestPrecision);
    return digitsOfScientific(
        room,
        std::to_chars(room, last, std::fabs(x), std::chars_format::scientific, precision - 1).ptr);
}

}  // namespace vncommon
