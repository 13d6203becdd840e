#include "logging/quick_format.h"

#include <langinfo.h>

#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/assertion.h"
#include "text/numbers/digit_layout.h"
#include "text/numbers/scaled_digits.h"

namespace vncommon {
namespace {

struct Conversion {
    bool left = false;   // flag -
    bool zeros = false;  // flag 0
    int width = 0;
    int precision = -1;  // none given
    bool is64Bit = false;
    char type = '\0';
};

// Larger widths and precisions are left to vsnprintf, so that sums of them cannot overflow.
constexpr int largestNumber = 100'000;

int parseNumber(const char*& at) {
    int number = 0;
    while (*at >= '0' && *at <= '9' && number < largestNumber) {
        number = number * 10 + (*at++ - '0');
    }
    VN_ASSERT(number < 10 * largestNumber);
    return number;
}

bool parseLength(const char*& at) {
    const char* start = at;
    if (at[0] == 'l' && at[1] == 'l') {
        at += 2;
    } else if (*at == 'l' || *at == 'z' || *at == 'j' || *at == 't') {
        ++at;
    }
    return at != start;
}

// Parses a conversion after its '%', up to and including the type.
Conversion parseConversion(const char*& at) {
    Conversion conversion;
    for (; *at == '-' || *at == '0'; ++at) {
        (*at == '-' ? conversion.left : conversion.zeros) = true;
    }
    conversion.width = parseNumber(at);
    if (*at == '.') {
        ++at;
        conversion.precision = parseNumber(at);
    }
    conversion.is64Bit = parseLength(at);
    conversion.type = *at;
    if (*at != '\0') {
        ++at;
    }
    return conversion;
}

// Writes the message. Text that does not fit is not written; length() then returns -1.
class Output {
  public:
    Output(char* room, int size) : start_(room), end_(room), limit_(room + size) {}

    void put(std::string_view text) {
        if (char* to = reserve(text.size())) {
            memcpy(to, text.data(), text.size());
        }
    }
    void fill(char c, size_t count) {
        if (char* to = reserve(count)) {
            memset(to, c, count);
        }
    }
    int length() const { return fits_ ? static_cast<int>(end_ - start_) : -1; }

  private:
    char* reserve(size_t count) {
        VN_ASSERT(start_ <= end_ && end_ <= limit_);
        fits_ = fits_ && count <= static_cast<size_t>(limit_ - end_);
        char* to = end_;
        end_ += fits_ ? count : 0;
        return fits_ ? to : nullptr;
    }

    char* start_;
    char* end_;    // of the message so far
    char* limit_;  // of the room
    bool fits_ = true;
};

void putField(Output& out, const Conversion& conversion, std::string_view sign,
              std::string_view text) {
    const size_t length = sign.size() + text.size();
    const auto width = static_cast<size_t>(conversion.width);
    const size_t padding = width > length ? width - length : 0;
    const bool zeros = conversion.zeros && !conversion.left;
    if (!conversion.left && !zeros) {
        out.fill(' ', padding);
    }
    out.put(sign);
    if (zeros) {
        out.fill('0', padding);
    }
    out.put(text);
    if (conversion.left) {
        out.fill(' ', padding);
    }
}

bool putUnsigned(Output& out, const Conversion& conversion, std::string_view sign, uint64_t value) {
    if (conversion.precision >= 0) {
        return false;
    }
    char digits[20];
    const int base = conversion.type == 'x' ? 16 : 10;
    const char* end = std::to_chars(digits, std::end(digits), value, base).ptr;
    putField(out, conversion, sign, {digits, static_cast<size_t>(end - digits)});
    return true;
}

bool putSigned(Output& out, const Conversion& conversion, int64_t value) {
    const auto bits = static_cast<uint64_t>(value);
    return putUnsigned(out, conversion, value < 0 ? "-" : "", value < 0 ? 0 - bits : bits);
}

bool putString(Output& out, const Conversion& conversion, const char* text) {
    if (text == nullptr || conversion.zeros || conversion.is64Bit) {
        return false;
    }
    const size_t length = conversion.precision < 0
                              ? strlen(text)
                              : strnlen(text, static_cast<size_t>(conversion.precision));
    putField(out, conversion, "", {text, length});
    return true;
}

bool putCharacter(Output& out, const Conversion& conversion, int character) {
    if (conversion.zeros || conversion.is64Bit || conversion.precision >= 0) {
        return false;
    }
    const auto c = static_cast<char>(character);
    putField(out, conversion, "", {&c, 1});
    return true;
}

constexpr int mostPlaces = 9;

// printf uses the current rounding mode and the decimal point of the locale.
bool usesPointAndNearest() {
    return fegetround() == FE_TONEAREST && strcmp(nl_langinfo(RADIXCHAR), ".") == 0;
}

bool putDouble(Output& out, const Conversion& conversion, double value) {
    const int places = conversion.precision < 0 ? 6 : conversion.precision;
    if (conversion.is64Bit || places > mostPlaces || !usesPointAndNearest()) {
        return false;
    }
    char text[32];  // 22 bytes and the places
    Digits digits;
    if (!scaledDigits(value, places, text, digits)) {
        return false;
    }
    const char* end = layOutFixed(digits);
    VN_ASSERT(end > text && end <= std::end(text));
    putField(out, conversion, std::signbit(value) ? "-" : "",
             {text, static_cast<size_t>(end - text)});
    return true;
}

// Takes one argument and writes it. False if vsnprintf must do it.
bool putArgument(Output& out, const Conversion& conversion, va_list& arguments) {
    if (conversion.width >= largestNumber || conversion.precision >= largestNumber) {
        return false;
    }
    switch (conversion.type) {
        case 'd':
        case 'i':
            return putSigned(
                out, conversion,
                conversion.is64Bit ? va_arg(arguments, int64_t) : va_arg(arguments, int));
        case 'u':
        case 'x':
            return putUnsigned(
                out, conversion, "",
                conversion.is64Bit ? va_arg(arguments, uint64_t) : va_arg(arguments, unsigned));
        case 's':
            return putString(out, conversion, va_arg(arguments, const char*));
        case 'c':
            return putCharacter(out, conversion, va_arg(arguments, int));
        case 'f':
            return putDouble(out, conversion, va_arg(arguments, double));
        default:
            return false;
    }
}

bool putFormat(Output& out, const char* format, va_list& arguments) {
    const char* at = format;
    for (;;) {
        const char* percent = strchrnul(at, '%');
        out.put({at, static_cast<size_t>(percent - at)});
        if (*percent == '\0') {
            return true;
        }
        at = percent + 1;
        if (*at == '%') {
            out.put("%");
            ++at;
        } else if (!putArgument(out, parseConversion(at), arguments)) {
            return false;
        }
    }
}

}  // namespace

int quickFormat(char* room, int size, const char* format, va_list arguments) {
    VN_ASSERT(size >= 0 && format != nullptr);
    va_list copy;
    va_copy(copy, arguments);
    Output out(room, size);
    const bool done = putFormat(out, format, copy);
    va_end(copy);
    VN_ASSERT(out.length() <= size);
    return done ? out.length() : -1;
}

}  // namespace vncommon
