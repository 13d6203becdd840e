// A fast printf for the formats that are common in log lines.
#ifndef VN_LOGGING_QUICK_FORMAT_H
#define VN_LOGGING_QUICK_FORMAT_H

#include <cstdarg>

namespace vncommon {

// Writes the same text as vsnprintf, without a terminator, and returns its length. Returns -1 for
// any other conversion than those below, or if the room is too small; the contents of the room are
// then undefined, and the caller uses vsnprintf.
//
//     %%  %c  %s  %d %i %u %x (also with l, ll, z, j, t)  %f
//
// with the flags - and 0, a width, and a precision for %s and (up to 9) for %f. Both must be
// numbers, not *. The value for %f must be in the range of scaleExactly (exact_scaling.h).
int quickFormat(char* room, int size, const char* format, va_list arguments);

}  // namespace vncommon

#endif
