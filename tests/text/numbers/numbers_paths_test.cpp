// Compares the formatters with the general path, and the reader with the C library's.
//
// VN_SOAK=10000000 makes it a soak test with this number of random doubles.
#include <vncommon/numbers.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>

#include "numbers_reference.h"
#include "numbers_samples.h"
#include "text/numbers/netlib_conversion.h"

using namespace vncommon;

namespace {

using Formatter = char* (*)(char*, unsigned, int, double);

// Both paths return the same result and leave the same bytes in the whole buffer.
void expectSame(Formatter fast, Formatter general, unsigned size, int precision, double x) {
    char one[512];
    char other[512];
    memset(one, '#', sizeof one);
    memset(other, '#', sizeof other);
    const bool fits = fast(one, size, precision, x) == one;
    const bool fitsToo = general(other, size, precision, x) == other;
    if (fits != fitsToo || memcmp(one, other, sizeof one) != 0) {
        ADD_FAILURE() << std::hexfloat << x << " to " << precision << " in " << size << ": "
                      << std::string(one, 60) << " but " << std::string(other, 60);
    }
}

void expectSameShortest(double x) {
    char fast[25];
    char general[25];
    vn_g_fmt(fast, x);
    reference::shortest(general, x);
    EXPECT_STREQ(fast, general) << std::hexfloat << x;
    if (!std::isnan(x)) {
        EXPECT_EQ(toBits(vn_strtod(fast, nullptr)), toBits(x)) << fast;
    }
}

void expectSameEverywhere(double x, Random& random) {
    expectSameShortest(x);
    const auto size = static_cast<unsigned>(below(random, 30));
    const auto precision = static_cast<int>(below(random, 25));
    expectSame(vn_g_fmt_fixed, reference::fixed, 512, 2, x);
    expectSame(vn_g_fmt_fixed, reference::fixed, 512, precision, x);
    expectSame(vn_g_fmt_fixed, reference::fixed, size, precision, x);
    expectSame(vn_g_fmt_scientific, reference::scientific, 512, 6, x);
    expectSame(vn_g_fmt_scientific, reference::scientific, 512, precision, x);
    expectSame(vn_g_fmt_scientific, reference::scientific, size, precision, x);
}

TEST(PathsTest, HardDoubles) {
    Random random(1);
    for (const double x : hardSamples()) {
        expectSameEverywhere(x, random);
    }
}

TEST(PathsTest, HardDoublesAtEveryPrecision) {
    const std::vector<double> samples = hardSamples();
    for (size_t i = 0; i < samples.size(); i += 97) {
        for (int precision = -2; precision <= 101; ++precision) {
            expectSame(vn_g_fmt_fixed, reference::fixed, 512, precision, samples[i]);
            expectSame(vn_g_fmt_scientific, reference::scientific, 512, precision, samples[i]);
        }
    }
}

// All positions of a double's bits relative to the point, with ties and their neighbours.
TEST(PathsTest, EveryMagnitudeToEveryPlace) {
    Random random(77);
    for (int exponent = -130; exponent <= 66; ++exponent) {
        for (int precision = 0; precision <= 20; ++precision) {
            const double tie =
                std::ldexp(static_cast<double>(2 * below(random, 1000) + 1), exponent);
            const double any = std::ldexp(static_cast<double>(random() >> 11), exponent - 53);
            for (const double x : {tie, std::nextafter(tie, 0), std::nextafter(tie, 1e300), -any}) {
                expectSame(vn_g_fmt_fixed, reference::fixed, 512, precision, x);
            }
        }
    }
}

TEST(PathsTest, RandomDoubles) {
    Random random(20240);
    for (uint64_t left = sampleCount(40'000); left > 0; --left) {
        expectSameEverywhere(randomSample(random), random);
        if (HasFailure()) {
            break;
        }
    }
}

struct Reading {
    uint64_t bits;
    ptrdiff_t length;
    int error;

    bool operator==(const Reading&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
    return out << std::hexfloat << fromBits(reading.bits) << " after " << reading.length
               << ", errno " << reading.error;
}

Reading read(double (*reader)(const char*, char**), const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double value = reader(text.c_str(), &end);
    return {toBits(value), end - text.c_str(), errno};
}

void expectSameReading(const std::string& text) {
    EXPECT_EQ(read(vn_strtod, text), read(readDouble, text)) << text;
}

// The C library reports a range error for subnormal results; ours does not.
void expectLikeTheLibrary(const std::string& text) {
    Reading wanted = read(strtod, text);
    const double value = fromBits(wanted.bits);
    wanted.error = std::isinf(value) || value == 0 ? wanted.error : 0;
    EXPECT_EQ(read(vn_strtod, text), wanted) << text;
    EXPECT_EQ(read(readDouble, text), wanted) << text;
}

std::string printed(const char* format, int precision, long double x) {
    std::string text(12'000, '\0');
    text.resize(static_cast<size_t>(snprintf(text.data(), text.size(), format, precision, x)));
    return text;
}

// The text of the value halfway between x and the next double, and the texts just below and above.
std::vector<std::string> aroundMidpoint(double x) {
    const double above = std::nextafter(x, std::numeric_limits<double>::infinity());
    const long double midpoint =
        static_cast<long double>(x) / 2 + static_cast<long double>(above) / 2;
    std::string exact = printed("%.*Le", 800, midpoint);
    const size_t e = exact.find('e');
    const size_t last = exact.find_last_not_of('0', e - 1);
    const std::string exponent = exact.substr(e);
    std::string digits = exact.substr(0, last + 1);
    std::vector<std::string> texts = {digits + exponent, digits + "0001" + exponent};
    if (digits.back() != '.') {
        --digits.back();
        texts.push_back(digits + "9999" + exponent);
    }
    return texts;
}

std::string randomDigits(Random& random, size_t count) {
    std::string digits;
    while (digits.size() < count) {
        digits.push_back(static_cast<char>('0' + below(random, 10)));
    }
    return digits;
}

TEST(ReaderPathsTest, ExactMidpoints) {
    Random random(3);
    for (uint64_t left = sampleCount(20'000) / 40; left > 0; --left) {
        const uint64_t exponent = below(random, 2046);
        const uint64_t fraction = random() & ((uint64_t{1} << 52) - 1);
        for (const uint64_t bits :
             {exponent << 52 | fraction, exponent << 52, fraction >> (exponent % 52)}) {
            for (const std::string& text : aroundMidpoint(fromBits(bits))) {
                expectLikeTheLibrary(text);
            }
        }
    }
}

TEST(ReaderPathsTest, PrintedDoubles) {
    Random random(4);
    for (uint64_t left = sampleCount(20'000); left > 0; --left) {
        const double x = fromBits(random() & ~(uint64_t{1} << 62) >> below(random, 2));
        if (std::isfinite(x)) {
            expectLikeTheLibrary(printed("%.*Le", static_cast<int>(below(random, 25)), x));
        }
    }
}

TEST(ReaderPathsTest, RandomDigits) {
    Random random(5);
    for (uint64_t left = sampleCount(10'000); left > 0; --left) {
        const std::string whole = randomDigits(random, below(random, 40));
        const std::string part = randomDigits(random, below(random, left % 50 == 0 ? 1000 : 30));
        const auto exponent = static_cast<int>(below(random, 700)) - 370;
        expectLikeTheLibrary(whole + "." + part + "e" + std::to_string(exponent));
    }
}

// Long integers whose values are near the subnormal numbers.
TEST(ReaderPathsTest, SubnormalsOfManyDigits) {
    Random random(6);
    for (uint64_t left = sampleCount(10'000); left > 0; --left) {
        std::string whole = randomDigits(random, 18 + below(random, 10));
        whole[0] = '1';
        const int exponent = -static_cast<int>(whole.size() + 305 + below(random, 22));
        expectLikeTheLibrary(whole + "." + randomDigits(random, 6) + "e" +
                             std::to_string(exponent));
    }
}

__extension__ typedef unsigned __int128 Wide;

// digits * 2^exponent, rounded to the nearest double, ties to even. Not computed by the C library:
// glibc 2.36 rounds 0xff8bfd0970cda.c units of 2^-1074 down, not up.
double nearestDouble(Wide digits, int exponent) {
    int bits = 0;
    while (bits < 128 && digits >> bits != 0) {
        ++bits;
    }
    const int lost = std::max(exponent + bits - 53, -1074) - exponent;
    if (lost <= 0 || bits == 0) {
        return std::ldexp(static_cast<double>(digits), exponent);
    }
    if (lost > bits) {
        return 0;
    }
    const Wide half = Wide{1} << (lost - 1);
    const Wide rest = digits & (2 * half - 1);
    Wide kept = lost == 128 ? 0 : digits >> lost;
    kept += rest > half || (rest == half && kept % 2 != 0);
    return std::ldexp(static_cast<double>(kept), exponent + lost);
}

TEST(ReaderPathsTest, HexadecimalDigits) {
    Random random(7);
    for (uint64_t left = sampleCount(30'000); left > 0; --left) {
        std::string text = left % 2 == 0 ? "0x" : "-0X";
        const uint64_t count = 1 + below(random, 24);
        const uint64_t point = below(random, 24);
        Wide digits = 0;
        for (uint64_t i = 0; i < count; ++i) {
            // Many zeros and ones, for ties and carries.
            const char digit = "0000000088fff123456789abcdefABCDEF"[below(random, 34)];
            digits = digits * 16 + std::stoul(std::string(1, digit), nullptr, 16);
            text += digit;
            text += i == point ? "." : "";
        }
        const int ranges[] = {100, 1100, 2400};
        const int range = ranges[left % 3];
        const int exponent =
            static_cast<int>(below(random, static_cast<uint64_t>(range))) - range / 2;
        text += "p" + std::to_string(exponent);
        const int behindPoint = point < count ? static_cast<int>(count - point - 1) : 0;
        const double wanted = nearestDouble(digits, exponent - 4 * behindPoint);
        const bool inRange = digits == 0 || (wanted != 0 && !std::isinf(wanted));
        const Reading reading = {toBits(text[0] == '-' ? -wanted : wanted),
                                 static_cast<ptrdiff_t>(text.size()), inRange ? 0 : ERANGE};
        ASSERT_EQ(read(vn_strtod, text), reading) << text;
        ASSERT_EQ(read(readDouble, text), reading) << text;
    }
}

// Unusual forms: both paths stop at the same character.
TEST(ReaderPathsTest, OddForms) {
    Random random(8);
    constexpr char alphabet[] = "00112599..eE+-xp inf\t";
    for (uint64_t left = sampleCount(200'000); left > 0; --left) {
        std::string text;
        for (uint64_t count = below(random, 12); count > 0; --count) {
            text += alphabet[below(random, sizeof alphabet - 1)];
        }
        expectSameReading(text);
        if (HasFailure()) {
            break;
        }
    }
}

TEST(ReaderPathsTest, LongTexts) {
    Random random(9);
    for (const size_t length : {800u, 5'000u, 16'384u, 16'390u}) {
        const std::string digits = randomDigits(random, length);
        const auto count = std::to_string(length);
        expectLikeTheLibrary("0." + digits);
        expectLikeTheLibrary(digits + "e-" + count);
        expectLikeTheLibrary(std::string("0.").append(length, '0') + "123e" + count);
        expectLikeTheLibrary(std::string("1").append(length, '0') + "e-" + count);
        expectLikeTheLibrary("0x" + digits + "p-" + std::to_string(length * 4));
    }
}

// netlib treats all very large exponents alike, even if many digits make up for them. The fast path
// must return the same.
TEST(ReaderPathsTest, ExponentsThatLongDigitsMakeUpFor) {
    expectSameReading(std::string("0.").append(20'500, '0') + "1e20500");
    expectSameReading(std::string("1").append(20'500, '0') + "e-20500");
    expectSameReading(std::string("0.").append(16'000, '0') + "1e20000");
}

}  // namespace
