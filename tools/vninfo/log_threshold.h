#ifndef VNINFO_LOG_THRESHOLD_H
#define VNINFO_LOG_THRESHOLD_H

#include <cstdint>

namespace vninfo {

// The least severe level that a logger with the default threshold writes, when its caller names
// this environment variable. Logs a line at each level to find it; 0 when that fails.
uint32_t logThreshold(const char* variable);

}  // namespace vninfo

#endif
