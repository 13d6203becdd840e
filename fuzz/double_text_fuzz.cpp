// The three formatters of doubles and the text of decimals, compared with the C library's
// conversions and with the general path. An input is a double, a precision and a size.
#include <vncommon/numbers.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/oracles.h"
#include "tests/text/numbers/numbers_reference.h"

namespace {

using Formatter = char* (*)(char* buffer, unsigned size, int precision, double x);

std::string finiteText(const char* format, int precision, double x) {
    char text[512];
    snprintf(text, sizeof text, format, precision, x);
    return text;
}

std::string namedText(double x) {
    return std::isnan(x) ? "NaN" : x < 0 ? "-Infinity" : "Infinity";
}

std::string fixedText(int precision, double x) {
    return std::isfinite(x) ? finiteText("%.*f", std::min(precision, 100), x) : namedText(x);
}

std::string scientificText(int precision, double x) {
    const int digits = std::clamp(precision, 1, 100);
    if (x == 0) {
        return "0." + std::string(static_cast<size_t>(digits - 1), '0') + "e+00";
    }
    return std::isfinite(x) ? finiteText("%.*e", digits - 1, x) : namedText(x);
}

// The integer, rounded at the given place left of the point; needs at least one remaining digit.
std::string roundedInteger(int places, double x) {
    const int digits = fuzz::scientific(x, 60).exponent + 1 - places;
    if (digits < 1) {
        return "";
    }
    const fuzz::Scientific rounded = fuzz::scientific(x, digits);
    const auto length = static_cast<size_t>(rounded.exponent + 1);
    std::string text = rounded.digits.substr(0, length);
    text.resize(length, '0');
    return (std::signbit(x) ? "-" : "") + text;
}

// Checks that the text is whole if it fits with its terminator; otherwise that the buffer has the
// first part of it.
void checkSized(Formatter formatter, unsigned size, int precision, double x,
                const std::string& expected) {
    const std::unique_ptr<char[]> buffer(new char[size]);
    std::fill_n(buffer.get(), size, '#');
    const char* result = formatter(buffer.get(), size, precision, x);
    if (expected.size() < size) {
        FUZZ_REQUIRE(result == buffer.get() && expected == result);
        return;
    }
    FUZZ_REQUIRE(result == nullptr);
    for (unsigned i = 0; i < size; ++i) {
        FUZZ_REQUIRE(buffer[i] == '#' || buffer[i] == expected[i]);
    }
}

void checkSameAsGeneral(Formatter formatter, Formatter general, unsigned size, int precision,
                        double x) {
    const std::unique_ptr<char[]> ours(new char[size]);
    const std::unique_ptr<char[]> theirs(new char[size]);
    std::fill_n(ours.get(), size, '#');
    std::fill_n(theirs.get(), size, '#');
    const bool fits = formatter(ours.get(), size, precision, x) != nullptr;
    FUZZ_REQUIRE(fits == (general(theirs.get(), size, precision, x) != nullptr));
    const size_t length = fits ? strlen(ours.get()) + 1 : size;
    FUZZ_REQUIRE(memcmp(ours.get(), theirs.get(), length) == 0);
}

void checkShortest(double x) {
    const std::unique_ptr<char[]> buffer(new char[25]);
    FUZZ_REQUIRE(vn_g_fmt(buffer.get(), x) == buffer.get());
    const std::string text = buffer.get();
    FUZZ_REQUIRE(text == fuzz::shortestText(x));
    FUZZ_REQUIRE(text == reference::shortestText(x));
    if (!std::isnan(x)) {
        char* end;
        const double back = vn_strtod(text.c_str(), &end);
        FUZZ_REQUIRE(*end == '\0' && memcmp(&back, &x, sizeof x) == 0);
    }
}

void checkDecimal(uint64_t bits) {
    const std::unique_ptr<char[]> buffer(new char[23]);
    vn_dec_to_string(bits, buffer.get());
    const std::string text = buffer.get();
    FUZZ_REQUIRE(text == fuzz::decimalText(bits));
    const bool isNan = text.find('N') != text.npos;
    const bool isInfinite = text.find('I') != text.npos;
    FUZZ_REQUIRE((vn_dec_isnan(bits) != 0) == isNan);
    FUZZ_REQUIRE((vn_dec_isinfinite(bits) != 0) == isInfinite);
    FUZZ_REQUIRE((vn_dec_isfinite(bits) != 0) == (!isNan && !isInfinite));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const uint64_t bits = input.word();
    const int precision = static_cast<int>(input.below(480)) - 340;
    const unsigned room = 1 + input.below(440);
    double x;
    memcpy(&x, &bits, sizeof x);

    checkShortest(x);
    checkDecimal(bits);
    checkSized(vn_g_fmt_scientific, room, precision, x, scientificText(precision, x));
    checkSameAsGeneral(vn_g_fmt_scientific, reference::scientific, room, precision, x);
    checkSameAsGeneral(vn_g_fmt_fixed, reference::fixed, room, precision, x);
    if (precision >= 0 || !std::isfinite(x)) {
        checkSized(vn_g_fmt_fixed, room, precision, x, fixedText(precision, x));
    } else if (const std::string rounded = roundedInteger(-precision, x); !rounded.empty()) {
        checkSized(vn_g_fmt_fixed, room, precision, x, rounded);
    }
    return 0;
}
