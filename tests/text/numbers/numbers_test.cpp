// The formatters, the reader and the decimal operations, by single cases.
#include <vncommon/numbers.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
const double nanValue = std::nan("");

std::string shortest(double x) {
    char buffer[25];
    EXPECT_EQ(vn_g_fmt(buffer, x), buffer);
    return buffer;
}

std::string fixed(double x, int precision) {
    char buffer[512];
    EXPECT_EQ(vn_g_fmt_fixed(buffer, sizeof buffer, precision, x), buffer);
    return buffer;
}

std::string scientific(double x, int precision) {
    char buffer[512];
    EXPECT_EQ(vn_g_fmt_scientific(buffer, sizeof buffer, precision, x), buffer);
    return buffer;
}

using Formatter = char* (*)(char*, unsigned, int, double);

// The call succeeds exactly when the text and its terminator fit, and it never writes past size. If
// the text does not fit, the buffer gets its first characters.
void expectExactFit(Formatter format, int precision, double x, const std::string& text) {
    for (unsigned size = 0; size <= text.size() + 4; ++size) {
        std::vector<char> buffer(text.size() + 8, '#');
        const char* result = format(buffer.data(), size, precision, x);
        const std::string untouched(buffer.size() - size, '#');
        EXPECT_EQ(std::string(buffer.data() + size, buffer.size() - size), untouched);
        if (size > text.size()) {
            ASSERT_EQ(result, buffer.data()) << text << " in " << size;
            EXPECT_EQ(buffer.data(), text);
        } else {
            EXPECT_EQ(result, nullptr) << text << " in " << size;
        }
    }
}

TEST(ShortestTest, Zeros) {
    EXPECT_EQ(shortest(0.0), "0");
    EXPECT_EQ(shortest(-0.0), "-0");
}

TEST(ShortestTest, NoZeroBeforeThePoint) {
    EXPECT_EQ(shortest(0.5), ".5");
    EXPECT_EQ(shortest(0.1), ".1");
    EXPECT_EQ(shortest(-0.001), "-.001");
    EXPECT_EQ(shortest(1e-4), ".0001");
    EXPECT_EQ(shortest(0.00012345), ".00012345");
    EXPECT_EQ(shortest(0.012345678901234567), ".012345678901234567");
}

TEST(ShortestTest, SmallValuesHaveAnExponent) {
    EXPECT_EQ(shortest(1e-5), "1e-05");
    EXPECT_EQ(shortest(1.5e-7), "1.5e-07");
    EXPECT_EQ(shortest(9.9999999999999e-5), "9.9999999999999e-05");
    EXPECT_EQ(shortest(5e-324), "5e-324");
    EXPECT_EQ(shortest(2.2250738585072014e-308), "2.2250738585072014e-308");
    EXPECT_EQ(shortest(1e-100), "1e-100");
    EXPECT_EQ(shortest(1e-99), "1e-99");
}

TEST(ShortestTest, IntegersWithSixZerosHaveAnExponent) {
    EXPECT_EQ(shortest(1), "1");
    EXPECT_EQ(shortest(10), "10");
    EXPECT_EQ(shortest(100), "100");
    EXPECT_EQ(shortest(1e5), "100000");
    EXPECT_EQ(shortest(1e6), "1e+06");
    EXPECT_EQ(shortest(1.2e6), "1200000");
    EXPECT_EQ(shortest(1.2e7), "1.2e+07");
    EXPECT_EQ(shortest(123456.0), "123456");
    EXPECT_EQ(shortest(123456789), "123456789");
    EXPECT_EQ(shortest(-123456789e5), "-12345678900000");
    EXPECT_EQ(shortest(123456789e6), "1.23456789e+14");
    EXPECT_EQ(shortest(9007199254740992), "9007199254740992");
    EXPECT_EQ(shortest(9007199254740994), "9007199254740994");
    EXPECT_EQ(shortest(12345678901234567e5), "1234567890123456800000");
    EXPECT_EQ(shortest(1e21), "1e+21");
    EXPECT_EQ(shortest(1e22), "1e+22");
    EXPECT_EQ(shortest(1e23), "1e+23");
    EXPECT_EQ(shortest(-1.7976931348623157e308), "-1.7976931348623157e+308");
}

TEST(ShortestTest, PointAmongTheDigits) {
    EXPECT_EQ(shortest(1234.5), "1234.5");
    EXPECT_EQ(shortest(-1.25), "-1.25");
    EXPECT_EQ(shortest(0.1 + 0.2), ".30000000000000004");
    EXPECT_EQ(shortest(3.141592653589793), "3.141592653589793");
    EXPECT_EQ(shortest(99999.99), "99999.99");
}

TEST(ShortestTest, NamedValues) {
    EXPECT_EQ(shortest(nanValue), "NaN");
    EXPECT_EQ(shortest(-nanValue), "NaN");
    EXPECT_EQ(shortest(infinity), "Infinity");
    EXPECT_EQ(shortest(-infinity), "-Infinity");
}

TEST(FixedTest, PadsToThePrecision) {
    EXPECT_EQ(fixed(1234.5, 2), "1234.50");
    EXPECT_EQ(fixed(0.05, 3), "0.050");
    EXPECT_EQ(fixed(0, 2), "0.00");
    EXPECT_EQ(fixed(-0.0, 2), "-0.00");
    EXPECT_EQ(fixed(1e20, 1), "100000000000000000000.0");
    EXPECT_EQ(fixed(0.001, 2), "0.00");
    EXPECT_EQ(fixed(-0.001, 2), "-0.00");
    EXPECT_EQ(fixed(5e-324, 4), "0.0000");
    EXPECT_EQ(fixed(1.005, 2), "1.00");
    EXPECT_EQ(fixed(0.999, 2), "1.00");
}

TEST(FixedTest, NoPlacesRoundTiesToEven) {
    EXPECT_EQ(fixed(0.5, 0), "0");
    EXPECT_EQ(fixed(1.5, 0), "2");
    EXPECT_EQ(fixed(2.5, 0), "2");
    EXPECT_EQ(fixed(-0.25, 0), "-0");
    EXPECT_EQ(fixed(0, 0), "0");
    EXPECT_EQ(fixed(1e22, 0), "10000000000000000000000");
    EXPECT_EQ(fixed(0.125, 2), "0.12");
    EXPECT_EQ(fixed(0.375, 2), "0.38");
}

TEST(FixedTest, PrecisionIsClampedTo100) {
    EXPECT_EQ(fixed(1.5, 500), fixed(1.5, 100));
    EXPECT_EQ(fixed(1.5, 100), "1.5" + std::string(99, '0'));
    EXPECT_EQ(fixed(1e-100, INT_MAX), fixed(1e-100, 100));
    EXPECT_EQ(fixed(-1.7976931348623157e308, 101).size(), 1u + 309 + 1 + 100);
}

TEST(FixedTest, NegativePrecisionRoundsBeforeThePoint) {
    EXPECT_EQ(fixed(1234.5, -2), "1200");
    EXPECT_EQ(fixed(-1250, -2), "-1200");
    EXPECT_EQ(fixed(1350, -2), "1400");
    EXPECT_EQ(fixed(6, -1), "10");
    EXPECT_EQ(fixed(5, -1), "0");
    EXPECT_EQ(fixed(15, -1), "20");
    EXPECT_EQ(fixed(205, -1), "200");
    EXPECT_EQ(fixed(0, -3), "0");
    EXPECT_EQ(fixed(1, -5), "00000");
    EXPECT_EQ(fixed(-0.5, -2), "-00");
    EXPECT_EQ(fixed(1e300, -400), std::string(400, '0'));
    EXPECT_EQ(fixed(infinity, -3), "Infinity");
}

TEST(FixedTest, HugeNegativePrecisionDoesNotFit) {
    char buffer[64];
    for (const int precision : {INT_MIN, INT_MIN + 1, INT_MIN + 300, -100000}) {
        EXPECT_EQ(vn_g_fmt_fixed(buffer, sizeof buffer, precision, 1e-300), nullptr);
        EXPECT_EQ(vn_g_fmt_fixed(buffer, sizeof buffer, precision, 1e300), nullptr);
        EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(sizeof buffer, '0'));
    }
}

TEST(FixedTest, NamedValues) {
    EXPECT_EQ(fixed(nanValue, 2), "NaN");
    EXPECT_EQ(fixed(-nanValue, 2), "NaN");
    EXPECT_EQ(fixed(infinity, 2), "Infinity");
    EXPECT_EQ(fixed(-infinity, 0), "-Infinity");
}

TEST(FixedTest, FitsExactlyWithTheTerminator) {
    expectExactFit(vn_g_fmt_fixed, 1, 1.5, "1.5");
    expectExactFit(vn_g_fmt_fixed, 2, -1234.5, "-1234.50");
    expectExactFit(vn_g_fmt_fixed, 3, 0.05, "0.050");
    expectExactFit(vn_g_fmt_fixed, 3, -0.0, "-0.000");
    expectExactFit(vn_g_fmt_fixed, 0, 9.5, "10");
    expectExactFit(vn_g_fmt_fixed, 1, 1e20, "100000000000000000000.0");
    expectExactFit(vn_g_fmt_fixed, 100, 1e-100, "0." + std::string(99, '0') + "1");
    expectExactFit(vn_g_fmt_fixed, -2, 1234.5, "1200");
    expectExactFit(vn_g_fmt_fixed, 7, nanValue, "NaN");
    expectExactFit(vn_g_fmt_fixed, 7, -infinity, "-Infinity");
}

TEST(FixedTest, SizeBelowTwoIsNeverEnough) {
    char buffer[4] = "###";
    EXPECT_EQ(vn_g_fmt_fixed(buffer, 1, 0, 5), nullptr);
    EXPECT_EQ(vn_g_fmt_fixed(buffer, 0, 0, 5), nullptr);
    EXPECT_EQ(vn_g_fmt_scientific(buffer, 1, 0, 5), nullptr);
    EXPECT_STREQ(buffer, "###");
    EXPECT_STREQ(vn_g_fmt_fixed(buffer, 2, 0, 5), "5");
}

TEST(FixedTest, LeavesThePartThatFits) {
    char buffer[8] = "#######";
    EXPECT_EQ(vn_g_fmt_fixed(buffer, 4, 2, -123.456), nullptr);
    EXPECT_STREQ(buffer, "-123###");
    EXPECT_EQ(vn_g_fmt_fixed(buffer, 6, 2, 0.25), buffer);
    EXPECT_STREQ(buffer, "0.25");
    EXPECT_EQ(vn_g_fmt_fixed(buffer, 3, 2, 7), nullptr);
    EXPECT_EQ(std::string(buffer, 3), "7.0");
    EXPECT_EQ(vn_g_fmt_scientific(buffer, 5, 3, 2.5), nullptr);
    EXPECT_EQ(std::string(buffer, 5), "2.50e");
}

TEST(ScientificTest, KeepsTrailingZeros) {
    EXPECT_EQ(scientific(2.5, 4), "2.500e+00");
    EXPECT_EQ(scientific(123, 1), "1e+02");
    EXPECT_EQ(scientific(123, 3), "1.23e+02");
    EXPECT_EQ(scientific(123, 5), "1.2300e+02");
    EXPECT_EQ(scientific(5, 1), "5e+00");
    EXPECT_EQ(scientific(1e-300, 2), "1.0e-300");
    EXPECT_EQ(scientific(-1e9, 2), "-1.0e+09");
    EXPECT_EQ(scientific(1e10, 2), "1.0e+10");
    EXPECT_EQ(scientific(1e99, 1), "1e+99");
    EXPECT_EQ(scientific(1e100, 1), "1e+100");
    EXPECT_EQ(scientific(5e-324, 3), "4.94e-324");
    EXPECT_EQ(scientific(9.99, 2), "1.0e+01");
}

TEST(ScientificTest, TiesGoToEven) {
    EXPECT_EQ(scientific(205, 2), "2.0e+02");
    EXPECT_EQ(scientific(215, 2), "2.2e+02");
    EXPECT_EQ(scientific(2.5, 1), "2e+00");
    EXPECT_EQ(scientific(0.375, 2), "3.8e-01");
    EXPECT_EQ(scientific(0.125, 2), "1.2e-01");
}

TEST(ScientificTest, ZeroHasNoSignAndKeepsItsPoint) {
    EXPECT_EQ(scientific(0.0, 1), "0.e+00");
    EXPECT_EQ(scientific(-0.0, 1), "0.e+00");
    EXPECT_EQ(scientific(-0.0, 3), "0.00e+00");
    EXPECT_EQ(scientific(0.0, 0), "0.e+00");
    EXPECT_EQ(scientific(0.0, INT_MIN), "0.e+00");
    EXPECT_EQ(scientific(0.0, 200), "0." + std::string(99, '0') + "e+00");
}

TEST(ScientificTest, PrecisionBelowOneCountsAsOne) {
    EXPECT_EQ(scientific(123, 0), "1e+02");
    EXPECT_EQ(scientific(-178, -7), "-2e+02");
    EXPECT_EQ(scientific(178, INT_MIN), "2e+02");
}

TEST(ScientificTest, PrecisionIsClampedTo100) {
    EXPECT_EQ(scientific(1.5, 500), "1.5" + std::string(98, '0') + "e+00");
    EXPECT_EQ(scientific(5e-324, 101), scientific(5e-324, 100));
}

TEST(ScientificTest, NamedValues) {
    EXPECT_EQ(scientific(-nanValue, 2), "NaN");
    EXPECT_EQ(scientific(infinity, 2), "Infinity");
    EXPECT_EQ(scientific(-infinity, 2), "-Infinity");
}

TEST(ScientificTest, FitsExactlyWithTheTerminator) {
    expectExactFit(vn_g_fmt_scientific, 3, -1234.5, "-1.23e+03");
    expectExactFit(vn_g_fmt_scientific, 1, 5, "5e+00");
    expectExactFit(vn_g_fmt_scientific, 0, 5, "5e+00");
    expectExactFit(vn_g_fmt_scientific, 2, 1e-300, "1.0e-300");
    expectExactFit(vn_g_fmt_scientific, 1, 0, "0.e+00");
    expectExactFit(vn_g_fmt_scientific, -9, 0, "0.e+00");
    expectExactFit(vn_g_fmt_scientific, 4, -0.0, "0.000e+00");
    expectExactFit(vn_g_fmt_scientific, 4, nanValue, "NaN");
    expectExactFit(vn_g_fmt_scientific, 4, infinity, "Infinity");
}

TEST(ScientificTest, ZeroThatDoesNotFitLeavesItsPointAtMost) {
    const std::string zero = "0.000e+00";
    for (unsigned size = 0; size <= zero.size(); ++size) {
        std::string buffer(zero.size() + 3, '#');
        EXPECT_EQ(vn_g_fmt_scientific(buffer.data(), size, 4, 0), nullptr) << size;
        const unsigned kept = size < 2 ? 0 : 2;
        EXPECT_EQ(buffer, zero.substr(0, kept) + std::string(buffer.size() - kept, '#')) << size;
    }
}

struct Reading {
    double value;
    size_t length;
    int error;
};

Reading read(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double value = vn_strtod(text.c_str(), &end);
    return {value, static_cast<size_t>(end - text.c_str()), errno};
}

void expectRead(const std::string& text, double value, size_t length, int error = 0) {
    const Reading reading = read(text);
    EXPECT_EQ(reading.value, value) << text;
    EXPECT_EQ(std::signbit(reading.value), std::signbit(value)) << text;
    EXPECT_EQ(reading.length, length) << text;
    EXPECT_EQ(reading.error, error) << text;
}

TEST(ReaderTest, StopsWhereTheNumberEnds) {
    expectRead("1.5", 1.5, 3);
    expectRead(" \t\n\v\f\r-2.25x", -2.25, 11);
    expectRead("+7", 7, 2);
    expectRead(".5.5", .5, 2);
    expectRead("5.", 5, 2);
    expectRead("5.e1", 50, 4);
    expectRead("5.e", 5, 2);
    expectRead("1e", 1, 1);
    expectRead("1e+", 1, 1);
    expectRead("1e+-5", 1, 1);
    expectRead("1E5-3", 1e5, 3);
    expectRead("1,5", 1, 1);
    expectRead("12 34", 12, 2);
    expectRead("1_000", 1, 1);
    expectRead("-0", -0.0, 2);
    expectRead("0e9999999999", 0, 12);
    expectRead("00012", 12, 5);
    expectRead("1e0000000000000000000005", 1e5, 24);
}

TEST(ReaderTest, TextThatIsNoNumber) {
    for (const char* text : {"", " ", "-", "+", ".", "-.", "e5", ".e5", "+-5", "--1", "- 1", "x",
                             "i", "in", "na", "-inx",
                             "\xef\xbb\xbf"
                             "1"}) {
        expectRead(text, 0, 0);
    }
}

TEST(ReaderTest, EndMayBeNull) {
    EXPECT_EQ(vn_strtod("1.25abc", nullptr), 1.25);
    EXPECT_EQ(vn_strtod("abc", nullptr), 0);
    EXPECT_EQ(vn_strtod("0x10", nullptr), 16);
}

TEST(ReaderTest, RangeErrors) {
    expectRead("1e309", infinity, 5, ERANGE);
    expectRead("-1e99999999999", -infinity, 14, ERANGE);
    expectRead("1e-400", 0, 6, ERANGE);
    expectRead("-1e-99999999999", -0.0, 15, ERANGE);
    expectRead("2.4703282292062327e-324", 0, 23, ERANGE);
    expectRead("2.4703282292062328e-324", 5e-324, 23);  // subnormal results are no error
    expectRead("1e-310", 1e-310, 6);
    expectRead("1.7976931348623158e308", 1.7976931348623157e308, 22);
    expectRead("1.7976931348623159e308", infinity, 22, ERANGE);
}

TEST(ReaderTest, LeavesErrnoAlone) {
    errno = EINTR;
    vn_strtod("1.5", nullptr);
    vn_strtod("0", nullptr);
    vn_strtod("nothing", nullptr);
    vn_strtod("4e-320", nullptr);
    EXPECT_EQ(errno, EINTR);
}

TEST(ReaderTest, Hexadecimal) {
    expectRead("0x10", 16, 4);
    expectRead("-0X1.8p1", -3, 8);
    expectRead("0x.8", .5, 4);
    expectRead("0x1p-2z", .25, 6);
    expectRead("0x1p", 1, 3);
    expectRead("0x1p+", 1, 3);
    expectRead("0xg", 0, 1);
    expectRead("-0x", 0, 2);  // netlib drops the sign here
    expectRead("0x0p5", 0, 5);
    expectRead("0x1.fffffffffffffp1023", 1.7976931348623157e308, 22);
}

// Rounding must consider every bit that is cut off, not only the highest one.
TEST(ReaderTest, HexadecimalRounding) {
    expectRead("0x1.00000000000008p0", 1, 20);                    // a tie goes to even
    expectRead("0x1.00000000000018p0", 0x1.0000000000002p0, 20);  // a tie goes to even
    expectRead("0x1.00000000000008000001p0", 0x1.0000000000001p0, 26);
    expectRead("0x1.0000000000000cp0", 0x1.0000000000001p0, 20);
    expectRead("0x1.0000000000000ap0", 0x1.0000000000001p0, 20);
    expectRead("0x20000000000003", 0x20000000000004, 16);
    expectRead("0x3fffffffffffff", 0x40000000000000, 16);
    expectRead("0x80000000000005", 0x80000000000008, 16);
    expectRead("0x80000000000004", 0x80000000000000, 16);
    expectRead("0x1.fffffffffffff8p1023", infinity, 23, ERANGE);
    expectRead("0x1p-1074", 5e-324, 9);
    expectRead("0x1p-1075", 0, 9, ERANGE);
    expectRead("0x1.8p-1075", 5e-324, 11);
    expectRead("0x1.0000000000001p-1075", 5e-324, 23);
    expectRead("0x1.00000000000000001p-1075", 5e-324, 27);
    expectRead("0x1.8p-1074", 1e-323, 11);
    expectRead("0x0.fffffffffffff8p-1022", 0x1p-1022, 24);
}

TEST(ReaderTest, HugeHexadecimalExponents) {
    expectRead("0x1p4294967296", infinity, 14, ERANGE);
    expectRead("-0x1p99999999999999999999", -infinity, 25, ERANGE);
    expectRead("0x1p-4294967296", 0, 15, ERANGE);
    expectRead("0x1p2147483648", infinity, 14, ERANGE);
    expectRead("0x0p4294967296", 0, 14);
    expectRead("0x1p1024", infinity, 8, ERANGE);
}

TEST(ReaderTest, Infinities) {
    expectRead("inf", infinity, 3);
    expectRead("-INFINITY", -infinity, 9);
    expectRead("infinit", infinity, 3);
    expectRead("+Infx", infinity, 4);
}

uint64_t bitsOf(double x) {
    uint64_t bits;
    memcpy(&bits, &x, sizeof bits);
    return bits;
}

TEST(ReaderTest, Nans) {
    for (const char* text : {"nan", "NaN", "nanq", "nan()", "nan(12345)", "nan(", "nan(xyz)"}) {
        EXPECT_TRUE(std::isnan(read(text).value)) << text;
        EXPECT_EQ(read(text).error, 0) << text;
    }
    EXPECT_EQ(read("nanq").length, 3u);
    EXPECT_EQ(read("nan(12345)").length, 10u);
    EXPECT_EQ(read("nan(xyz)").length, 3u);
    EXPECT_EQ(bitsOf(read("nan(8000000000000)").value), 0x7ff8000000000000u);
    EXPECT_EQ(bitsOf(read("nan(8000000012345)").value), 0x7ff8000000012345u);
    EXPECT_EQ(bitsOf(read("nan").value), 0x7ff8000000000000u);
    EXPECT_TRUE(std::signbit(read("-nan").value));
}

TEST(ReaderTest, SubnormalsWithManyIntegerDigits) {
    expectRead("13454123280147033023363.251145e-330", 13454123280147033023363.251145e-330, 35);
}

TEST(ReaderTest, VeryLongTexts) {
    const std::string zeros(20000, '0');
    expectRead("0." + zeros + "1", 0, zeros.size() + 3, ERANGE);
    expectRead("1" + zeros, infinity, zeros.size() + 1, ERANGE);
    expectRead(std::string("1").append(300, '0') + "." + zeros + "1", 1e300, zeros.size() + 303);
    const std::string ones(20000, '1');
    expectRead("0." + ones, 1.0 / 9, ones.size() + 2);
    expectRead("0x0." + zeros + "8p80003", 4, zeros.size() + 11);
}

TEST(DecimalTest, NamedValues) {
    EXPECT_NE(vn_dec_isnan(VN_DEC_NAN()), 0);
    EXPECT_EQ(vn_dec_isfinite(VN_DEC_NAN()), 0);
    EXPECT_EQ(vn_dec_isinfinite(VN_DEC_NAN()), 0);
    EXPECT_NE(vn_dec_isinfinite(VN_DEC_INFINITY()), 0);
    EXPECT_EQ(vn_dec_isfinite(VN_DEC_INFINITY()), 0);
    EXPECT_EQ(vn_dec_isnan(VN_DEC_INFINITY()), 0);
}

constexpr uint64_t decimalSign = uint64_t{1} << 63;

// A decimal64 in the encoding for coefficients below 2^53.
uint64_t decimal(uint64_t coefficient, int exponent) {
    return static_cast<uint64_t>(exponent + 398) << 53 | coefficient;
}

std::string decimalText(uint64_t d) {
    char text[23];
    vn_dec_to_string(d, text);
    return text;
}

TEST(DecimalTest, PrintsWhatIsStored) {
    EXPECT_EQ(decimalText(decimal(15, -1)), "+15E-1");
    EXPECT_EQ(decimalText(decimal(150, -2)), "+150E-2");
    EXPECT_EQ(decimalText(decimalSign | decimal(7, 0)), "-7E+0");
    EXPECT_EQ(decimalText(decimal(0, 0)), "+0E+0");
    EXPECT_EQ(decimalText(decimal(1, 369)), "+1E+369");
    EXPECT_EQ(decimalText(decimalSign | decimal(1, -398)), "-1E-398");
}

TEST(DecimalTest, LongestText) {
    // 9999999999999999 exceeds 2^53, so it has the other encoding: the exponent is 2 bits lower.
    const uint64_t largest = uint64_t{3} << 61 | uint64_t{767 - 398 + 398} << 51 |
                             (uint64_t{9999999999999999} & ((uint64_t{1} << 51) - 1));
    EXPECT_EQ(decimalText(largest), "+9999999999999999E+369");
    EXPECT_NE(vn_dec_isfinite(largest), 0);
}

TEST(DecimalTest, PrintsNamedValues) {
    EXPECT_EQ(decimalText(VN_DEC_INFINITY()), "+Inf");
    EXPECT_EQ(decimalText(VN_DEC_INFINITY() | decimalSign), "-Inf");
    EXPECT_EQ(decimalText(VN_DEC_NAN()), "+NaN");
    EXPECT_EQ(decimalText(VN_DEC_NAN() | decimalSign), "-NaN");
    EXPECT_EQ(decimalText(uint64_t{0x7e} << 56), "+SNaN");
    EXPECT_EQ(decimalText(uint64_t{0xfe} << 56), "-SNaN");
}

TEST(DtoaLocksTest, LockAndUnlock) {
    EXPECT_EQ(acquireBallocLock(), 0);
    EXPECT_EQ(acquirep5Lock(), 0);
    EXPECT_EQ(freep5Lock(), 0);
    EXPECT_EQ(freeBallocLock(), 0);
}

// A second thread waits for a held lock, but not for the other one.
TEST(DtoaLocksTest, KeepOtherThreadsOut) {
    struct Lock {
        int (*acquire)();
        int (*release)();
    };
    const Lock locks[] = {{acquireBallocLock, freeBallocLock}, {acquirep5Lock, freep5Lock}};
    for (int held = 0; held < 2; ++held) {
        std::atomic<bool> entered[2] = {};
        locks[held].acquire();
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&entered, &locks, i] {
                locks[i].acquire();
                entered[i] = true;
                locks[i].release();
            });
        }
        threads[static_cast<size_t>(1 - held)].join();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(entered[held]);
        EXPECT_TRUE(entered[1 - held]);
        locks[held].release();
        threads[static_cast<size_t>(held)].join();
        EXPECT_TRUE(entered[held]);
    }
}

TEST(DtoaLocksTest, SlotsAreNullOutsideOfConversions) {
    EXPECT_EQ(vn_ThreadLocal_get(&dtoa_threadLocalMemNext), nullptr);
    EXPECT_EQ(vn_ThreadLocal_get(&dtoa_threadLocalMemLeft), nullptr);
    EXPECT_EQ(fixed(1234.5, -2), "1200");
    EXPECT_EQ(vn_ThreadLocal_get(&dtoa_threadLocalMemNext), nullptr);
    EXPECT_EQ(vn_ThreadLocal_get(&dtoa_threadLocalMemLeft), nullptr);
}

// Concurrent conversions that use the scratch area, the free lists, the heap and powers of five.
TEST(ConcurrencyTest, ManyThreadsConvert) {
    const std::string digits(17000, '3');
    auto convert = [&digits] {
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(fixed(1e300 + i, -290), "10000000000" + std::string(290, '0'));
            EXPECT_EQ(vn_strtod(("0." + digits).c_str(), nullptr), 1.0 / 3);
            EXPECT_EQ(shortest(1.0 / 3), ".3333333333333333");
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(convert);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
