// The process helpers with their fixed inputs (a system file, the clock, the user) as arguments,
// so that tests can pass other ones.
#ifndef VN_PLATFORM_PROCESS_SOURCES_H
#define VN_PLATFORM_PROCESS_SOURCES_H

#include <sys/types.h>

#include <vncommon/process.h>

namespace vncommon {

// The name of a user, read into a record of recordSize bytes (-1: the size is not known).
char* userName(long recordSize, uid_t user);

constexpr int maximumTraceFrames = 64;

// How many of the collected frames are printed. Compat: not the last one before a null; callers
// count the lines. Without a null all 64 are printed.
int printedTraceFrames(void* const (&frames)[maximumTraceFrames]);

// vn_get_os_statistics with the path of its file.
int swapRates(const char* vmstatPath, double* swapInRate, double* swapOutRate);

// vn_timeStampGet at a given time.
const char* timeStampAt(vn_TimeStampCache* cache, int64_t second, unsigned milliseconds);

}  // namespace vncommon

#endif
