// The exported reader of decimal text. Fast paths are used where they give the same result as the
// general path (netlib_conversion.h), which reads everything else.
//
// tests/text compares all paths with each other and with the reader of the C library.
#include <vncommon/numbers.h>

#include <charconv>
#include <cmath>
#include <cstring>

#include "platform/assertion.h"
#include "platform/float_environment.h"
#include "text/numbers/netlib_conversion.h"
#include "text/numbers/powers_of_ten.h"

namespace vncommon {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

const char* skipDigits(const char* text, uint64_t& digits) {
    for (; isDigit(*text); ++text) {
        digits = digits * 10 + static_cast<uint64_t>(*text - '0');
    }
    return text;
}

// Reads a number of at most 15 digits without an exponent. Its digits and the power of ten are
// exact in a double, so one division rounds correctly. Returns the end, or null. Faster than
// readUsual; measured: see docs/benchmarks.md.
const char* readShort(const char* text, double& value) {
    uint64_t digits = 0;
    const char* end = skipDigits(text, digits);
    const ptrdiff_t before = end - text;
    ptrdiff_t places = 0;
    if (*end == '.') {
        const char* fraction = end + 1;
        end = skipDigits(fraction, digits);
        places = end - fraction;
    }
    const ptrdiff_t count = before + places;
    if (count == 0 || count > 15 || (*end | 0x20) == 'e') {
        return nullptr;
    }
    VN_ASSERT(static_cast<size_t>(places) < powersOfTen.size());
    value =
        static_cast<double>(digits) / static_cast<double>(powersOfTen[static_cast<size_t>(places)]);
    return end;
}

// Longer texts go to netlib, because its limit on exponents could matter: it reads an exponent
// beyond 19999 as 19999. Up to this length, that never changes the result.
constexpr ptrdiff_t longestFastText = 16384;

// The first character that cannot belong to the decimal number at the start of text, or a later
// one; null when the number is too long.
const char* boundOfNumber(const char* text) {
    constexpr size_t usual = 64;
    const size_t length = strnlen(text, usual);
    if (length < usual) {
        return text + length;
    }
    const char* at = text;
    while (isDigit(*at) || *at == '.' || *at == 'e' || *at == 'E' || *at == '+' || *at == '-') {
        if (++at - text > longestFastText) {
            return nullptr;
        }
    }
    return at;
}

// std::from_chars rounds correctly, as netlib does, and accepts the same characters; the caller
// handles blanks, sign, hexadecimal and named forms. Results that are not normal doubles are left
// to netlib, because they may set errno.
const char* readUsual(const char* text, double& value) {
    const char* bound = boundOfNumber(text);
    if (bound == nullptr) {
        return nullptr;
    }
    const auto [end, error] = std::from_chars(text, bound, value);
    return error == std::errc{} && std::isnormal(value) ? end : nullptr;
}

// The unsigned decimal number at text, or null.
const char* readDecimal(const char* text, double& value) {
    if ((!isDigit(*text) && *text != '.') || (*text == '0' && (text[1] | 0x20) == 'x')) {
        return nullptr;
    }
    const char* end = readShort(text, value);
    return end != nullptr ? end : readUsual(text, value);
}

[[gnu::noinline]] double readNumber(const char* text, char** end) {
    const char* at = text;
    while (*at == ' ' || (*at >= '\t' && *at <= '\r')) {
        ++at;
    }
    const bool negative = *at == '-';
    if (negative || *at == '+') {
        ++at;
    }
    double value = 0;
    const char* stop = readDecimal(at, value);
    if (stop == nullptr) {
        return readDouble(text, end);
    }
    VN_ASSERT(stop > at);
    if (end != nullptr) {
        *end = const_cast<char*>(stop);
    }
    return negative ? -value : value;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

double vn_strtod(const char* text, char** end) {
    return inDefaultFloatMode<readNumber>(text, end);
}
