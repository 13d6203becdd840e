// Loggers and the process's logger.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>

#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

const std::string longText(3000, 'l');

bool holds(const std::string& file, const std::string& text) {
    return readFile(file).find(text) != std::string::npos;
}

// Whether the logger writes to the file, according to its name.
bool writesTo(const FileLogger* logger, const std::string& file) {
    return equal(FileLogger_GetFileName(logger), file.c_str());
}

void endLogger(FileLogger* logger) {
    char* buffer = logger->buffer;
    inject([&] { FileLogger_dtor(logger); });
    vn_free(buffer);
}

// Existing files are never truncated, and the logger's lines go to the file of its name.
void rotate() {
    const std::string first = writeFile("first.log", "before\n");
    const std::string second = writeFile("second.log", "before\n");
    FileLogger* logger = inject(FileLogger_ctor);
    const bool handlerInstalled = !failed("sigaction");
    inject([&] { FileLogger_SetFilename(logger, first.c_str(), 0, 1); });
    const bool opened = writesTo(logger, first);
    CHECK(opened || (failed() && equal(FileLogger_GetFileName(logger), "stderr")));
    inject([&] { FileLogger_LogInfo(logger, "line one"); });
    CHECK(holds(first, "line one\n") == opened || failed("write") || failed("vsnprintf"));

    inject([&] { FileLogger_ReOpen(logger); });
    inject([&] { FileLogger_LogInfo(logger, "line two"); });
    CHECK(holds(first, "line two\n") == writesTo(logger, first) || failed());

    inject([&] { FileLogger_SetFilename(logger, second.c_str(), 0, 0); });
    const bool moved = writesTo(logger, second);
    CHECK(moved || failed());
    CHECK(FileLogger_GetUTF8FileName(logger) != nullptr);  // otherwise it would never be reopened
    FileLogger_LogInfo(logger, "line three");
    CHECK(holds(second, "line three\n") == moved);
    CHECK(!holds(first, "line three\n"));

    if (handlerInstalled) {
        CHECK(rename(second.c_str(), (second + ".old").c_str()) == 0);
        inject([] { raise(SIGHUP); });
    }
    const bool reopened = writesTo(logger, second);
    FileLogger_LogInfo(logger, "line four");
    CHECK(holds(second, "line four\n") == reopened || everFailed());
    CHECK(readFile(first).rfind("before\n", 0) == 0);
    CHECK(readFile(second + (handlerInstalled ? ".old" : "")).rfind("before\n", 0) == 0);
    endLogger(logger);
}

// After its setup a logger writes lines even if every allocation fails.
void writeLines() {
    const std::string file = folder() + "/lines.log";
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, file.c_str(), 0, 1);
    inject([&] { FileLogger_LogWarn(logger, "%s", "short"); });
    const std::string written = readFile(file);
    CHECK(holds(file, " - short\n") || failed("write") ||
          (failed("vsnprintf") && holds(file, " - %s\n")));
    inject([&] { FileLogger_LogWarn(logger, "%s", longText.c_str()); });
    const std::string longLine = readFile(file).substr(written.size());
    const bool whole = longLine.find(longText + "\n") != std::string::npos;
    CHECK(failed() || whole);
    // The line is truncated to the available room. glibc 2.41: strerror_r also allocates, so the
    // failed malloc need not be the line's.
    if (!whole && failed("malloc") && !failed("write")) {
        CHECK(longLine.size() > 1000 && longLine.size() < 1024 && longLine.back() == '\n');
    }
    inject([&] { FileLogger_SetLogLevel(logger, 3); });
    inject([&] { FileLogger_LogWarn(logger, "not written"); });
    CHECK(!holds(file, "not written"));
    endLogger(logger);
}

void writeToDescriptor() {
    const std::string file = writeFile("given.log", "before\n");
    const int fd = open(file.c_str(), O_WRONLY | O_APPEND);
    FileLogger* logger = FileLogger_ctor();
    inject([&] { FileLogger_SetFD(logger, fd); });
    CHECK(FileLogger_GetFileName(logger) == nullptr);
    inject([&] { FileLogger_LogInfo(logger, "line"); });
    CHECK(holds(file, "line\n") || failed());
    CHECK(inject(FileLogger_reinstallSignalHandler) == (failed("sigaction") ? -1 : 0));
    endLogger(logger);
}

// The process's logger cannot be destroyed; at the end it writes to standard error again.
void useProcessLogger() {
    const std::string file = writeFile("process.log", "before\n");
    inject([&] { VN_LogSetup(7, file.c_str(), 0, 1); });
    const bool opened = equal(VN_GetLogFileName(), file.c_str());
    CHECK(opened || failed());
    inject([] { VN_LogInfo("line %d", 1); });
    CHECK(holds(file, "line 1\n") == opened || failed());
    inject([] { VN_LogReOpen(); });
    VN_LogInfo("line 2");
    CHECK(holds(file, "line 2\n") == equal(VN_GetLogFileName(), file.c_str()));
    inject([] { VN_LogSetLevel(3); });
    inject([] { VN_LogSetFilename("stderr", 0, 1); });
    CHECK(VN_GetLogFD() == 2);
    CHECK(readFile(file).rfind("before\n", 0) == 0);
}

}  // namespace

void makeProcessLogger() {
    VN_LogSetLevel(7);
    tzset();
}

std::vector<Scenario> loggingScenarios() {
    const std::vector<std::string> lines = {"Unable to open logfile \"", " - line ", " - short",
                                            " - llll"};
    return {
        {.name = "loggerFiles",
         .run = rotate,
         .memory = Memory::checked,
         .mustFail = {"open", "dup2", "close", "write", "malloc", "strdup", "sigaction",
                      "pthread_mutex_init", "pthread_mutex_lock", "tcgetattr"},
         .onStandardError = lines},
        {.name = "loggerLines",
         .run = writeLines,
         .memory = Memory::all,
         .mustFail = {"write", "malloc", "vsnprintf", "clock_gettime", "localtime_r"},
         .onStandardError = lines},
        {.name = "loggerDescriptor",
         .run = writeToDescriptor,
         .memory = Memory::checked,
         .mustFail = {"write", "tcgetattr", "sigaction"},
         .onStandardError = lines},
        {.name = "processLogger",
         .run = useProcessLogger,
         .memory = Memory::checked,
         .mustFail = {"open", "write", "malloc", "pthread_mutex_lock"},
         .onStandardError = lines},
    };
}

}  // namespace faults
