// The descriptor that a logger writes to: how it is opened, whose it is, how another takes its
// place. Everything here is async-signal-safe; errno changes.
#ifndef VN_LOGGING_LOG_FILE_H
#define VN_LOGGING_LOG_FILE_H

#include <vncommon/file_logger.h>

#include "logging/registry.h"

namespace vncommon {

// Opens a file for appending, creates it if need be, tries again when a signal interrupts it.
// The descriptor is closed on exec() until it becomes a logger's; flags are further ones. -1 with
// errno on failure.
int openLogFile(const char* path, int flags);

// 1 or 0, as vn_isConsole().
int isTerminal(int descriptor);

// Whether the logger opened the descriptor that it writes to and so has to close it.
bool ownsDescriptor(const FileLogger* logger);

// Makes a descriptor of openLogFile() the logger's. One that the logger owns is replaced under its
// number, so that a line written at this moment goes to the old file or to the new one and never
// to a closed descriptor. Compat: programs that the process starts inherit the log.
void adoptDescriptor(FileLogger* logger, int opened) VN_REQUIRES(loggerMutex);

// After an open() that failed with the given errno value because no descriptor was free: makes
// room by closing the logger's own file. Lines go to standard error meanwhile. False when there
// is nothing to close or the error is another one.
bool makeRoomForDescriptor(FileLogger* logger, int error) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
