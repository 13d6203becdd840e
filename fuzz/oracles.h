// Models that more than one target uses.
#ifndef VN_FUZZ_ORACLES_H
#define VN_FUZZ_ORACLES_H

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// ---- UTF-8 ----------------------------------------------------------------------------------

struct CodePoint {
    uint32_t value;
    size_t length;  // bytes of its UTF-8
};

// The character at the start of text, by the arithmetic of the encoding: shortest forms up to
// U+10FFFF, surrogates included.
inline std::optional<CodePoint> decodeOne(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text.front());
    if (lead < 0x80) {
        return CodePoint{lead, 1};
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC0 || lead > 0xF7 || text.size() < length) {
        return std::nullopt;
    }
    uint32_t value = lead & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<uint8_t>(text[i]);
        if (next >> 6 != 2) {
            return std::nullopt;
        }
        value = value << 6 | (next & 0x3F);
    }
    static constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || value > 0x10FFFF) {
        return std::nullopt;
    }
    return CodePoint{value, length};
}

inline std::optional<std::vector<CodePoint>> decodeUtf8(std::string_view text) {
    std::vector<CodePoint> points;
    while (!text.empty()) {
        const auto point = decodeOne(text);
        if (!point) {
            return std::nullopt;
        }
        points.push_back(*point);
        text.remove_prefix(point->length);
    }
    return points;
}

inline std::string encodeUtf8(uint32_t value) {
    const auto byte = [](uint32_t bits) { return static_cast<char>(static_cast<uint8_t>(bits)); };
    const auto tail = [&](uint32_t shift) { return byte(0x80 | (value >> shift & 0x3F)); };
    if (value < 0x80) {
        return {byte(value)};
    }
    if (value < 0x800) {
        return {byte(0xC0 | value >> 6), tail(0)};
    }
    if (value < 0x10000) {
        return {byte(0xE0 | value >> 12), tail(6), tail(0)};
    }
    return {byte(0xF0 | value >> 18), tail(12), tail(6), tail(0)};
}

inline bool isSurrogate(uint32_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

// ---- Numbers --------------------------------------------------------------------------------

// The digits and the exponent of x in scientific form with the given number of significant digits,
// as the C library rounds them. x is finite.
struct Scientific {
    std::string digits;
    int exponent;
};

inline Scientific scientific(double x, int significant) {
    char text[512];
    snprintf(text, sizeof text, "%.*e", significant - 1, std::fabs(x));
    const std::string whole = text;
    const size_t e = whole.find('e');
    std::string digits = whole.substr(0, e);
    if (digits.size() > 1) {
        digits.erase(1, 1);
    }
    return {digits, atoi(whole.c_str() + e + 1)};
}

inline std::string exponentText(int exponent) {
    char text[16];
    snprintf(text, sizeof text, "e%+03d", exponent);
    return text;
}

inline bool readsBack(double x, const Scientific& number) {
    const int exponent = number.exponent - static_cast<int>(number.digits.size()) + 1;
    const std::string text = number.digits + "e" + std::to_string(exponent);
    return strtod(text.c_str(), nullptr) == std::fabs(x);
}

// Adds one to the last digit, unless it is 9.
inline void stepUp(Scientific& number) {
    number.digits.back() = static_cast<char>(number.digits.back() + (number.digits.back() < '9'));
}

// The fewest digits that read back as the same double: correctly rounded by the C library or, just
// above a power of two, the next larger. Doubles are closer together below a power of two.
inline Scientific shortestDigits(double x) {
    for (int significant = 1; significant < 17; ++significant) {
        Scientific number = scientific(x, significant);
        if (readsBack(x, number)) {
            return number;
        }
        stepUp(number);
        if (readsBack(x, number)) {
            return number;
        }
    }
    return scientific(x, 17);
}

// The shortest text that reads back as the same double, in the library's layout.
inline std::string shortestText(double x) {
    if (std::isnan(x)) {
        return "NaN";
    }
    const std::string sign = std::signbit(x) ? "-" : "";
    if (std::isinf(x)) {
        return sign + "Infinity";
    }
    if (x == 0) {
        return sign + "0";
    }
    const Scientific number = shortestDigits(x);
    const std::string& digits = number.digits;
    const int count = static_cast<int>(digits.size());
    if (number.exponent < -4 || number.exponent >= count + 5) {
        const std::string fraction = count > 1 ? "." + digits.substr(1) : "";
        return sign + digits[0] + fraction + exponentText(number.exponent);
    }
    if (number.exponent < 0) {
        return sign + "." + std::string(static_cast<size_t>(-number.exponent - 1), '0') + digits;
    }
    const int whole = number.exponent + 1;  // digits before the point
    if (whole >= count) {
        return sign + digits + std::string(static_cast<size_t>(whole - count), '0');
    }
    std::string text = sign + digits;
    return text.insert(sign.size() + static_cast<size_t>(whole), ".");
}

// The text of a decimal64 in binary integer encoding.
inline std::string decimalText(uint64_t bits) {
    const std::string sign = bits >> 63 ? "-" : "+";
    const bool isLarge = (bits >> 61 & 3) == 3;  // the coefficient has its top bits implied
    if (isLarge && (bits >> 59 & 3) == 3) {
        const bool isNan = bits >> 58 & 1;
        return sign + (!isNan ? "Inf" : bits >> 57 & 1 ? "SNaN" : "NaN");
    }
    const uint64_t exponent = (isLarge ? bits >> 51 : bits >> 53) & 0x3FF;
    uint64_t coefficient = isLarge ? UINT64_C(1) << 53 | (bits & ((UINT64_C(1) << 51) - 1))
                                   : bits & ((UINT64_C(1) << 53) - 1);
    if (coefficient > UINT64_C(9999999999999999)) {
        coefficient = 0;  // IEEE 754: a non-canonical coefficient is zero
    }
    char text[64];
    snprintf(text, sizeof text, "%luE%+ld", static_cast<unsigned long>(coefficient),
             static_cast<long>(exponent) - 398);
    return sign + text;
}

}  // namespace fuzz

#endif
