// Doubles and decimals to text, and text to doubles.
#include <vncommon/numbers.h>

#include <cerrno>

#include "values.h"

namespace {

constexpr unsigned roomy = 512;

std::string orNull(const char* text) {
    return text == nullptr ? "(null)" : text;
}

void shortest(Records& records, Random& random) {
    char text[32];
    for (const double x : specialDoubles) {
        records.add(hex(toBits(x)), vn_g_fmt(text, x));
        records.add(hex(toBits(-x)), vn_g_fmt(text, -x));
    }
    for (int i = 0; i < randomCalls; ++i) {
        const double x = randomDouble(random);
        records.add(hex(toBits(x)), vn_g_fmt(text, x));
    }
}

using Formatter = char* (*)(char* buf, unsigned size, int precision, double x);

template <Formatter format>
void record(Records& records, double x, int precision, unsigned size) {
    char text[roomy];
    records.add(hex(toBits(x)) + " " + std::to_string(precision) + " " + std::to_string(size),
                orNull(format(text, size, precision, x)));
}

template <Formatter format>
void sized(Records& records, Random& random) {
    for (const double x : specialDoubles) {
        for (const int precision : {-2, 0, 1, 2, 6, 16, 17, 101}) {
            record<format>(records, x, precision, roomy);
            record<format>(records, -x, precision, roomy);
        }
    }
    for (int i = 0; i < randomCalls; ++i) {
        const double x = randomDouble(random);
        const int precision =
            random.below(8) == 0 ? random.between(-4, 110) : random.between(0, 17);
        const bool tight = random.below(4) == 0;
        record<format>(records, x, precision,
                       tight ? static_cast<unsigned>(random.below(31)) : roomy);
    }
}

// Digits, with or without a point.
std::string digits(Random& random, const char* alphabet, uint64_t base) {
    const int count = random.between(0, random.below(10) == 0 ? 40 : 18);
    const int point = random.between(-20, count);
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i == point) {
            text += '.';
        }
        text += alphabet[random.below(random.below(4) == 0 ? 1 : base)];
    }
    return text;
}

std::string exponent(Random& random, const char* letter, int bound) {
    constexpr const char* signs[] = {"", "+", "-"};
    if (random.below(3) == 0) {
        return "";
    }
    const std::string sign = signs[random.below(3)];
    return letter + sign + std::to_string(random.between(0, bound));
}

// A subnormal, or a neighbour, with more digits than netlib's reader uses.
std::string longSubnormal(Random& random) {
    std::string text = std::to_string(random.between(1, 9));
    const int count = random.between(18, 24);
    for (int i = 0; i < count; ++i) {
        text += static_cast<char>('0' + random.below(10));
    }
    return text + ".251145e-" + std::to_string(count + random.between(305, 326));
}

// An integer halfway between two doubles, or next to it.
std::string midpoint(Random& random) {
    const uint64_t odd = (uint64_t{1} << 53U) | (random.next() >> 11U) | 1U;
    const uint64_t value = odd << random.below(11);
    const std::string text = std::to_string(value + random.below(3) - 1);
    return random.below(2) == 0 ? text : text + ".0000001";
}

// Texts that are not numbers, or unusual numbers.
constexpr const char* words[] = {"inf",
                                 "Infinity",
                                 "nan",
                                 "NaN(12)",
                                 "infinit",
                                 "e5",
                                 ".",
                                 "0x",
                                 "0xg",
                                 "1e",
                                 "1e+",
                                 "1.e5",
                                 "--1",
                                 "",
                                 "0x.p1",
                                 "1e400",
                                 "4.9e-324",
                                 "2e-324",
                                 "1.8e308",
                                 "0x1p-1075",
                                 "0x1p4294967296",
                                 "-0x1p-4294967296"};

std::string numberText(Random& random) {
    const bool small = random.below(2) == 0;
    std::string text;
    switch (random.below(9)) {
        case 0:
            return words[random.below(std::size(words))];
        case 1:
            return midpoint(random);
        case 2:
            return longSubnormal(random);
        case 3:
            text = "0x" + digits(random, "0123456789abcdefABCDEF", 22);
            return text + exponent(random, "p", small ? 60 : 1100);
        default:
            text = digits(random, "0123456789", 10);
            return text + exponent(random, small ? "e" : "E", small ? 25 : 345);
    }
}

void reading(Records& records, Random& random) {
    constexpr const char* before[] = {"", "", "", "-", "+", " ", "\t-"};
    constexpr const char* after[] = {"", "", "", " ", "x", "e", "."};
    for (int i = 0; i < randomCalls; ++i) {
        std::string text = before[random.below(std::size(before))];
        text += numberText(random);
        text += after[random.below(std::size(after))];
        char* end = nullptr;
        errno = 0;
        const double x = vn_strtod(text.c_str(), &end);
        const char* range = errno == 0 ? "" : errno == ERANGE ? " out of range" : " other error";
        records.add(hexOfBytes(text),
                    resultText(x) + " " + std::to_string(end - text.c_str()) + range);
    }
}

void recordDecimal(Records& records, uint64_t bits) {
    char text[32];
    vn_dec_to_string(bits, text);
    const auto flag = [](int value) { return value != 0 ? "1" : "0"; };
    records.add(hex(bits), std::string(text) + " " + flag(vn_dec_isnan(bits)) +
                               flag(vn_dec_isfinite(bits)) + flag(vn_dec_isinfinite(bits)));
}

void decimal(Records& records, Random& random) {
    for (const uint64_t bits : {VN_DEC_INFINITY(), VN_DEC_NAN(), uint64_t{0}, ~uint64_t{0}}) {
        recordDecimal(records, bits);
        recordDecimal(records, bits ^ (uint64_t{1} << 63U));
    }
    for (int i = 0; i < randomCalls; ++i) {
        const uint64_t bits = random.next();
        const uint64_t coefficient = random.shorter(11);
        const uint64_t exponent = random.below(768);
        recordDecimal(records, random.below(2) == 0 ? bits
                                                    : (bits & (uint64_t{1} << 63U)) |
                                                          (exponent << 53U) | coefficient);
    }
}

}  // namespace

std::vector<Group> numberGroups() {
    return {{"shortest_text", shortest},
            {"fixed_text", sized<vn_g_fmt_fixed>},
            {"scientific_text", sized<vn_g_fmt_scientific>},
            {"reading", reading},
            {"decimal_text", decimal}};
}
