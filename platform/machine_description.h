// The descriptions of processor and distribution with the paths of their files as arguments, for
// tests.
#ifndef VN_PLATFORM_MACHINE_DESCRIPTION_H
#define VN_PLATFORM_MACHINE_DESCRIPTION_H

#include <atomic>

#include <vncommon/platform.h>

namespace vncommon {

// A new text from a file like /proc/cpuinfo. If the file cannot be opened: null, and a report on
// standard error.
char* describeCpu(const char* cpuinfoFile);

// A new text from the release files below root ("" for this machine); null if unknown.
char* describePlatform(const char* root);

// Caches found, or the constant unknown when found is null, and returns it. If another thread has
// already cached a text, frees found and returns that text.
const char* cacheText(std::atomic<const char*>& cache, char* found, const char* unknown);

}  // namespace vncommon

#endif
