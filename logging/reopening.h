// Plans: everything needed to open a logger's destination, prepared in advance.
//
// A signal handler must not copy or convert names, allocate or use stdio. So every change of the
// destination prepares a plan. Following a plan only opens, duplicates and closes descriptors and
// swaps pointers. The pointers that are swapped out stay in the plan and are released with it.
// FileLogger_SetFilename and the SIGHUP handler follow plans with the same code.
#ifndef VN_LOGGING_REOPENING_H
#define VN_LOGGING_REOPENING_H

#include <vncommon/file_logger.h>

#include "logging/log_file.h"
#include "logging/registry.h"
#include "platform/alive_mark.h"

namespace vncommon {

constexpr char standardErrorName[] = "stderr";
constexpr char standardOutputName[] = "stdout";

// 2 or 1 for the two names above; -1 for any other name, which names a file.
int standardStream(const char* name);

struct ReopenPlan {
    int stream;               // the standard stream to use, or -1 to open path
    char* path;               // in the locale's code page
    char* nextFileName;       // the file name after a reopening; then the previous one
    bool renames;             // whether nextFileName differs and is still to be used
    char* fallBackNames[2];   // both names after a failure; then the previous ones
    int duplicateDescriptor;  // kept open after a failure, see fallBack(); -1 for none
    char* report;             // "Unable to open logfile \"%s\": ", with room for the error's text
    size_t reportLength;
    [[no_unique_address]] AliveMark mark{};
};

// The invariant of a plan, for assertions.
bool isValid(const ReopenPlan* plan);

// The plan for a logger with these names: the name until it is reopened, and the name in UTF-8.
// Ends the process when there is no memory.
ReopenPlan* makeReopenPlan(const char* fileName, const char* utf8FileName);

// Releases a plan; null is allowed. Must not be called in a signal handler.
void destroyReopenPlan(ReopenPlan* plan);

// Closes the descriptor that a failure left open. No thread may still be writing to it.
void closeDuplicate(ReopenPlan* plan);

// Moves the logger to the plan's destination: to its standard stream (nothingToOpen), to the
// descriptor that was opened for it, or, if that failed, to standard error with this openFailure.
// Async-signal-safe.
void followPlan(FileLogger* logger, ReopenPlan* plan, OpenResult opened, int openFailure)
    VN_REQUIRES(loggerMutex);

// FileLogger_ReOpen for the SIGHUP handler. Async-signal-safe; changes errno.
void reopen(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
