/* Writes one line of every kind that docs/log-line.md shows. */
#include <stdarg.h>
#include <stdlib.h>
#include <vncommon/file_logger.h>
#include <vncommon/log.h>

static FileLogger* logger;

static void logFor(const char* variable, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FileLogger_DoLog_cat(logger, variable, level, format, arguments);
    va_end(arguments);
}

int main(void) {
    logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, "stdout", 0, 1);
    FileLogger_SetLogLevel(logger, 9);
    FileLogger_LogForce(logger, "version 1.0.0");
    FileLogger_LogCrit(logger, "no feed at all");
    FileLogger_LogFatal(logger, "cannot go on");
    FileLogger_LogError(logger, "order %d refused", 17);
    FileLogger_LogWarn(logger, "feed is slow");
    FileLogger_LogInfo(logger, "up");
    FileLogger_LogDebug(logger, "a message with\nits own line feed");
    FileLogger_LogTrace(logger, "matching order %d", 18);

    FileLogger_SetLogLevel(logger, 7);
    setenv("ORDERS_LOG", "debug", 1);
    logFor("ORDERS_LOG", 8, "shown because ORDERS_LOG begins with d");
    setenv("ORDERS_LOG", "x", 1);
    logFor("ORDERS_LOG", 8, "not shown: x is no level, so the threshold is INFO");

    char* buffer = logger->buffer;
    FileLogger_dtor(logger);
    free(buffer);
    return 0;
}
