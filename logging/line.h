// Writing a line: used by the logger of the process (log.cpp) and by logger objects (line.cpp).
#ifndef VN_LOGGING_LINE_H
#define VN_LOGGING_LINE_H

#include <cstdarg>

#include <vncommon/file_logger.h>

#include "logging/shared_field.h"

namespace vncommon {

// The threshold test. It takes no lock, so a line that is not written costs only this comparison.
inline bool isWritten(const FileLogger* logger, uint32_t level) {
    return loadField(logger->level) >= level;
}

// Writes a line that has passed the test.
void writeLine(FileLogger* logger, uint32_t level, const char* format, va_list arguments);

}  // namespace vncommon

#endif
