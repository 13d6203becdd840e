// The exported formatters and the reader: a fast path wherever it gives the same bytes as the
// general path (conversion.h), which takes the rest.
//
// Fast and general path agree on the hard classes and on random doubles: tests/text, and its soak.
#include <vncommon/numbers.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "text/conversion.h"
#include "text/short_decimal.h"

using namespace vncommon;

namespace {

// The longest shortest form, "-1.7976931348623157e+308", without its terminator.
constexpr int shortestLength = 24;

// Length of the exponent ("e+06", "e-300") at the end of a scientific text.
ptrdiff_t exponentLength(const char* end) {
    return end[-4] == 'e' ? 4 : 5;
}

int exponentValue(const char* text, ptrdiff_t length) {
    int magnitude = 0;
    for (ptrdiff_t i = 2; i < length; ++i) {
        magnitude = magnitude * 10 + (text[i] - '0');
    }
    return text[1] == '-' ? -magnitude : magnitude;
}

// Turns "d.ddd" into the fixed form with the point behind the first `point` digits; gives its end.
// Nothing moves by more than 4 places.
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

}  // namespace

char* vncommon::writeShortest(char* buf, double x) {
    if (char* end = writeShortDecimal(buf, x)) {
        *end = '\0';
        return end;
    }
    if (!std::isfinite(x)) [[unlikely]] {
        return buf + strlen(layOutShortest(buf, x));
    }
    // The scientific form is ours already, to the byte; only the range of the fixed form is not.
    char* end = std::to_chars(buf, buf + shortestLength, x, std::chars_format::scientific).ptr;
    const ptrdiff_t tail = exponentLength(end);
    const int point = exponentValue(end - tail, tail) + 1;
    char* text = buf + (*buf == '-' ? 1 : 0);
    const auto width = static_cast<int>(end - tail - text);
    const int count = width == 1 ? 1 : width - 1;
    if (point >= -3 && point <= count + 5) {
        end = moveThePoint(text, count, point);
    }
    *end = '\0';
    return end;
}

char* vn_g_fmt(char* buf, double x) {
    writeShortest(buf, x);
    return buf;
}

char* vn_g_fmt_fixed(char* buf, unsigned size, int precision, double x) {
    if (size < 2 || precision < 0 || !std::isfinite(x)) {
        return layOutFixed(buf, size, precision, x);
    }
    return putSized(buf, size, x, std::chars_format::fixed, std::min(precision, largestPrecision));
}

char* vn_g_fmt_scientific(char* buf, unsigned size, int precision, double x) {
    if (size < 2 || x == 0 || !std::isfinite(x)) {
        return layOutScientific(buf, size, precision, x);
    }
    const int places = std::clamp(precision, 1, largestPrecision) - 1;
    return putSized(buf, size, x, std::chars_format::scientific, places);
}

namespace {

// Longer texts go to netlib, whose limit on exponents they could reach: it takes those beyond 19999
// for 19999, which no text of this length can tell from the true one, but a longer one could.
constexpr ptrdiff_t longestFastText = 16384;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The decimal number at the start of text, which has a digit or a point there: the first character
// that cannot belong to it, or null when it is too long to read fast.
const char* boundOfNumber(const char* text) {
    const char* at = text;
    while (isDigit(*at) || *at == '.' || *at == 'e' || *at == 'E' || *at == '+' || *at == '-') {
        if (++at - text > longestFastText) {
            return nullptr;
        }
    }
    return at;
}

// Reads the plain decimal form of a normal double. std::from_chars rounds correctly as netlib does,
// and accepts the same characters once blanks, sign, hexadecimal and named forms are out of the
// way. Zero and everything near the ends of the range, where errno comes in, are netlib's.
bool readFast(const char* text, char** end, double& value) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    const bool negative = *text == '-';
    if (negative || *text == '+') {
        ++text;
    }
    if ((!isDigit(*text) && *text != '.') || (*text == '0' && (text[1] | 0x20) == 'x')) {
        return false;
    }
    const char* bound = boundOfNumber(text);
    if (bound == nullptr) {
        return false;
    }
    const auto [stop, error] = std::from_chars(text, bound, value);
    if (error != std::errc{} || !std::isnormal(value)) {
        return false;
    }
    value = negative ? -value : value;
    if (end != nullptr) {
        *end = const_cast<char*>(stop);
    }
    return true;
}

}  // namespace

double vn_strtod(const char* text, char** end) {
    double value = 0;
    return readFast(text, end, value) ? value : readDouble(text, end);
}
