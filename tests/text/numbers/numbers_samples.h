// Doubles that are hard to convert, and random ones; shared by the test programs of numbers.h.
#ifndef VN_TESTS_TEXT_NUMBERS_NUMBERS_SAMPLES_H
#define VN_TESTS_TEXT_NUMBERS_NUMBERS_SAMPLES_H

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

using Random = std::mt19937_64;

inline uint64_t below(Random& random, uint64_t bound) {
    return random() % bound;
}

inline double fromBits(uint64_t bits) {
    return std::bit_cast<double>(bits);
}

inline uint64_t toBits(double x) {
    return std::bit_cast<uint64_t>(x);
}

inline void addWithNeighbours(std::vector<double>& samples, double x) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double each : {std::nextafter(x, 0), x, std::nextafter(x, infinity)}) {
        samples.push_back(each);
        samples.push_back(-each);
    }
}

// Powers of two and of ten with their neighbours, the ends of the ranges, ties of decimal rounding
// with their neighbours, and short decimal numbers.
inline std::vector<double> hardSamples() {
    std::vector<double> samples = {0.0, -0.0, std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(), std::nan("")};
    for (int exponent = -1074; exponent <= 1023; ++exponent) {
        addWithNeighbours(samples, std::ldexp(1.0, exponent));
    }
    for (int exponent = -323; exponent <= 308; ++exponent) {
        addWithNeighbours(samples, strtod(("1e" + std::to_string(exponent)).c_str(), nullptr));
    }
    for (uint64_t bits = 1; bits <= 300; ++bits) {
        samples.push_back(fromBits(bits));                            // smallest subnormals
        samples.push_back(fromBits((uint64_t{1} << 52) - bits));      // largest
        samples.push_back(fromBits((uint64_t{0x7ff} << 52) - bits));  // largest of all
        samples.push_back(9007199254740992.0 - 150 + static_cast<double>(bits));  // around 2^53
    }
    for (int numerator = 1; numerator <= 400; numerator += 2) {  // ties at every place up to 8
        for (int halvings = 1; halvings <= 8; ++halvings) {
            addWithNeighbours(samples, std::ldexp(numerator, -halvings));
        }
    }
    for (int i = 5; i < 5000; i += 10) {  // ties of significant digits
        for (const double scale : {1.0, 10.0, 1e5, 1e10, 1e19}) {
            samples.push_back(i * scale);
        }
    }
    for (const double scale : {10.0, 100.0, 1000.0, 1e6}) {  // short decimals
        for (int i = 0; i < 1000; ++i) {
            samples.push_back(i / scale);
            samples.push_back(-(i * 7919 + 1) / scale);
        }
    }
    for (int length = 1; length <= 21; ++length) {  // the largest number of each length
        const std::string nines(static_cast<size_t>(length), '9');
        for (const char* exponent : {"", "e-5", "e-10", "e-20", "e5"}) {
            addWithNeighbours(samples, strtod((nines + exponent).c_str(), nullptr));
        }
    }
    return samples;
}

// Random bits, amounts of money, integers of every size, short decimals, values near a decimal tie.
inline double randomSample(Random& random) {
    switch (below(random, 6)) {
        case 0:
            return static_cast<double>(static_cast<int64_t>(below(random, 100'000'000))) / 100;
        case 1:
            return static_cast<double>(random() >> below(random, 64));
        case 2: {
            const auto digits = static_cast<double>(below(random, 1'000'000'000));
            return digits * std::pow(10.0, static_cast<double>(below(random, 40)) - 25);
        }
        case 3: {
            const auto tie = static_cast<double>(below(random, 1'000'000) * 10 + 5);
            const double x = tie / std::pow(10.0, static_cast<double>(below(random, 12)));
            return fromBits(toBits(x) + below(random, 3) - 1);
        }
        default:
            return fromBits(random());
    }
}

// The number of random samples: VN_SOAK if it is set, else the given one.
inline uint64_t sampleCount(uint64_t inSuite) {
    const char* soak = getenv("VN_SOAK");
    return soak == nullptr ? inSuite : strtoull(soak, nullptr, 10);
}

#endif
