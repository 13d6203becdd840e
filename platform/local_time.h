// The date and time at the start of log lines and time stamps.
#ifndef VN_PLATFORM_LOCAL_TIME_H
#define VN_PLATFORM_LOCAL_TIME_H

#include <cstddef>
#include <ctime>

namespace vncommon {

constexpr int secondLength = 20;  // of "YYYY-MM-DD hh:mm:ss."

// Writes "YYYY-MM-DD hh:mm:ss." in local time; returns its length, as snprintf() does. Works in
// the child of fork(), whatever the threads of the parent were doing.
int formatSecond(time_t second, char* to, size_t size);

}  // namespace vncommon

#endif
