// The powers of ten that fit in an unsigned 64-bit integer. Those up to 10^22 are exact in a
// double.
#ifndef VN_TEXT_NUMBERS_POWERS_OF_TEN_H
#define VN_TEXT_NUMBERS_POWERS_OF_TEN_H

#include <array>
#include <cstdint>

namespace vncommon {

inline constexpr std::array<uint64_t, 19> powersOfTen = [] {
    std::array<uint64_t, 19> powers{1};
    for (size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

}  // namespace vncommon

#endif
