// The exported formatters. The digits come from the fastest source that gives the same digits as
// netlib's conversion; digit_layout.h turns them into text.
//
// tests/text compares the sources with each other on difficult and on random doubles.
#include "text/numbers/double_text.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/assertion.h"
#include "platform/float_environment.h"
#include "text/numbers/digit_layout.h"
#include "text/numbers/netlib_conversion.h"
#include "text/numbers/scaled_digits.h"
#include "text/numbers/short_decimal.h"
#include "text/numbers/standard_digits.h"

namespace vncommon {
namespace {

char* putSign(char* at, double x) {
    *at = '-';
    return at + (std::signbit(x) ? 1 : 0);
}

// Without a terminator. Compat: a NaN has no sign.
char* putNamed(char* at, double x) {
    const std::string_view name = std::isnan(x) ? "NaN" : "Infinity";
    return std::copy(name.begin(), name.end(), std::isnan(x) ? at : putSign(at, x));
}

// Copies the text from whole to end into buf, unless it is there already. Of a text that does not
// fit, the first characters are copied.
char* finish(char* buf, unsigned size, char* whole, char* end) {
    *end++ = '\0';
    const auto length = static_cast<size_t>(end - whole);
    VN_ASSERT(whole == buf ? length <= size : length <= digitAreaSize);
    if (whole != buf) [[unlikely]] {
        memcpy(buf, whole, std::min<size_t>(length, size));
    }
    return length <= size ? buf : nullptr;
}

char* formatNamed(char* buf, unsigned size, double x) {
    char whole[sizeof "-Infinity"];
    if (std::isnan(x) && size < sizeof "NaN") {
        return nullptr;
    }
    return finish(buf, size, whole, putNamed(whole, x));
}

char* terminate(char* end) {
    *end = '\0';
    return end;
}

[[gnu::noinline]] char* formatShortest(char* buf, double x) {
    char* text = putSign(buf, x);
    Digits digits;
    if (shortDecimalDigits(x, text, digits)) {
        return terminate(layOutShortest(digits));
    }
    if (!std::isfinite(x)) [[unlikely]] {
        return terminate(putNamed(buf, x));
    }
    return terminate(layOutShortest(shortestDigits(x, text)));
}

// Falls back to the standard library where exact scaling cannot be used.
char* formatFixedInAnySize(char* buf, unsigned size, int places, double x) {
    DigitArea area;
    char* text = putSign(area, x);
    Digits digits;
    if (places > mostScaledPlaces || !scaledDigits(x, places, text, digits)) {
        digits = fixedDigits(x, places, text, std::end(area));
    }
    return finish(buf, size, area, layOutFixed(digits));
}

// Rounds to the left of the point.
// Compat: if no digit is left, one zero is written for every place.
char* formatFixedByNetlib(char* buf, unsigned size, int places, double x) {
    DigitArea area;
    char* text = putSign(area, x);
    const Digits digits = convertToDigits(x, DigitMode::places, places, text);
    if (digits.length > 0) {
        return finish(buf, size, area, layOutFixed(digits));
    }
    VN_ASSERT(digits.point > 0);
    const size_t length = static_cast<size_t>(text - area) + static_cast<size_t>(digits.point);
    memset(putSign(buf, x), '0', std::min<size_t>(length, size) - static_cast<size_t>(text - area));
    if (length >= size) {
        return nullptr;
    }
    terminate(buf + length);
    return buf;
}

[[gnu::noinline]] char* formatFixed(char* buf, unsigned size, int precision, double x) {
    constexpr unsigned enoughBesidePlaces = 22;  // sign, point, terminator, 19 digits before them
    const auto places = static_cast<unsigned>(precision);
    Digits digits;
    if (places <= mostScaledPlaces && size >= enoughBesidePlaces + places &&
        scaledDigits(x, precision, putSign(buf, x), digits)) {
        terminate(layOutFixed(digits));
        return buf;
    }
    if (size < 2) {
        return nullptr;
    }
    if (!std::isfinite(x)) {
        return formatNamed(buf, size, x);
    }
    return precision < 0
               ? formatFixedByNetlib(buf, size, precision, x)
               : formatFixedInAnySize(buf, size, std::min(precision, largestPrecision), x);
}

// Compat: zero has no sign; if the text does not fit, the buffer holds "0." only.
char* formatScientificZero(char* buf, unsigned size, int count) {
    buf[0] = '0';
    buf[1] = '.';
    if (static_cast<unsigned>(count) + 5 >= size) {
        return nullptr;
    }
    terminate(putExponent(std::fill_n(buf + 2, count - 1, '0'), 0));
    return buf;
}

[[gnu::noinline]] char* formatScientific(char* buf, unsigned size, int precision, double x) {
    if (size < 2) {
        return nullptr;
    }
    if (!std::isfinite(x)) [[unlikely]] {
        return formatNamed(buf, size, x);
    }
    const int count = std::clamp(precision, 1, largestPrecision);  // less than 1 counts as 1
    if (x == 0) {
        return formatScientificZero(buf, size, count);
    }
    DigitArea area;
    const bool enough = size >= static_cast<unsigned>(count) + sizeof "-.e+308";
    char* whole = enough ? buf : area;
    char* last = whole + (enough ? size : sizeof area);
    return finish(buf, size, whole,
                  layOutScientific(scientificDigits(x, count, putSign(whole, x), last)));
}

}  // namespace

char* writeShortest(char* buf, double x) {
    return inDefaultFloatMode<formatShortest>(buf, x);
}

}  // namespace vncommon

using namespace vncommon;

char* vn_g_fmt(char* buf, double x) {
    writeShortest(buf, x);
    return buf;
}

char* vn_g_fmt_fixed(char* buf, unsigned size, int precision, double x) {
    return inDefaultFloatMode<formatFixed>(buf, size, precision, x);
}

char* vn_g_fmt_scientific(char* buf, unsigned size, int precision, double x) {
    return inDefaultFloatMode<formatScientific>(buf, size, precision, x);
}
