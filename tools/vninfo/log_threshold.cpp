#include "log_threshold.h"

#include <fcntl.h>
#include <unistd.h>
#include <vncommon/failure.h>
#include <vncommon/file_logger.h>

#include <cstdarg>

namespace vninfo {

namespace {

constexpr uint32_t nothing = 0;
constexpr uint32_t off = 1;
constexpr uint32_t critical = 3;
constexpr uint32_t trace = 9;

void logLine(FileLogger* logger, const char* variable, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FileLogger_DoLog_cat(logger, variable, level, format, arguments);
    va_end(arguments);
}

bool holdsText(int pipeEnd) {
    char byte;
    return read(pipeEnd, &byte, 1) == 1;
}

}  // namespace

uint32_t logThreshold(const char* variable) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return nothing;
    }
    FileLogger logger;
    FileLogger_init(&logger);
    FileLogger_SetFD(&logger, ends[1]);
    uint32_t level = trace;
    for (; level >= critical; --level) {
        logLine(&logger, variable, level, "%s", "?");
        if (holdsText(ends[0])) {
            break;
        }
    }
    FileLogger_cleanup(&logger);  // closes ends[1]; does not free the buffer
    vn_free(logger.buffer);
    close(ends[0]);
    return level >= critical ? level : off;
}

}  // namespace vninfo
