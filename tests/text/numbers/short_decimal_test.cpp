// The fast paths for numbers with few places must return the bytes of the general conversion, or
// reject the number.
#include "text/numbers/short_decimal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "numbers_reference.h"
#include "text/numbers/digit_layout.h"
#include "text/numbers/double_text.h"
#include "text/numbers/scaled_digits.h"

namespace {

// Not inlined: g++ 12 would warn about positions of the gap that do not occur.
[[gnu::noinline]] std::string laidOut(char* (*layOut)(const vncommon::Digits&),
                                      const vncommon::Digits& digits) {
    return std::string(digits.text, layOut(digits));
}

// Empty if the fast path rejects x.
std::string fast(double x) {
    std::string text(64, '#');
    vncommon::Digits digits;
    if (!vncommon::shortDecimalDigits(x, text.data(), digits)) {
        return "";
    }
    return (std::signbit(x) ? "-" : "") + laidOut(vncommon::layOutShortest, digits);
}

// The fast path gives the general text or rejects x; the formatters give the general text.
void expectRight(double x) {
    const std::string text = reference::shortestText(x);
    const std::string quick = fast(x);
    if (!quick.empty()) {
        ASSERT_EQ(quick, text);
    }
    char buffer[64];
    ASSERT_EQ(vncommon::writeShortest(buffer, x), buffer + text.size());
    ASSERT_EQ(buffer, text);
    ASSERT_STREQ(vn_g_fmt(buffer, x), text.c_str());
}

TEST(ShortDecimal, TakesWhatPeopleWrite) {
    for (const char* text : {"1",          "-1",         "100000", "999999",   "1000001",
                             "123456789",  "999999999",  ".5",     "-.25",     ".01",
                             ".05",        "-.99",       "10.01",  "100000.5", "999999.99",
                             "1000000.01", "-1000000.5", ".0001",  "1.000001", "999999999.999999",
                             "101.25",     "-7.1",       ".000999"}) {
        EXPECT_EQ(fast(std::stod(text)), text);
    }
}

TEST(ShortDecimal, LeavesTheRest) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double x : {0.0, -0.0, 1e6, 3e6, 7e8, 1e9, 9.9e-5, 1e-7, 1.0000001, 0.1 + 0.2,
                           1.0 / 3, 5e-324, 1e300, infinity, -infinity, std::nan("")}) {
        EXPECT_EQ(fast(x), "") << x;
        expectRight(x);
    }
}

TEST(EightDigits, EveryUpperAndEveryLowerHalf) {
    for (uint32_t upper = 0; upper < 10000; ++upper) {
        const uint32_t number = upper * 10000 + (upper * 7 + 3) % 10000;
        char wanted[16];
        snprintf(wanted, sizeof wanted, "%08u", number);
        char text[8];
        vncommon::putEight(text, vncommon::eightDigits(number));
        ASSERT_EQ(std::string(text, sizeof text), wanted);
    }
}

TEST(ShortDecimal, AgreesOnHundredths) {
    std::mt19937_64 random(23);
    for (int i = 1; i <= 50000; ++i) {
        expectRight(i / 100.0);
        expectRight(-static_cast<double>(random() % 110'000'000) / 100);
    }
}

// Empty if exact scaling rejects x.
std::string scaled(double x, int places) {
    std::string text(64, '#');
    vncommon::Digits digits;
    if (!vncommon::scaledDigits(x, places, text.data(), digits)) {
        return "";
    }
    return laidOut(vncommon::layOutFixed, digits);
}

TEST(ScaledDigits, TakesWhatFits) {
    EXPECT_EQ(scaled(0, 0), "0");
    EXPECT_EQ(scaled(0, 3), "0.000");
    EXPECT_EQ(scaled(2.5, 0), "2");
    EXPECT_EQ(scaled(-0.375, 2), "0.38");
    EXPECT_EQ(scaled(5e-324, 18), "0.000000000000000000");
    EXPECT_EQ(scaled(0x1p-62, 18), "0.000000000000000000");
    EXPECT_EQ(scaled(0x1p-60, 18), "0.000000000000000001");
    EXPECT_EQ(scaled(9.125, 18), "9.125000000000000000");
    EXPECT_EQ(scaled(0x1p52 - 0.5, 3), "4503599627370495.500");
}

TEST(ScaledDigits, LeavesTheRest) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(scaled(0x1p52, 0), "");
    EXPECT_EQ(scaled(9.25, 18), "");  // 2^63 is 9.22e18
    EXPECT_EQ(scaled(infinity, 2), "");
    EXPECT_EQ(scaled(std::nan(""), 2), "");
}

TEST(ShortDecimal, AgreesOnEveryNumberOfPlaces) {
    std::mt19937_64 random(20);
    for (double scale = 1; scale <= 1e8; scale *= 10) {
        for (int i = 0; i < 20000; ++i) {
            const auto digits = static_cast<double>(random() >> (10 + random() % 50));
            const double x = (random() % 2 == 0 ? digits : -digits) / scale;
            expectRight(x);
        }
    }
}

TEST(ShortDecimal, AgreesOnTheNeighboursOfShortDecimals) {
    std::mt19937_64 random(21);
    for (int i = 0; i < 50000; ++i) {
        const double x = static_cast<double>(random() % 1'000'000'000'000'000) / 1e6;
        expectRight(x);
        expectRight(std::nextafter(x, 0));
        expectRight(std::nextafter(x, 1e10));
    }
}

TEST(ShortDecimal, AgreesOnTheWholeRange) {
    std::mt19937_64 random(22);
    std::uniform_real_distribution<double> exponent(-5, 10);
    for (int i = 0; i < 50000; ++i) {
        expectRight(std::pow(10, exponent(random)));
    }
}

}  // namespace
