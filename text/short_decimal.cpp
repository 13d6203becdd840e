// Why it is right: n / 1e6 with n below 2^53 is rounded once, so it is the double nearest to the
// decimal of six places; if that is x, the decimal reads back to x. No other decimal of at most 15
// digits is nearest to the same double, so this one, without the zeros at its end, is the shortest.
// The doubles around an integer below 2^53 are 1 away or nearer, and a shorter text than its own
// would be another integer.
#include "text/short_decimal.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr uint32_t million = 1'000'000;

constexpr std::array<char, 200> digitPairs = [] {
    std::array<char, 200> pairs{};
    for (size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

void writePair(char* at, uint32_t value) {
    memcpy(at, &digitPairs[size_t{2} * value], 2);
}

// The point and the places without the zeros at their end; there is a place other than zero.
char* writePlaces(char* at, uint32_t millionths) {
    *at++ = '.';
    writePair(at, millionths / 10000);
    writePair(at + 2, millionths / 100 % 100);
    writePair(at + 4, millionths % 100);
    at += 6;
    while (at[-1] == '0') {
        --at;
    }
    return at;
}

char* writeWhole(char* at, bool negative, uint64_t whole) {
    if (negative) {
        *at++ = '-';
    }
    return whole == 0 ? at : std::to_chars(at, at + 20, whole).ptr;
}

}  // namespace

char* vncommon::writeShortDecimal(char* buffer, double x) {
    const double magnitude = std::fabs(x);
    if (!(magnitude >= 1e-4 && magnitude < 0x1p53)) {
        return nullptr;
    }
    const auto integer = static_cast<uint64_t>(magnitude);
    if (static_cast<double>(integer) == magnitude) {
        // Six zeros at the end have an exponent.
        return integer % million == 0 ? nullptr : writeWhole(buffer, std::signbit(x), integer);
    }
    if (magnitude >= 1e9) {
        return nullptr;
    }
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): a wrong one does not give the number back
    const auto scaled = static_cast<uint64_t>(magnitude * million + 0.5);
    if (static_cast<double>(scaled) / million != magnitude) {
        return nullptr;
    }
    char* at = writeWhole(buffer, std::signbit(x), integer);
    return writePlaces(at, static_cast<uint32_t>(scaled % million));
}
