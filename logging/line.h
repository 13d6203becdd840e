// What the front end shares with the logger objects on the way of a line.
#ifndef VN_LOGGING_LINE_H
#define VN_LOGGING_LINE_H

#include <cstdarg>

#include <vncommon/file_logger.h>

#include "logging/shared_field.h"

namespace vncommon {

// The threshold test: without a lock, so a line that is not written costs this comparison.
inline bool isWritten(const FileLogger* logger, uint32_t level) {
    return loadField(logger->level) >= level;
}

// Writes a line that has passed the test.
void writeLine(FileLogger* logger, uint32_t level, const char* format, va_list arguments);

}  // namespace vncommon

#endif
