// The general paths of the formatters: netlib's digits, laid out.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "text/conversion.h"

namespace vncommon {

namespace {

// Writes until the buffer is full. Text that fills it leaves no room for the terminator and has
// not fitted; what was written stays.
class Output {
  public:
    Output(char* buffer, unsigned size) : buffer_(buffer), size_(size) {}

    void put(char c) {
        if (length_ < size_) {
            buffer_[length_++] = c;
        }
    }
    void put(const char* text, int count) {
        const unsigned fitting = std::min(static_cast<unsigned>(count), size_ - length_);
        memcpy(buffer_ + length_, text, fitting);
        length_ += fitting;
    }
    void putZeros(int count) {
        const unsigned fitting =
            std::min(static_cast<unsigned>(std::max(count, 0)), size_ - length_);
        memset(buffer_ + length_, '0', fitting);
        length_ += fitting;
    }
    char* finish() {
        if (length_ >= size_) {
            return nullptr;
        }
        buffer_[length_] = '\0';
        return buffer_;
    }

  private:
    char* buffer_;
    unsigned size_;
    unsigned length_ = 0;
};

// The longest shortest form, "-1.7976931348623157e+308", with its terminator.
constexpr unsigned shortestSize = 25;

// "e", the sign, two or three digits.
void putExponent(Output& out, int exponent) {
    const int magnitude = std::abs(exponent);
    out.put('e');
    out.put(exponent < 0 ? '-' : '+');
    if (magnitude >= 100) {
        out.put(static_cast<char>('0' + magnitude / 100));
    }
    out.put(static_cast<char>('0' + magnitude / 10 % 10));
    out.put(static_cast<char>('0' + magnitude % 10));
}

// The first digit, and the others behind a point.
void putPointed(Output& out, const Digits& digits) {
    out.put(digits.text[0]);
    if (digits.length > 1) {
        out.put('.');
        out.put(digits.text + 1, digits.length - 1);
    }
}

// Digits of a value of 1 and more, with zeros up to the point's place; the point only if digits
// follow it. Gives their number.
int putAroundPoint(Output& out, const Digits& digits) {
    const int before = std::min(digits.length, digits.point);
    const int after = digits.length - before;
    out.put(digits.text, before);
    out.putZeros(digits.point - before);
    if (after > 0) {
        out.put('.');
        out.put(digits.text + before, after);
    }
    return after;
}

// The sign, and all of an infinity: true when that was all.
bool putSignOrInfinity(Output& out, const Digits& digits) {
    if (digits.negative) {
        out.put('-');
    }
    const bool isInfinity = digits.point == infinityPoint;
    if (isInfinity) {
        out.put(digits.text, digits.length);
    }
    return isInfinity;
}

char* putNan(char* buffer, unsigned size) {
    return size < sizeof "NaN" ? nullptr : static_cast<char*>(memcpy(buffer, "NaN", sizeof "NaN"));
}

// Zero has a layout of its own: no sign, and a point even where no digit follows it.
char* layOutScientificZero(char* buffer, unsigned size, int precision) {
    Output out(buffer, size);
    out.put("0.", 2);
    if (static_cast<unsigned>(precision) + 5 >= size) {
        return nullptr;
    }
    out.putZeros(precision - 1);
    putExponent(out, 0);
    return out.finish();
}

}  // namespace

char* layOutShortest(char* buffer, double x) {
    if (std::isnan(x)) {
        return putNan(buffer, shortestSize);
    }
    char area[digitAreaSize];
    const Digits digits = convertToDigits(x, DigitMode::shortest, 0, area);
    Output out(buffer, shortestSize);
    if (putSignOrInfinity(out, digits)) {
        return out.finish();
    }
    if (digits.point < -3 || digits.point > digits.length + 5) {
        putPointed(out, digits);
        putExponent(out, digits.point - 1);
    } else if (digits.point <= 0) {
        out.put('.');
        out.putZeros(-digits.point);
        out.put(digits.text, digits.length);
    } else {
        putAroundPoint(out, digits);
    }
    return out.finish();
}

char* layOutFixed(char* buffer, unsigned size, int precision, double x) {
    if (size < 2) {
        return nullptr;
    }
    if (std::isnan(x)) {
        return putNan(buffer, size);
    }
    precision = std::min(precision, largestPrecision);
    char area[digitAreaSize];
    const Digits digits = convertToDigits(x, DigitMode::places, precision, area);
    Output out(buffer, size);
    if (putSignOrInfinity(out, digits)) {
        return out.finish();
    }
    int places = 0;
    if (digits.point <= 0) {
        out.put('0');
        if (precision == 0) {
            return out.finish();
        }
        out.put('.');
        out.putZeros(-digits.point);
        out.put(digits.text, digits.length);
        places = digits.length - digits.point;
    } else {
        places = putAroundPoint(out, digits);
        if (places == 0 && precision > 0) {
            out.put('.');
        }
    }
    out.putZeros(precision - places);
    return out.finish();
}

char* layOutScientific(char* buffer, unsigned size, int precision, double x) {
    if (size < 2) {
        return nullptr;
    }
    if (std::isnan(x)) {
        return putNan(buffer, size);
    }
    precision = std::clamp(precision, 1, largestPrecision);  // less than 1 counts as 1
    if (x == 0) {
        return layOutScientificZero(buffer, size, precision);
    }
    char area[digitAreaSize];
    const Digits digits = convertToDigits(x, DigitMode::significant, precision, area);
    Output out(buffer, size);
    if (putSignOrInfinity(out, digits)) {
        return out.finish();
    }
    putPointed(out, digits);
    if (digits.length == 1 && precision >= 2) {
        out.put('.');
    }
    out.putZeros(precision - digits.length);
    putExponent(out, digits.point - 1);
    return out.finish();
}

}  // namespace vncommon
