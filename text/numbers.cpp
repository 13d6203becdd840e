// The exported formatters: fast paths wherever they give the same bytes as the general path
// (conversion.h), which takes the rest.
//
// Fast and general path agree on the hard classes and on random doubles: tests/text, and its soak.
#include "text/numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "platform/float_environment.h"
#include "text/conversion.h"
#include "text/short_decimal.h"

using namespace vncommon;

namespace {

// The longest shortest form, "-1.7976931348623157e+308", without its terminator.
constexpr int shortestLength = 24;

constexpr double powersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

char* putWhole(char* out, uint64_t value) {
    return std::to_chars(out, out + 20, value).ptr;
}

// A point and `places` digits. scale is 10^places; the digit that it adds makes way for the point.
char* putFraction(char* out, uint64_t fraction, uint64_t scale) {
    char* end = putWhole(out, fraction + scale);
    *out = '.';
    return end;
}

// The exponent at the end of a scientific text, of two digits: "e+06", "e-05".
constexpr ptrdiff_t exponentLength = 4;

int exponentValue(const char* text) {
    const int magnitude = (text[2] - '0') * 10 + (text[3] - '0');
    return text[1] == '-' ? -magnitude : magnitude;
}

// Turns "d.ddd" into the fixed form with the point behind the first `point` digits; gives its end.
char* moveThePoint(char* text, int count, int point) {
    if (point <= 0) {
        const int zeros = -point;
        const char first = text[0];
        memmove(text + zeros + 2, text + 2, static_cast<size_t>(count - 1));
        text[0] = '.';
        memset(text + 1, '0', static_cast<size_t>(zeros));
        text[zeros + 1] = first;
        return text + zeros + 1 + count;
    }
    const int before = std::min(point, count);
    memmove(text + 1, text + 2, static_cast<size_t>(before - 1));
    if (point < count) {
        text[point] = '.';
        return text + count + 1;
    }
    memset(text + count, '0', static_cast<size_t>(point - count));
    return text + point;
}

// Any finite x. The scientific form of std::to_chars is ours already, to the byte; only the range
// of the fixed form is not. Gives the end.
//
// 17 digits and 5 zeros do not reach to 1e22, and below 1e-5 there is no fixed form either.
char* putShortest(char* out, double x) {
    char* end = std::to_chars(out, out + shortestLength, x, std::chars_format::scientific).ptr;
    const double magnitude = std::fabs(x);
    if (magnitude >= 1e22 || (magnitude < 1e-5 && magnitude != 0)) {
        return end;
    }
    const char* exponent = end - exponentLength;
    const int point = exponentValue(exponent) + 1;
    char* text = out + (*out == '-' ? 1 : 0);
    const auto width = static_cast<int>(exponent - text);
    const int count = width == 1 ? 1 : width - 1;
    const bool fixed = point >= -3 && point <= count + 5;
    return fixed ? moveThePoint(text, count, point) : end;
}

// Rounds x to few places by one multiplication, a third of the time of std::to_chars. Gives the
// end, or null where that may err.
//
// The product is off by 2^-10 at most, so a remainder below 0.499 is truly below one half.
char* putRounded(char* out, double x, int places) {
    const double scaled = std::fabs(x) * powersOfTen[places];
    if (scaled >= 0x1p43) {
        return nullptr;
    }
    // Off where the sum is rounded itself; the remainder tells.
    // NOLINTNEXTLINE(bugprone-incorrect-roundings)
    const auto nearest = static_cast<uint64_t>(scaled + 0.5);
    if (std::fabs(scaled - static_cast<double>(nearest)) > 0.499) {
        return nullptr;
    }
    *out = '-';
    out += std::signbit(x) ? 1 : 0;
    const auto scale = static_cast<uint64_t>(powersOfTen[places]);
    out = putWhole(out, nearest / scale);
    return places == 0 ? out : putFraction(out, nearest % scale, scale);
}

constexpr int mostRoundedPlaces = 9;
constexpr unsigned roundedSize = 32;  // sign, 13 digits, point, 9 digits and more

// Writes a finite x. What does not fit leaves its first characters, as on the general path.
char* putSized(char* buf, unsigned size, double x, std::chars_format form, int precision) {
    const auto [end, error] = std::to_chars(buf, buf + size - 1, x, form, precision);
    if (error == std::errc{}) [[likely]] {
        *end = '\0';
        return buf;
    }
    char whole[digitAreaSize];
    std::to_chars(whole, whole + sizeof whole, x, form, precision);
    memcpy(buf, whole, size);
    return nullptr;
}

[[gnu::noinline]] char* formatShortest(char* buf, double x) {
    if (char* end = writeShortDecimal(buf, x)) {
        *end = '\0';
        return end;
    }
    if (!std::isfinite(x)) [[unlikely]] {
        return buf + strlen(layOutShortest(buf, x));
    }
    char* end = putShortest(buf, x);
    *end = '\0';
    return end;
}

[[gnu::noinline]] char* formatFixed(char* buf, unsigned size, int precision, double x) {
    if (size < 2 || precision < 0 || !std::isfinite(x)) {
        return layOutFixed(buf, size, precision, x);
    }
    if (size >= roundedSize && precision <= mostRoundedPlaces) {
        if (char* end = putRounded(buf, x, precision)) {
            *end = '\0';
            return buf;
        }
    }
    return putSized(buf, size, x, std::chars_format::fixed, std::min(precision, largestPrecision));
}

[[gnu::noinline]] char* formatScientific(char* buf, unsigned size, int precision, double x) {
    if (size < 2 || x == 0 || !std::isfinite(x)) {
        return layOutScientific(buf, size, precision, x);
    }
    const int places = std::clamp(precision, 1, largestPrecision) - 1;
    return putSized(buf, size, x, std::chars_format::scientific, places);
}

}  // namespace

char* vncommon::writeShortest(char* buf, double x) {
    return inDefaultFloatMode<formatShortest>(buf, x);
}

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
