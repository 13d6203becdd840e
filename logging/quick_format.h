// printf for the formats that log lines are made of.
#ifndef VN_LOGGING_QUICK_FORMAT_H
#define VN_LOGGING_QUICK_FORMAT_H

#include <cstdarg>

namespace vncommon {

// Writes what vsnprintf would write, without a terminator, and returns its length; or -1, with the
// room's contents undefined, for anything but the conversions below or when the room is too small.
// The caller then asks vsnprintf, which has the last word on everything unusual.
//
//     %%  %c  %s  %d %i %u %x (also with l, ll, z, j, t)  %f
//
// with the flags - and 0, a width, and a precision of %s and (up to 9) of %f; numbers for both,
// no *. A %f must lie in the range where its decimal digits come out of one exact 128-bit product.
int quickFormat(char* room, int size, const char* format, va_list arguments);

}  // namespace vncommon

#endif
