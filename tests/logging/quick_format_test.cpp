// quickFormat must write the same bytes as snprintf, or reject the format.
#include "logging/quick_format.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr char refused[] = "(refused)";

std::string quick(int size, const char* format, ...) {
    std::string room(static_cast<size_t>(size) + 1, '#');
    va_list arguments;
    va_start(arguments, format);
    const int length = vncommon::quickFormat(room.data(), size, format, arguments);
    va_end(arguments);
    EXPECT_EQ(room[static_cast<size_t>(size)], '#') << "written beyond the room";
    return length < 0 ? refused : room.substr(0, static_cast<size_t>(length));
}

template <typename... Arguments>
std::string plain(const char* format, Arguments... arguments) {
    std::string text(static_cast<size_t>(snprintf(nullptr, 0, format, arguments...)), '\0');
    snprintf(text.data(), text.size() + 1, format, arguments...);
    return text;
}

template <typename... Arguments>
void expectSame(const char* format, Arguments... arguments) {
    EXPECT_EQ(quick(500, format, arguments...), plain(format, arguments...)) << format;
}

template <typename... Arguments>
void expectSameOrRefused(const char* format, Arguments... arguments) {
    const std::string text = quick(500, format, arguments...);
    if (text != refused) {
        ASSERT_EQ(text, plain(format, arguments...)) << format;
    }
}

TEST(QuickFormat, TextAndStrings) {
    expectSame("%s", "");
    expectSame("100%% of %s and %s", "one", "two");
    for (const char* format : {"%s", "%10s|", "%-10s|", "%.2s", "%.0s", "%8.3s|", "%-8.3s|", "a%sb",
                               "%.s", "%02147483648s"}) {
        expectSameOrRefused(format, "text");
    }
    expectSame("%c%3c%-3c|", 'a', 'b', 'c');
    EXPECT_EQ(quick(10, "%c", 0), std::string(1, '\0'));
}

TEST(QuickFormat, Integers) {
    const int64_t values[] = {0,       1,         -1,       9,         10,       -10,
                              99,      12345,     INT_MAX,  INT_MIN,   LONG_MAX, LONG_MIN,
                              1 << 20, 999999999, UINT_MAX, -999999999};
    for (const int64_t value : values) {
        for (const char* format : {"%d", "%i", "%u", "%x", "%5d|", "%-5d|", "%05d|", "%-05d|",
                                   "%0-5d|", "%12u|", "%012x|", "%-12x|", "%00012d"}) {
            expectSame(format, static_cast<int>(value));
        }
        for (const char* format : {"%ld", "%lu", "%lx", "%lld", "%llu", "%zu", "%zd", "%jd", "%ju",
                                   "%td", "%25ld|", "%-25lld|", "%025lu|"}) {
            expectSame(format, value);
        }
    }
}

TEST(QuickFormat, LeavesTheUnusualToPrintf) {
    EXPECT_EQ(quick(100, "%+d", 1), refused);
    EXPECT_EQ(quick(100, "%#x", 1), refused);
    EXPECT_EQ(quick(100, "%.3d", 1), refused);
    EXPECT_EQ(quick(100, "%*d", 3, 1), refused);
    EXPECT_EQ(quick(100, "%.*s", 3, "x"), refused);
    EXPECT_EQ(quick(100, "%hd", 1), refused);
    EXPECT_EQ(quick(100, "%m"), refused);
    EXPECT_EQ(quick(100, "%p", nullptr), refused);
    EXPECT_EQ(quick(100, "%ls", L"x"), refused);
    EXPECT_EQ(quick(100, "%05s", "x"), refused);
    EXPECT_EQ(quick(100, "%lc", L'x'), refused);
    EXPECT_EQ(quick(100, "%05c", 'x'), refused);
    EXPECT_EQ(quick(100, "%.1c", 'x'), refused);
    EXPECT_EQ(quick(100, "%lf", 1.0), refused);
    EXPECT_EQ(quick(100, "%.99999999999s", "x"), refused);
    EXPECT_EQ(quick(100, "%g", 1.0), refused);
    EXPECT_EQ(quick(100, "%1$d", 1), refused);
    EXPECT_EQ(quick(100, "%"), refused);
    EXPECT_EQ(quick(100, "%5"), refused);
    EXPECT_EQ(quick(100, "%5%"), refused);
    EXPECT_EQ(quick(100, "%s", static_cast<const char*>(nullptr)), refused);
    EXPECT_EQ(quick(100, "%f", INFINITY), refused);
    EXPECT_EQ(quick(100, "%f", std::nan("")), refused);
    EXPECT_EQ(quick(100, "%f", 1e300), refused);
    EXPECT_EQ(quick(100, "%.10f", 1.0), refused);
    EXPECT_EQ(quick(100, "%99999999999d", 1), refused);
}

TEST(QuickFormat, StaysInTheRoom) {
    for (int size = 0; size < 20; ++size) {
        EXPECT_EQ(quick(size, "%s", "0123456789"), size < 10 ? refused : "0123456789");
        EXPECT_EQ(quick(size, "%10d", 5), size < 10 ? refused : "         5");
        EXPECT_EQ(quick(size, "0123456789"), size < 10 ? refused : "0123456789");
        EXPECT_EQ(quick(size, "%.7f", 0.5), size < 9 ? refused : "0.5000000");
    }
}

const char* const doubleFormats[] = {"%f",   "%.0f", "%.1f",    "%.2f",     "%.3f",    "%.6f",
                                     "%.9f", "%8f",  "%12.2f|", "%-12.2f|", "%012.2f|"};

TEST(QuickFormat, DoublesInEveryRoundingMode) {
    for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        fesetround(mode);
        for (const double value : {0.0,
                                   -0.0,
                                   0.5,
                                   1.5,
                                   2.5,
                                   -2.5,
                                   0.125,
                                   0.375,
                                   1e-5,
                                   1e-9,
                                   1e-20,
                                   0.1,
                                   1.005,
                                   999999.9999995,
                                   1e15,
                                   9007199254740991.0,
                                   9007199254740992.0,
                                   1e16,
                                   123456789.987654321,
                                   5e-324}) {
            for (const char* format : doubleFormats) {
                expectSameOrRefused(format, value);
            }
        }
    }
    fesetround(FE_TONEAREST);
    EXPECT_EQ(quick(100, "%.2f", 17.25), "17.25");
    EXPECT_EQ(quick(100, "%f", -0.0), "-0.000000");
    EXPECT_EQ(quick(100, "%.0f", 2.5), "2");
}

TEST(QuickFormat, RandomDoubles) {
    std::mt19937_64 random(11);
    for (int i = 0; i < 40'000; ++i) {
        const char* format = doubleFormats[random() % std::size(doubleFormats)];
        const auto digits = static_cast<double>(random() % 2'000'000'000);
        const double ties = static_cast<double>(static_cast<int64_t>(random() % 2000) - 1000) / 16;
        expectSameOrRefused(format, std::bit_cast<double>(random()));
        expectSameOrRefused(format, digits / 1000);
        expectSameOrRefused(format, std::ldexp(digits, static_cast<int>(random() % 120) - 90));
        expectSame(format, ties);
    }
}

}  // namespace
