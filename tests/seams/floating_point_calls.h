// Calls every function of the library whose result depends on floating-point arithmetic, with
// seeded arguments. Programs, processes and modes are then compared by the bits of the results.
//
// Results are folded into 64 bits with integer arithmetic only: the programs that include this run
// in odd modes, and one is compiled with -ffast-math.
#ifndef VN_TESTS_SEAMS_FLOATING_POINT_CALLS_H
#define VN_TESTS_SEAMS_FLOATING_POINT_CALLS_H

#include <math.h>  // signgam

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string_view>

#include <vncommon/event_writer.h>
#include <vncommon/maths.h>
#include <vncommon/numbers.h>
#include <vncommon/timestamp_set.h>

namespace floatingPoint {

inline uint64_t bitsOf(double x) {
    return std::bit_cast<uint64_t>(x);
}

inline double fromBits(uint64_t bits) {
    return std::bit_cast<double>(bits);
}

// --- Results -----------------------------------------------------------------------------------

// All NaNs count as equal: their bits depend on the processor.
inline uint64_t fold(double x) {
    constexpr uint64_t infinity = uint64_t{0x7ff} << 52;
    const uint64_t bits = bitsOf(x);
    return (bits & ~(uint64_t{1} << 63)) > infinity ? 0x7ff8000000000000U : bits;
}

inline uint64_t fold(int64_t value) {
    return static_cast<uint64_t>(value);
}

inline uint64_t fold(uint64_t hash, uint64_t value) {  // FNV-1a
    return (hash ^ value ^ (value >> 32)) * 0x100000001b3U;
}

inline uint64_t fold(std::string_view text) {
    uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text) {
        hash = fold(hash, static_cast<unsigned char>(c));
    }
    return hash;
}

// Folds a text that the caller owns, and frees it.
inline uint64_t foldAndFree(char* text) {
    const uint64_t hash = fold(std::string_view(text));
    free(text);
    return hash;
}

// --- Arguments ---------------------------------------------------------------------------------

struct Arguments {
    double x;
    double y;
    uint64_t bits;
    int n;
    char text[64];  // a number
};

// SplitMix64.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = state_ += 0x9e3779b97f4a7c15U;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31);
    }

  private:
    uint64_t state_;
};

// Random bits, subnormals, magnitudes near 1, integers with four binary places, small decimals,
// and special values, of either sign.
inline double anyDouble(Random& random) {
    constexpr uint64_t special[] = {0,
                                    1,
                                    0x000fffffffffffffU,
                                    0x0010000000000000U,
                                    0x3ff0000000000000U,
                                    0x3fe0000000000000U,
                                    0x4008000000000000U,
                                    0x40862e42fefa39efU,
                                    0x43e0000000000000U,
                                    0x7fefffffffffffffU,
                                    0x7ff0000000000000U,
                                    0x7ff8000000000000U};
    constexpr uint64_t fraction = (uint64_t{1} << 52) - 1;
    const uint64_t pattern = random.next();
    const uint64_t choice = random.next();
    const uint64_t sign = pattern & (uint64_t{1} << 63);
    switch (choice % 6) {
        case 0:
            return fromBits(pattern);
        case 1:
            return fromBits((pattern & fraction) >> (choice >> 8) % 52 | sign);
        case 2:
            return fromBits((pattern & fraction) | (1000 + (choice >> 8) % 40) << 52 | sign);
        case 3:
            return static_cast<double>(static_cast<int64_t>(pattern) >> 40) * 0.0625;
        case 4: {
            const volatile double scale = 1000;
            return static_cast<double>(static_cast<int64_t>(pattern) >> (33 + choice % 16)) / scale;
        }
        default:
            return fromBits(special[(choice >> 8) % (sizeof special / sizeof *special)] | sign);
    }
}

// Decimal text with and without an exponent, at the ends of the range too, and hexadecimal text.
inline void anyNumberText(Random& random, char (&text)[64]) {
    const uint64_t digits = random.next() >> random.next() % 64;
    const auto whole = static_cast<unsigned>(random.next() >> 44);
    const auto wide = static_cast<int>(random.next() % 700) - 360;
    const char* sign = random.next() % 2 == 0 ? "" : "-";
    switch (random.next() % 5) {
        case 0:
            snprintf(text, sizeof text, "%s%u.%u", sign, whole % 10000, whole >> 6);
            return;
        case 1:
            snprintf(text, sizeof text, "%s%lue%d", sign, digits, wide);
            return;
        case 2:
            snprintf(text, sizeof text, "%s%u.%lue%d", sign, whole, digits, wide / 16);
            return;
        case 3:
            snprintf(text, sizeof text, "%s0x%x.%lxp%d", sign, whole, digits, wide * 3);
            return;
        default:
            snprintf(text, sizeof text, "%s%lu%lu%u.%u", sign, digits, digits, whole, whole);
    }
}

inline Arguments anyArguments(Random& random) {
    Arguments arguments{};
    arguments.x = anyDouble(random);
    arguments.y = anyDouble(random);
    arguments.bits = random.next();
    arguments.n =
        static_cast<int>(static_cast<int64_t>(random.next()) >> (32 + random.next() % 28));
    anyNumberText(random, arguments.text);
    return arguments;
}

// --- Calls -------------------------------------------------------------------------------------

template <auto function>
uint64_t ofOne(const Arguments& with) {
    return fold(function(with.x));
}

template <auto function>
uint64_t ofTwo(const Arguments& with) {
    return fold(function(with.x, with.y));
}

inline uint64_t gammaAndSign(const Arguments& with) {
    const uint64_t hash = fold(vn_gammal(with.x));
    return fold(hash, static_cast<uint64_t>(signgam));
}

inline uint64_t shortest(const Arguments& with) {
    char text[32];
    return fold(std::string_view(vn_g_fmt(text, with.x)));
}

// Numbers of places that have a fast path, and any other; buffers that are large enough or too
// small.
template <auto function>
uint64_t sized(const Arguments& with) {
    char text[512];
    const bool few = with.bits % 2 == 0;
    const int precision = static_cast<int>((with.bits >> 8) % (few ? 10 : 130)) - (few ? 0 : 20);
    const unsigned size = with.bits % 16 == 1 ? with.bits >> 32 & 31 : sizeof text;
    const char* result = function(text, size, precision, with.x);
    return result == nullptr ? 0 : fold(std::string_view(result));
}

inline uint64_t reader(const Arguments& with) {
    char* end;
    errno = 0;
    const uint64_t hash = fold(vn_strtod(with.text, &end));
    const auto length = static_cast<uint64_t>(end - with.text);
    return fold(fold(hash, length), static_cast<uint64_t>(errno));
}

inline uint64_t decimal(const Arguments& with) {
    char text[64];
    vn_dec_to_string(with.bits, text);
    const int kind =
        vn_dec_isnan(with.bits) * 4 + vn_dec_isfinite(with.bits) * 2 + vn_dec_isinfinite(with.bits);
    return fold(fold(fold(std::string_view(text)), static_cast<uint64_t>(kind)),
                VN_DEC_INFINITY() ^ VN_DEC_NAN());
}

inline uint64_t event(const Arguments& with) {
    VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Event, "E");
    VN_EventWriter_addFloat(writer, with.x);
    VN_EventWriter_addDecimal(writer, with.bits);
    VN_EventWriter_addFloat(writer, with.y);
    const VN_EventValue value = {writer, VN_EventKind_Event};
    const uint32_t length = VN_EventWriter_strlen(&value, VN_EventKind_Event);
    char text[256];
    int position = 0;
    VN_EventWriter_buildString(&value, VN_EventKind_Event, text, &position, sizeof text - 1);
    const uint64_t inTwoPasses = fold({text, static_cast<size_t>(position)});
    const uint64_t inOnePass = foldAndFree(VN_EventWriter_toString(writer));
    VN_EventWriter_dtor(writer);
    return fold(fold(inTwoPasses, inOnePass), length);
}

inline uint64_t stamps(const Arguments& with) {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    VN_TimestampSet_addTime(set, 1, with.x);
    VN_TimestampSet_addTime(set, 2, with.y);
    const uint64_t hash = foldAndFree(VN_TimestampSet_toString(set));
    VN_TimestampSet_dtor(set);
    return hash;
}

struct Function {
    const char* name;
    uint64_t (*result)(const Arguments& with);
};

inline std::ostream& operator<<(std::ostream& out, const Function& function) {
    return out << function.name;
}

constexpr Function functions[] = {
    {"pow", ofTwo<vn_pow>},
    {"exp", ofOne<vn_exp>},
    {"log", ofOne<vn_log>},
    {"log10", ofOne<vn_log10>},
    {"cbrt", ofOne<vn_cbrt>},
    {"sin", ofOne<vn_sin>},
    {"cos", ofOne<vn_cos>},
    {"tan", ofOne<vn_tan>},
    {"asin", ofOne<vn_asin>},
    {"acos", ofOne<vn_acos>},
    {"atan", ofOne<vn_atan>},
    {"atan2", ofTwo<vn_atan2>},
    {"sinh", ofOne<vn_sinh>},
    {"cosh", ofOne<vn_cosh>},
    {"tanh", ofOne<vn_tanh>},
    {"asinh", ofOne<vn_asinh>},
    {"acosh", ofOne<vn_acosh>},
    {"atanh", ofOne<vn_atanh>},
    {"erf", ofOne<vn_erf>},
    {"gammal", gammaAndSign},
    {"nextafter", ofTwo<vn_nextafter>},
    {"scalbn", [](const Arguments& with) { return fold(vn_scalbn(with.x, with.n)); }},
    {"fmod", ofTwo<vn_fmod>},
    {"ilogb", ofOne<vn_ilogb>},
    {"int", ofOne<vn_int>},
    {"frac", ofOne<vn_frac>},
    {"exponent", ofOne<vn_exponent>},
    {"mantissa", ofOne<vn_mantissa>},
    {"bankerRound", ofOne<vn_bankerRound>},
    {"g_fmt", shortest},
    {"g_fmt_fixed", sized<vn_g_fmt_fixed>},
    {"g_fmt_scientific", sized<vn_g_fmt_scientific>},
    {"strtod", reader},
    {"decimal", decimal},
    {"event", event},
    {"stamps", stamps},
};

}  // namespace floatingPoint

#endif
