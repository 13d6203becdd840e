// Reopening a log file from inside a signal handler.
//
// FileLogger_ReOpen copies and converts names, allocates, and prints through stdio; a handler may
// do none of that. So whoever gives a logger a destination also makes a plan that holds all that
// a later reopening needs, and reopen() then only opens, duplicates and closes descriptors and
// swaps pointers. What it swaps out stays in the plan, and is released with it.
#ifndef VN_LOGGING_REOPENING_H
#define VN_LOGGING_REOPENING_H

#include <sys/types.h>

#include <vncommon/file_logger.h>

#include "logging/registry_lock.h"

namespace vncommon {

constexpr char standardErrorName[] = "stderr";
constexpr char standardOutputName[] = "stdout";
constexpr mode_t logFileMode = 0644;
// Not O_CLOEXEC: programs that the process starts inherit its log, as they always have.
extern const int logFileFlags;

// 2 or 1 for the two names above; -1 for any other, which is a file's.
int standardStream(const char* name);

struct ReopenPlan;  // its contents are the business of reopening.cpp

// The plan for a logger whose destination has these names: the one that it will have as file
// name until it is reopened, and the UTF-8 one. Null for null names: nothing to reopen.
ReopenPlan* makeReopenPlan(const char* fileName, const char* utf8FileName);

// Releases a plan, null included, and what its reopening swapped out.
void destroyReopenPlan(ReopenPlan* plan);

// Does to the logger what FileLogger_ReOpen does. Async-signal-safe; changes errno.
void reopen(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

// Whether the logger has opened the descriptor that it writes to, and so has to close it.
bool ownsDescriptor(const FileLogger* logger);

// Makes a descriptor that has just been opened the logger's. A descriptor that the logger owns is
// replaced under its number, so that a line written at this moment goes to the old file or to the
// new one and never into the void. Async-signal-safe.
void adoptDescriptor(FileLogger* logger, int opened) VN_REQUIRES(loggerMutex);

// When open() failed because no descriptor number was free: makes room by closing the logger's
// file, with lines going to standard error meanwhile. False when there is nothing to close or the
// error, the errno value given, is another one. Async-signal-safe.
bool makeRoomForDescriptor(FileLogger* logger, int error) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
