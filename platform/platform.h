// The descriptions of processor and distribution with the places they are read from as arguments.
#ifndef VN_PLATFORM_PLATFORM_H
#define VN_PLATFORM_PLATFORM_H

#include <atomic>

#include <vncommon/platform.h>

namespace vncommon {

// A new text from a file like /proc/cpuinfo; null (and a report) if it cannot be opened.
char* describeCpu(const char* cpuinfoFile);

// A new text from the release files below root ("" for the machine's own); null if unknown.
char* describePlatform(const char* root);

// Keeps the text that came first, found or the constant unknown when found is null, and returns
// it. A found text that came late is freed.
const char* remember(std::atomic<const char*>& cache, char* found, const char* unknown);

}  // namespace vncommon

#endif
