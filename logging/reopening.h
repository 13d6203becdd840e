// Plans: everything that opening a logger's destination needs, made before it is needed.
//
// A signal handler may not copy or convert names, allocate or use stdio. So whoever chooses a
// destination makes a plan for it, and following the plan only opens, duplicates and closes
// descriptors and swaps pointers. What is swapped out stays in the plan and is released with it.
// FileLogger_SetFilename and the SIGHUP handler follow plans with the same code.
#ifndef VN_LOGGING_REOPENING_H
#define VN_LOGGING_REOPENING_H

#include <vncommon/file_logger.h>

#include "logging/registry.h"

namespace vncommon {

constexpr char standardErrorName[] = "stderr";
constexpr char standardOutputName[] = "stdout";

// 2 or 1 for the two names above; -1 for any other, which is a file's.
int standardStream(const char* name);

struct ReopenPlan {
    int stream;              // the standard stream to use, or -1 to open path
    char* path;              // in the locale's code page
    char* nextFileName;      // what the file name becomes by a reopening; afterwards the one before
    bool renames;            // only if that is another one
    char* fallBackNames[2];  // both names after a failure; afterwards the ones before
    int leftDescriptor;      // kept open after a failure, see fallBack(); -1 for none
    char* report;            // "Unable to open logfile \"%s\": ", with room for the error's text
    size_t reportLength;
};

// The plan for a logger with these names: the one that it has until it is reopened, and the UTF-8
// one. Ends the process when there is no memory.
ReopenPlan* makeReopenPlan(const char* fileName, const char* utf8FileName);

// Releases a plan, null included. Not in a signal handler.
void destroyReopenPlan(ReopenPlan* plan);

// Closes what a failure left open, where no line can be on its way to it any more.
void closeLeftDescriptor(ReopenPlan* plan);

// What an open() gave: a descriptor, or -1 and the errno value.
struct Opened {
    int descriptor;
    int error;
};

// Moves the logger to the plan's destination: to its standard stream, to the descriptor that was
// opened for it, or, if that failed, to standard error with this openFailure. Async-signal-safe.
void followPlan(FileLogger* logger, ReopenPlan* plan, Opened opened, int openFailure)
    VN_REQUIRES(loggerMutex);

// What FileLogger_ReOpen does, for the handler. Async-signal-safe; changes errno.
void reopen(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
