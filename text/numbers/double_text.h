// vn_g_fmt for callers inside the library, which continue to write at the end of the text.
#ifndef VN_TEXT_NUMBERS_DOUBLE_TEXT_H
#define VN_TEXT_NUMBERS_DOUBLE_TEXT_H

#include <vncommon/numbers.h>

namespace vncommon {

// Writes the text of vn_g_fmt for any x, terminated, and returns its end.
char* writeShortest(char* buffer, double x);

}  // namespace vncommon

#endif
