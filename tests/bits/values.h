// Generates doubles and bytes as arguments, and writes their texts in the records.
#ifndef VN_TESTS_BITS_VALUES_H
#define VN_TESTS_BITS_VALUES_H

#include <bit>
#include <cstring>

#include "groups.h"

inline double fromBits(uint64_t bits) {
    return std::bit_cast<double>(bits);
}

inline uint64_t toBits(double x) {
    return std::bit_cast<uint64_t>(x);
}

inline std::string hex(uint64_t value, int digits = 16) {
    std::string text(static_cast<size_t>(digits), '0');
    for (size_t i = text.size(); i > 0; value >>= 4U) {
        text[--i] = "0123456789abcdef"[value & 15U];
    }
    return text;
}

// The bits of a NaN depend on the processor.
inline std::string resultText(double x) {
    return x != x ? "nan" : hex(toBits(x));
}

inline std::string resultText(int64_t value) {
    return std::to_string(value);
}

inline std::string hexOfBytes(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        text += hex(static_cast<unsigned char>(c), 2);
    }
    return text;
}

// Zero, the ends of the ranges, limits at which functions change their method, infinity and NaN.
inline const std::vector<double> specialDoubles = {0,
                                                   0x1p-1074,
                                                   0x1p-1073,
                                                   0x1.ffffffffffffep-1023,
                                                   0x1p-1022,
                                                   0x1p-1000,
                                                   0x1p-70,
                                                   0x1p-54,
                                                   0x1p-32,
                                                   0x1p-30,
                                                   0x1p-29,
                                                   0x1p-28,
                                                   0x1p-27,
                                                   0.25,
                                                   0x1.62e42fefa39efp-2,
                                                   0.4375,
                                                   0.5,
                                                   0.6744,
                                                   0.6875,
                                                   0.75,
                                                   0x1.921fb54442d18p-1,
                                                   0.84375,
                                                   0x1.fffffffffffffp-1,
                                                   1,
                                                   0x1.0000000000001p0,
                                                   1.1875,
                                                   1.25,
                                                   1.5,
                                                   0x1.921fb54442d18p0,
                                                   1.75,
                                                   2,
                                                   2.4375,
                                                   2.5,
                                                   3,
                                                   0x1.921fb54442d18p1,
                                                   3.5,
                                                   4.71238898038469,
                                                   6,
                                                   8,
                                                   10,
                                                   19,
                                                   20,
                                                   22,
                                                   28,
                                                   100,
                                                   170.5,
                                                   709,
                                                   709.782712893384,
                                                   709.7827128933841,
                                                   710.4758600739439,
                                                   710.475860073944,
                                                   745.1332191019411,
                                                   745.1332191019412,
                                                   1023,
                                                   1024,
                                                   1074,
                                                   1e10,
                                                   0x1p31,
                                                   0x1.00000002p31,
                                                   0x1p32,
                                                   0x1p33,
                                                   0x1.00000001p33,
                                                   1e15,
                                                   0x1p52,
                                                   0x1.0000000000001p52,
                                                   0x1p53,
                                                   1e16,
                                                   1e17,
                                                   1e21,
                                                   1e22,
                                                   1e23,
                                                   0x1p62,
                                                   0x1p63,
                                                   0x1p64,
                                                   1e300,
                                                   0x1p1023,
                                                   0x1.fffffffffffffp1023,
                                                   fromBits(0x7ff0000000000000U),
                                                   fromBits(0x7ff8000000000000U)};

constexpr uint64_t signBit = uint64_t{1} << 63U;

// A few units in the last place from x, of either sign.
inline double beside(double x, Random& random) {
    const uint64_t near = toBits(x) + random.below(33) - 16;
    const uint64_t sign = random.next() & signBit;
    return fromBits((near & ~signBit) | sign);
}

inline double randomDouble(Random& random) {
    const uint64_t bits = random.next();
    switch (random.below(9)) {
        case 0:
            return fromBits(bits);
        case 1:  // from 2^-40 to 2^40
            return fromBits((bits & 0x800fffffffffffffU) | ((983 + random.below(80)) << 52U));
        case 2:  // multiples of a quarter, with ties
            return static_cast<double>(static_cast<int64_t>(bits) >> 43U) * 0.25;
        case 3:  // multiples of pi/2 and their neighbours
            return beside(static_cast<double>(bits >> 42U) * 0x1.921fb54442d18p0, random);
        case 4: {  // typical decimal numbers
            constexpr double powersOfTen[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};
            return static_cast<double>(static_cast<int64_t>(bits) >> 36U) /
                   powersOfTen[random.below(8)];
        }
        case 5:  // powers of two and their neighbours
            return beside(fromBits(random.below(2047) << 52U), random);
        case 6:
            return beside(specialDoubles[random.below(specialDoubles.size())], random);
        case 7:  // subnormals
            return fromBits((bits & 0x800fffffffffffffU) >> random.below(50));
        default:  // from -1 to 1
            return static_cast<double>(static_cast<int64_t>(bits) >> 10U) * 0x1p-53;
    }
}

#endif
