// The inverse of vn_dec_to_string, for callers inside the library.
#ifndef VN_TEXT_NUMBERS_DECIMAL_TEXT_H
#define VN_TEXT_NUMBERS_DECIMAL_TEXT_H

#include <cstdint>

namespace vncommon {

// The decimal value that the text names, in the BID encoding; a NaN if it names none. Keeps the
// exponent of the text: +150E-2 is not +15E-1. Rounds more than 16 digits.
uint64_t readDecimal(const char* text);

}  // namespace vncommon

#endif
