// Integer parsing, compared with 128-bit arithmetic; fixed-width hexadecimal, with snprintf.
#include <vncommon/strings.h>

#include <cerrno>

#include "fuzz/fuzz.h"

namespace {

__extension__ using Wide = __int128;

struct Parsed {
    int32_t error = EINVAL;
    uint64_t bits = 0;
    size_t end = 0;
};

// Returns the value of the digits at position, bounded to twice the range of 64 bits, and moves
// position to their end.
Wide readDigits(const std::string& text, size_t& position, int base) {
    Wide value = 0;
    for (; position < text.size(); ++position) {
        const auto c = static_cast<unsigned char>(text[position]);
        const int letter = (c | 0x20) - 'a';
        const int digit = c >= '0' && c <= '9'                                  ? c - '0'
                          : c < 0x80 && letter >= 0 && letter < 6 && base == 16 ? letter + 10
                                                                                : -1;
        if (digit < 0) {
            break;
        }
        value = std::min(value * base + digit, Wide{1} << 65);
    }
    return value;
}

Parsed parse(const std::string& text, bool isSigned) {
    size_t position = std::min(text.find_first_not_of(" \t"), text.size());
    const bool hasSign = text.substr(position, 1) == (isSigned ? "-" : "+");
    position += hasSign;
    const std::string prefix = text.substr(position, 2);
    const bool isHex = (prefix == "0x" || prefix == "0X") && !(isSigned && hasSign);
    position += isHex ? 2 : 0;
    const size_t start = position;
    const Wide value = readDigits(text, position, isHex ? 16 : 10);
    Wide largest = UINT64_MAX;
    if (isSigned && !isHex) {
        largest = Wide{INT64_MAX} + hasSign;
    }
    if (position == start) {
        return {EINVAL, 0, 0};
    }
    if (value > largest) {
        return {ERANGE, 0, 0};
    }
    const bool negate = isSigned && hasSign;
    return {0, static_cast<uint64_t>(negate ? -value : value), position};
}

template <typename Number>
void check(Number (*parser)(const char*, const char**, int32_t*), const char* text,
           const Parsed& expected) {
    const char* end = nullptr;
    int32_t error = -1;
    const Number value = parser(text, &end, &error);
    FUZZ_REQUIRE(static_cast<uint64_t>(value) == expected.bits);
    FUZZ_REQUIRE(error == expected.error);
    FUZZ_REQUIRE(end == (expected.error == 0 ? text + expected.end : nullptr));
    FUZZ_REQUIRE(parser(text, nullptr, nullptr) == value);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).terminatedRest();
    const fuzz::ExactText exact(text);
    check(vn_char8ToInt64, exact.get(), parse(text, true));
    check(vn_char8ToUInt64, exact.get(), parse(text, false));

    const auto number = static_cast<uint32_t>(fuzz::Input(data, size).word());
    char expected[9];
    snprintf(expected, sizeof expected, "%08x", number);
    const std::unique_ptr<char[]> output(new char[sizeof expected]);
    FUZZ_REQUIRE(vn_uint32ToFixedHexChar8(output.get(), number) == output.get());
    FUZZ_REQUIRE(memcmp(output.get(), expected, sizeof expected) == 0);
    return 0;
}
