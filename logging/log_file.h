// The descriptor that a logger writes to: opening, ownership and replacement. Everything here is
// async-signal-safe and may change errno.
#ifndef VN_LOGGING_LOG_FILE_H
#define VN_LOGGING_LOG_FILE_H

#include <vncommon/file_logger.h>

#include "logging/registry.h"

namespace vncommon {

// The result of an open(): a descriptor and no error, or -1 and the errno value.
struct OpenResult {
    int descriptor;
    int error;
};

constexpr OpenResult nothingToOpen = {-1, 0};

// Opens a file for appending; creates it if necessary; retries after EINTR. flags are additional
// open() flags. The descriptor has FD_CLOEXEC until adoptDescriptor().
OpenResult openLogFile(const char* path, int flags);

// 1 or 0, as vn_isConsole().
int isTerminal(int descriptor);

// Whether the logger opened its descriptor and must therefore close it.
bool ownsDescriptor(const FileLogger* logger);

// Gives a descriptor from openLogFile() to the logger. A descriptor that the logger owns keeps its
// number, so that a line written at this moment goes to the old or the new file, never to a closed
// descriptor.
// Compat: programs that the process starts inherit the descriptor of the log.
void adoptDescriptor(FileLogger* logger, int opened) VN_REQUIRES(loggerMutex);

// If an open() failed with this errno value because no descriptor was free, closes the logger's own
// file to free one; lines go to standard error until the next open. Returns false if there is
// nothing to close or the error is a different one.
bool makeRoomForDescriptor(FileLogger* logger, int error) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
