// A second, slow implementation of the formatters: takes netlib's digits and lays them out with
// strings, independently of the library.
#ifndef VN_TESTS_TEXT_NUMBERS_NUMBERS_REFERENCE_H
#define VN_TESTS_TEXT_NUMBERS_NUMBERS_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "text/numbers/netlib_conversion.h"

namespace reference {

using vncommon::DigitMode;

struct Decimal {
    std::string digits;
    int point;
};

inline Decimal convert(double x, DigitMode mode, int precision) {
    vncommon::DigitArea area;
    const vncommon::Digits digits = vncommon::convertToDigits(x, mode, precision, area);
    return {std::string(digits.text, static_cast<size_t>(digits.length)), digits.point};
}

inline std::string zeros(int count) {
    return std::string(static_cast<size_t>(std::max(count, 0)), '0');
}

inline std::string exponent(int value) {
    char text[16];
    snprintf(text, sizeof text, "e%+03d", value);
    return text;
}

// The digits with the point among them, or with zeros between the digits and the point.
inline std::string aroundPoint(const Decimal& decimal) {
    const auto length = static_cast<int>(decimal.digits.size());
    if (decimal.point >= length) {
        return decimal.digits + zeros(decimal.point - length);
    }
    const auto before = static_cast<size_t>(decimal.point);
    return decimal.digits.substr(0, before) + "." + decimal.digits.substr(before);
}

inline std::string withSign(double x, const std::string& text) {
    return (std::signbit(x) ? "-" : "") + text;
}

inline std::string named(double x) {
    return std::isnan(x) ? "NaN" : withSign(x, "Infinity");
}

inline std::string shortestText(double x) {
    if (!std::isfinite(x)) {
        return named(x);
    }
    const Decimal decimal = convert(x, DigitMode::shortest, 0);
    if (decimal.point < -3 || decimal.point > static_cast<int>(decimal.digits.size()) + 5) {
        return withSign(x, aroundPoint({decimal.digits, 1}) + exponent(decimal.point - 1));
    }
    return withSign(
        x, decimal.point > 0 ? aroundPoint(decimal) : "." + zeros(-decimal.point) + decimal.digits);
}

inline std::string fixedText(int precision, double x) {
    const Decimal decimal = convert(x, DigitMode::places, precision);
    std::string text;
    if (decimal.point > 0) {
        text = aroundPoint(decimal);
    } else if (precision == 0) {
        text = "0";
    } else {
        text = "0." + zeros(-decimal.point) + decimal.digits;
    }
    size_t point = text.find('.');
    if (point == std::string::npos && precision > 0) {
        point = text.size();
        text += ".";
    }
    if (precision > 0) {
        text += zeros(precision - static_cast<int>(text.size() - point - 1));
    }
    return withSign(x, text);
}

inline std::string scientificText(int count, double x) {
    const Decimal decimal = convert(x, DigitMode::significant, count);
    std::string text = decimal.digits + zeros(count - static_cast<int>(decimal.digits.size()));
    if (text.size() > 1) {
        text.insert(1, ".");
    }
    return withSign(x, text + exponent(decimal.point - 1));
}

// If the text does not fit, the buffer gets its first characters, and the result is null.
inline char* put(char* buffer, unsigned size, const std::string& text) {
    memcpy(buffer, text.c_str(), std::min<size_t>(text.size() + 1, size));
    return text.size() < size ? buffer : nullptr;
}

inline char* shortest(char* buffer, double x) {
    return put(buffer, 25, shortestText(x));
}

inline char* fixed(char* buffer, unsigned size, int precision, double x) {
    if (size < 2 || (std::isnan(x) && size < 4)) {
        return nullptr;
    }
    precision = std::min(precision, vncommon::largestPrecision);
    return put(buffer, size, std::isfinite(x) ? fixedText(precision, x) : named(x));
}

inline char* scientific(char* buffer, unsigned size, int precision, double x) {
    if (size < 2 || (std::isnan(x) && size < 4)) {
        return nullptr;
    }
    const int count = std::clamp(precision, 1, vncommon::largestPrecision);
    if (x == 0) {  // if it does not fit, only its first two characters are written
        const std::string text = "0." + zeros(count - 1) + "e+00";
        return put(buffer, text.size() < size ? size : 2, text);
    }
    return put(buffer, size, std::isfinite(x) ? scientificText(count, x) : named(x));
}

}  // namespace reference

#endif
