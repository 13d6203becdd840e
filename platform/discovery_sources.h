// The discovery functions with the paths of their files as arguments, for tests.
#ifndef VN_PLATFORM_DISCOVERY_SOURCES_H
#define VN_PLATFORM_DISCOVERY_SOURCES_H

#include <atomic>

#include <vncommon/discovery.h>

namespace vncommon {

constexpr int unknownCpus = -1;

// vn_getPhysicalCPUs; cache is unknownCpus until the count is known.
int physicalCpus(std::atomic<int>& cache, const char* cpuinfoFile);

double vmSize(const char* statusFile);
double residentSetSize(const char* statmFile);

}  // namespace vncommon

#endif
