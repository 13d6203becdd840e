// The date and time that log lines and time stamps start with.
#ifndef VN_PLATFORM_LOCAL_TIME_H
#define VN_PLATFORM_LOCAL_TIME_H

#include <cstddef>
#include <ctime>

namespace vncommon {

// "YYYY-MM-DD hh:mm:ss." in local time; gives its length, as snprintf() does.
//
// A child of fork() may call it whatever the library's other threads were doing: glibc leaves the
// lock of localtime_r() locked for ever in a child that was forked while another thread held it,
// so ours is held around it and over every fork.
int formatSecond(time_t second, char* to, size_t size);

}  // namespace vncommon

#endif
