// Deterministic mathematics: special values, functions that are made of others, and the functions
// that StrictMath lacks, compared with wider arithmetic. maths_strictmath compares all bits with
// the JDK, maths_same_bits.py across compilers.
#include <vncommon/maths.h>

#include <gtest/gtest.h>
#include <math.h>  // signgam

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <string>

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan_ = std::numeric_limits<double>::quiet_NaN();
constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr double largest = std::numeric_limits<double>::max();
constexpr double pi = 3.141592653589793;
constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

uint64_t bits(double x) {
    uint64_t result = 0;
    memcpy(&result, &x, sizeof result);
    return result;
}

double fromBits(uint64_t pattern) {
    double result = 0;
    memcpy(&result, &pattern, sizeof result);
    return result;
}

// Equal to the last bit, the sign of a zero included.
#define EXPECT_SAME(actual, expected) EXPECT_EQ(bits(actual), bits(expected)) << (actual)

// Random bits, values of ordinary size, and integers with a quarter.
class Arguments {
  public:
    double next() {
        const uint64_t pattern = engine_();
        switch (engine_() % 3) {
            case 0:
                return fromBits(pattern);
            case 1:
                return std::ldexp(static_cast<double>(static_cast<int64_t>(pattern)),
                                  -50 - static_cast<int>(engine_() % 30));
            default:
                return static_cast<double>(static_cast<int32_t>(pattern)) * 0.25;
        }
    }

    double between(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(engine_);
    }

  private:
    std::mt19937_64 engine_{20240607};
};

TEST(Maths, SpecialValuesOfPow) {
    EXPECT_SAME(vn_pow(nan_, 0), 1.0);
    EXPECT_SAME(vn_pow(nan_, -0.0), 1.0);
    EXPECT_TRUE(std::isnan(vn_pow(nan_, 1)));
    EXPECT_TRUE(std::isnan(vn_pow(-8, 1.0 / 3)));
    EXPECT_SAME(vn_pow(-0.0, -3), -inf);
    EXPECT_SAME(vn_pow(-0.0, 3), -0.0);
    EXPECT_SAME(vn_pow(-inf, 3), -inf);
    EXPECT_SAME(vn_pow(2, 0.5), std::sqrt(2.0));
    EXPECT_SAME(vn_pow(10, 22), 1e22);
    EXPECT_SAME(vn_pow(2, -1074), smallest);
    EXPECT_SAME(vn_pow(2, 1024), inf);
}

TEST(Maths, PowOfOneIsNotAnExceptionForNanAndInfinity) {
    for (const double one : {1.0, -1.0}) {
        EXPECT_TRUE(std::isnan(vn_pow(one, nan_)));
        EXPECT_TRUE(std::isnan(vn_pow(one, inf)));
        EXPECT_TRUE(std::isnan(vn_pow(one, -inf)));
    }
}

TEST(Maths, PowKeepsTheSignForHugeOddExponents) {
    const double odd = 4294967297.0;
    EXPECT_SAME(vn_pow(-2, odd), -inf);
    EXPECT_SAME(vn_pow(-2, -odd), -0.0);
    EXPECT_SAME(vn_pow(-0.5, odd), -0.0);
    EXPECT_SAME(vn_pow(-0.5, -odd), -inf);
    EXPECT_SAME(vn_pow(-2, odd + 1), inf);
    EXPECT_SAME(vn_pow(-0.5, odd + 1), 0.0);
    EXPECT_SAME(vn_pow(-2, 0x1p60), inf);
}

TEST(Maths, TangentBesideItsPoles) {
    EXPECT_SAME(vn_tan(4.71238898038469), 5443746451065123.0);
    EXPECT_SAME(vn_tan(pi / 2), 16331239353195370.0);
    EXPECT_SAME(vn_tan(-0.0), -0.0);
    EXPECT_TRUE(std::isnan(vn_tan(inf)));
}

TEST(Maths, SpecialValuesOfCircularFunctions) {
    EXPECT_SAME(vn_sin(-0.0), -0.0);
    EXPECT_SAME(vn_cos(-0.0), 1.0);
    EXPECT_TRUE(std::isnan(vn_sin(-inf)));
    EXPECT_TRUE(std::isnan(vn_cos(inf)));
    EXPECT_TRUE(std::isnan(vn_asin(1.0000000000000002)));
    EXPECT_TRUE(std::isnan(vn_acos(-1.0000000000000002)));
    EXPECT_SAME(vn_asin(1), pi / 2);
    EXPECT_SAME(vn_acos(-1), pi);
    EXPECT_SAME(vn_atan(-inf), -pi / 2);
    EXPECT_SAME(vn_atan2(0.0, -0.0), pi);
    EXPECT_SAME(vn_atan2(-0.0, -0.0), -pi);
    EXPECT_SAME(vn_atan2(-0.0, 1), -0.0);
    EXPECT_SAME(vn_atan2(inf, -inf), 3 * pi / 4);
}

TEST(Maths, SpecialValuesOfExponentialsAndLogarithms) {
    EXPECT_SAME(vn_exp(-inf), 0.0);
    EXPECT_SAME(vn_exp(709.782712893384), 1.7976931348622732e308);
    EXPECT_SAME(vn_exp(709.7827128933841), inf);
    EXPECT_SAME(vn_exp(-745.1332191019412), 0.0);
    EXPECT_SAME(vn_log(-0.0), -inf);
    EXPECT_SAME(vn_log(1), 0.0);
    EXPECT_SAME(vn_log10(1000), 3.0);
    EXPECT_SAME(vn_cbrt(-27), -3.0);
    EXPECT_SAME(vn_cbrt(-0.0), -0.0);
}

TEST(Maths, SpecialValuesOfHyperbolicFunctions) {
    EXPECT_SAME(vn_sinh(-inf), -inf);
    EXPECT_SAME(vn_cosh(-inf), inf);
    EXPECT_SAME(vn_tanh(-1000), -1.0);
    EXPECT_SAME(vn_asinh(-0.0), -0.0);
    EXPECT_SAME(vn_acosh(1), 0.0);
    EXPECT_TRUE(std::isnan(vn_acosh(0.9999999999999999)));
    EXPECT_SAME(vn_atanh(-1), -inf);
    EXPECT_TRUE(std::isnan(vn_atanh(1.0000000000000002)));
    EXPECT_SAME(vn_erf(-inf), -1.0);
    EXPECT_SAME(vn_erf(6), 1.0);
}

TEST(Maths, NanStaysNan) {
    using Function = double (*)(double);
    for (const Function function :
         {vn_exp, vn_log, vn_log10, vn_cbrt, vn_sin, vn_cos, vn_tan, vn_asin, vn_acos, vn_atan,
          vn_sinh, vn_cosh, vn_tanh, vn_asinh, vn_acosh, vn_atanh, vn_erf, vn_gammal}) {
        EXPECT_TRUE(std::isnan(function(nan_)));
    }
    EXPECT_TRUE(std::isnan(vn_fmod(nan_, 1)));
    EXPECT_TRUE(std::isnan(vn_atan2(1, nan_)));
    EXPECT_TRUE(std::isnan(vn_nextafter(nan_, 1)));
    EXPECT_TRUE(std::isnan(vn_scalbn(nan_, 1)));
}

TEST(Maths, ErrnoIsLeftAlone) {
    errno = 42;
    EXPECT_TRUE(std::isnan(vn_log(-1.0)));
    EXPECT_TRUE(std::isnan(vn_pow(-1, 0.5)));
    EXPECT_TRUE(std::isnan(vn_acosh(0)));
    EXPECT_TRUE(std::isnan(vn_atanh(-2)));
    EXPECT_TRUE(std::isnan(vn_fmod(1, 0)));
    EXPECT_EQ(vn_exp(1000), inf);
    EXPECT_EQ(vn_sinh(1000), inf);
    EXPECT_EQ(vn_cosh(1000), inf);
    EXPECT_EQ(vn_gammal(-1), inf);
    EXPECT_EQ(vn_scalbn(1, 5000), inf);
    EXPECT_EQ(errno, 42);
}

// The error of a result, in units in the last place of the double nearest to the exact result.
double errorInUlps(double result, long double exact) {
    const auto nearest = static_cast<double>(exact);
    if (result == nearest || (std::isnan(result) && std::isnan(nearest))) {
        return 0;
    }
    const double unit = std::nextafter(std::fabs(nearest), inf) - std::fabs(nearest);
    return static_cast<double>(fabsl((static_cast<long double>(result) - exact) / unit));
}

struct WiderCase {
    const char* name;
    double (*function)(double);
    long double (*wider)(long double);
    double low;
    double high;
};

// FDLIBM's error is about two units at most; a wrong constant or branch causes thousands.
TEST(Maths, FunctionsThatTheJdkLacksAgainstWiderArithmetic) {
    const std::array<WiderCase, 8> cases = {{{"asinh", vn_asinh, asinhl, -1e3, 1e3},
                                             {"asinh", vn_asinh, asinhl, -1e-3, 1e-3},
                                             {"acosh", vn_acosh, acoshl, 1, 4},
                                             {"acosh", vn_acosh, acoshl, 1, 1e12},
                                             {"atanh", vn_atanh, atanhl, -1, 1},
                                             {"erf", vn_erf, erfl, -7, 7},
                                             {"gammal", vn_gammal, lgammal, 2.5, 200},
                                             {"gammal", vn_gammal, lgammal, 1e-9, 0.9}}};
    Arguments arguments;
    for (const WiderCase& test : cases) {
        for (int i = 0; i < 10000; ++i) {
            const double x = arguments.between(test.low, test.high);
            ASSERT_LT(errorInUlps(test.function(x), test.wider(x)), 3.0) << test.name << " " << x;
        }
    }
}

// The logarithm of gamma is small near its zeros (1, 2 and between the poles), so the error there
// is absolute, not relative.
TEST(Maths, GammaAtSmallAndNegativeArguments) {
    Arguments arguments;
    for (int i = 0; i < 20000; ++i) {
        const double x = arguments.between(-40, 3);
        const double exact = static_cast<double>(lgammal(x));
        ASSERT_NEAR(vn_gammal(x), exact, 1e-13 * std::fmax(1, std::fabs(exact))) << x;
    }
}

TEST(Maths, GammaHasPublishedValues) {
    EXPECT_SAME(vn_gammal(1), 0.0);
    EXPECT_SAME(vn_gammal(2), 0.0);
    EXPECT_SAME(vn_gammal(0), inf);
    EXPECT_SAME(vn_gammal(-3), inf);
    EXPECT_SAME(vn_gammal(-inf), inf);
    EXPECT_DOUBLE_EQ(vn_gammal(0.5), 0.57236494292470008707);  // ln(sqrt(pi))
    EXPECT_DOUBLE_EQ(vn_gammal(11), 15.104412573075515295);    // ln(10!)
}

// This program reads signgam as <math.h> declares it.
TEST(Maths, GammaLeavesItsSignInTheCLibrarysVariable) {
    signgam = 77;
    vn_gammal(2.5);
    EXPECT_EQ(signgam, 1);
    vn_gammal(-0.5);
    EXPECT_EQ(signgam, -1);
    vn_gammal(-1.5);
    EXPECT_EQ(signgam, 1);
    vn_gammal(-0x1p-80);
    EXPECT_EQ(signgam, -1);
}

// The C library's versions of these are exact by definition.
TEST(Maths, ExactFunctionsAgreeWithTheCLibrary) {
    Arguments arguments;
    for (int i = 0; i < 100000; ++i) {
        const double x = arguments.next();
        const double y = arguments.next();
        if (std::isnan(x) || std::isnan(y)) {
            continue;
        }
        const int n = static_cast<int>(bits(y) % 4000) - 2000;
        ASSERT_EQ(bits(vn_nextafter(x, y)), bits(std::nextafter(x, y))) << x << " " << y;
        ASSERT_EQ(bits(vn_scalbn(x, n)), bits(std::scalbn(x, n))) << x << " " << n;
        if (std::isfinite(x) && y != 0) {
            ASSERT_EQ(bits(vn_fmod(x, y)), bits(std::fmod(x, y))) << x << " " << y;
        }
        int exponent = 0;
        const double mantissa = std::frexp(x, &exponent);
        ASSERT_EQ(bits(vn_mantissa(x)), bits(mantissa)) << x;
        ASSERT_EQ(vn_exponent(x), std::isinf(x) ? 0 : exponent) << x;
        double integral = 0;
        ASSERT_EQ(bits(vn_frac(x)), bits(std::modf(x, &integral))) << x;
        if (std::fabs(x) < 0x1p63) {
            ASSERT_EQ(vn_int(x), static_cast<int64_t>(integral)) << x;
            ASSERT_EQ(vn_bankerRound(x), static_cast<int64_t>(std::nearbyint(x))) << x;
        }
        if (x != 0 && std::isfinite(x)) {
            ASSERT_EQ(vn_ilogb(x), std::ilogb(x)) << x;
        }
    }
}

TEST(Maths, Ilogb) {
    EXPECT_EQ(vn_ilogb(0.0), -2147483647);
    EXPECT_EQ(vn_ilogb(-0.0), -2147483647);
    EXPECT_EQ(vn_ilogb(inf), 2147483647);
    EXPECT_EQ(vn_ilogb(-inf), 2147483647);
    EXPECT_EQ(vn_ilogb(nan_), 2147483647);
    EXPECT_EQ(vn_ilogb(smallest), -1074);
    EXPECT_EQ(vn_ilogb(0x0.00001p-1022), -1042);
    EXPECT_EQ(vn_ilogb(-8), 3);
}

TEST(Maths, ScalbnAtTheEndsOfInt) {
    EXPECT_SAME(vn_scalbn(1, std::numeric_limits<int>::max()), inf);
    EXPECT_SAME(vn_scalbn(-1, std::numeric_limits<int>::max()), -inf);
    EXPECT_SAME(vn_scalbn(-1, std::numeric_limits<int>::min()), -0.0);
    EXPECT_SAME(vn_scalbn(smallest, std::numeric_limits<int>::min()), 0.0);
    EXPECT_SAME(vn_scalbn(smallest, 2097), 0x1p1023);
    EXPECT_SAME(vn_scalbn(-0.0, 100), -0.0);
}

TEST(Maths, Nextafter) {
    EXPECT_SAME(vn_nextafter(0.0, 1), smallest);
    EXPECT_SAME(vn_nextafter(0.0, -1), -smallest);
    EXPECT_SAME(vn_nextafter(largest, inf), inf);
    EXPECT_SAME(vn_nextafter(inf, 0), largest);
    EXPECT_SAME(vn_nextafter(1, 1), 1.0);
    EXPECT_SAME(vn_nextafter(-0.0, 0.0), -0.0);
    EXPECT_SAME(vn_nextafter(0.0, -0.0), 0.0);
}

TEST(Maths, Fmod) {
    EXPECT_SAME(vn_fmod(-6, 3), -0.0);
    EXPECT_SAME(vn_fmod(5.5, -2), 1.5);
    EXPECT_SAME(vn_fmod(1, inf), 1.0);
    EXPECT_SAME(vn_fmod(largest, smallest), 0.0);
    EXPECT_TRUE(std::isnan(vn_fmod(inf, 2)));
    EXPECT_TRUE(std::isnan(vn_fmod(2, 0)));
}

TEST(Maths, IntegralAndFractionalPart) {
    EXPECT_EQ(vn_int(-3.7), -3);
    EXPECT_SAME(vn_frac(-3.7), -0.7000000000000002);
    EXPECT_EQ(vn_int(0x1p63), lowest);
    EXPECT_EQ(vn_int(-0x1p63), lowest);
    EXPECT_EQ(vn_int(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(vn_int(-1e300), lowest);
    EXPECT_EQ(vn_int(inf), lowest);
    EXPECT_EQ(vn_int(nan_), lowest);
    EXPECT_SAME(vn_frac(-2), -0.0);
    EXPECT_SAME(vn_frac(0x1p60), 0.0);
    EXPECT_SAME(vn_frac(-inf), -0.0);
    EXPECT_SAME(vn_frac(-0.25), -0.25);
}

TEST(Maths, FractionOfNanIsZeroWithTheSignOfTheArgument) {
    EXPECT_SAME(vn_frac(fromBits(0x7ff8000000000000)), 0.0);
    EXPECT_SAME(vn_frac(fromBits(0xfff8000000000000)), -0.0);
}

TEST(Maths, ExponentAndMantissa) {
    EXPECT_EQ(vn_exponent(8.0), 4);
    EXPECT_SAME(vn_mantissa(8.0), 0.5);
    EXPECT_EQ(vn_exponent(smallest), -1073);
    EXPECT_SAME(vn_mantissa(-smallest), -0.5);
    EXPECT_SAME(vn_mantissa(-0.0), -0.0);
    EXPECT_SAME(vn_mantissa(-inf), -inf);
    EXPECT_TRUE(std::isnan(vn_mantissa(nan_)));
    for (const double x : {0.0, -0.0, inf, -inf, nan_}) {
        EXPECT_EQ(vn_exponent(x), 0);
    }
}

TEST(Maths, BankerRound) {
    EXPECT_EQ(vn_bankerRound(0.5), 0);
    EXPECT_EQ(vn_bankerRound(1.5), 2);
    EXPECT_EQ(vn_bankerRound(-0.5), 0);
    EXPECT_EQ(vn_bankerRound(2.5), 2);
    EXPECT_EQ(vn_bankerRound(3.5), 4);
    EXPECT_EQ(vn_bankerRound(-2.5), -2);
    EXPECT_EQ(vn_bankerRound(0.49999999999999994), 0);
    EXPECT_EQ(vn_bankerRound(1e300), highest);
    EXPECT_EQ(vn_bankerRound(-1e300), lowest);
    EXPECT_EQ(vn_bankerRound(0x1p63), highest);
    EXPECT_EQ(vn_bankerRound(-0x1p63), lowest);
    EXPECT_EQ(vn_bankerRound(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(vn_bankerRound(inf), highest);
    EXPECT_EQ(vn_bankerRound(-inf), lowest);
    EXPECT_EQ(vn_bankerRound(nan_), lowest);
}

// Multiples of 1/4 around every power of two. Those that a double cannot represent are skipped.
TEST(Maths, BankerRoundIsRightAtEveryMagnitude) {
    for (int power = 0; power <= 51; ++power) {
        for (int64_t quarters = -64; quarters <= 64; ++quarters) {
            const int64_t inQuarters = (int64_t{4} << power) + quarters;
            const auto x = static_cast<double>(inQuarters) / 4;
            if (static_cast<int64_t>(x * 4) != inQuarters || x < 0) {
                continue;
            }
            const int64_t down = inQuarters / 4;
            const int64_t rest = inQuarters % 4;
            const int64_t rounded = rest < 2 || (rest == 2 && down % 2 == 0) ? down : down + 1;
            ASSERT_EQ(vn_bankerRound(x), rounded) << x;
            ASSERT_EQ(vn_bankerRound(-x), -rounded) << x;
        }
    }
}

TEST(Maths, SetFPUControlWordDoesNothing) {
    vn_SetFPUControlWord();
    EXPECT_SAME(vn_sin(1), 0.8414709848078965);
}

TEST(Maths, ChecksumsAreTheCommittedOnes) {
    FILE* pipe = popen(VN_MATHS_CHECKSUM, "r");
    ASSERT_NE(pipe, nullptr);
    std::string found;
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) {
        found.push_back(static_cast<char>(c));
    }
    EXPECT_EQ(pclose(pipe), 0);
    std::stringstream wanted;
    wanted << std::ifstream(VN_MATHS_EXPECTED).rdbuf();
    EXPECT_EQ(found, wanted.str());
}

}  // namespace
