// The process's logger. Each test of a first call runs in a new process.
#include <vncommon/log.h>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "logging/log_support.h"
#include "support/child_process.h"

namespace {

struct Operation {
    const char* level;
    void (*log)(const char*, ...);
};

constexpr Operation operations[] = {
    {"#####", VN_LogForce}, {"CRIT ", VN_LogCrit}, {"FATAL", VN_LogFatal}, {"ERROR", VN_LogError},
    {"WARN ", VN_LogWarn},  {"INFO ", VN_LogInfo}, {"DEBUG", VN_LogDebug}, {"TRACE", VN_LogTrace}};

void doLog(uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VN_DoLog(level, format, arguments);
    va_end(arguments);
}

// Prints the state of the process's logger on standard output.
void describe() {
    const char* name = VN_GetLogFileName();
    const char* utf8Name = VN_GetUTF8LogFileName();
    printf("level %u fd %d name %s utf8 %s\n", VN_GetLogLevel(), VN_GetLogFD(),
           name == nullptr ? "-" : name, utf8Name == nullptr ? "-" : utf8Name);
}

bool sighupIsHandled() {
    struct sigaction action;
    sigaction(SIGHUP, nullptr, &action);
    return action.sa_handler != SIG_DFL;
}

VN_CHILD(infoFirst) {
    VN_LogInfo("%s %d", "first", 1);
    describe();
    return 0;
}

TEST(Log, InfoAsTheFirstCallWritesToStandardError) {
    const ChildResult child = runChild("infoFirst");
    const auto lines = linesOf(child.err);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Line(lines[0]).message, "first 1");
    EXPECT_EQ(Line(lines[0]).level, "INFO ");
    EXPECT_EQ(child.out, "level 7 fd 2 name stderr utf8 stderr\n");
}

VN_CHILD(debugFirst) {
    const bool before = sighupIsHandled();
    VN_LogDebug("unseen");
    return !before && sighupIsHandled() ? 0 : 1;
}

TEST(Log, DebugAsTheFirstCallMakesTheLoggerAndWritesNothing) {
    const ChildResult child = runChild("debugFirst");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

VN_CHILD(levelFirst) {
    VN_LogSetLevel(9);
    describe();
    VN_LogTrace("seen");
    return 0;
}

TEST(Log, SetLevelAsTheFirstCall) {
    const ChildResult child = runChild("levelFirst");
    EXPECT_EQ(child.out, "level 9 fd 2 name stderr utf8 stderr\n");
    EXPECT_EQ(linesOf(child.err).size(), 1u);
}

VN_CHILD(descriptorFirst) {
    dup2(1, 5);
    const int console = VN_LogSetFD(5);
    describe();
    fflush(stdout);
    VN_LogInfo("on five");
    VN_LogReOpen();
    return console == 0 && VN_GetLogFD() == 5 ? 0 : 1;
}

TEST(Log, SetFDAsTheFirstCall) {
    const ChildResult child = runChild("descriptorFirst");
    EXPECT_EQ(child.exitStatus, 0);
    const auto lines = linesOf(child.out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "level 7 fd 5 name - utf8 -");
    EXPECT_EQ(Line(lines[1]).message, "on five");
    EXPECT_EQ(child.err, "");
}

VN_CHILD(setupAfterLines) {
    VN_LogInfo("to standard error");
    VN_LogSetup(6, "log", 0, 1);
    VN_LogInfo("suppressed");
    VN_LogWarn("to the file");
    printf("%s %u\n", VN_GetLogFileName(), VN_GetLogLevel());
    return 0;
}

TEST(Log, SetupMovesFurtherLines) {
    const TestDirectory directory;
    const ChildResult child = runChild("setupAfterLines", {.workingDirectory = directory.file("")});
    ASSERT_EQ(linesOf(child.err).size(), 1u);
    EXPECT_EQ(Line(linesOf(child.err)[0]).message, "to standard error");
    const auto lines = linesOf(contentsOf(directory.file("log")));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Line(lines[0]).message, "to the file");
    EXPECT_EQ(child.out, "log 6\n");
}

VN_CHILD(setupFirst) {
    VN_LogSetup(5, "/no/such/directory/log", 0, 1);
    describe();
    return 0;
}

TEST(Log, SetupFallsBackToStandardError) {
    const ChildResult child = runChild("setupFirst");
    EXPECT_EQ(child.err,
              "Unable to open logfile \"/no/such/directory/log\": No such file or directory\n");
    EXPECT_EQ(child.out, "level 5 fd 2 name stderr utf8 stderr\n");
}

VN_CHILD(filenameFirst) {
    const int console = VN_LogSetFilename("log", 0, 1);
    VN_LogInfo("x");
    VN_LogDebug("x");
    return console == 0 ? 0 : 1;
}

VN_CHILD(reopenFirst) {
    VN_LogReOpen();
    describe();
    return 0;
}

TEST(Log, SetFilenameAndReOpenMakeTheLoggerToo) {
    const TestDirectory directory;
    EXPECT_EQ(runChild("filenameFirst", {.workingDirectory = directory.file("")}).exitStatus, 0);
    EXPECT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 1u);
    EXPECT_EQ(runChild("reopenFirst").out, "level 7 fd 2 name stderr utf8 stderr\n");
}

VN_CHILD(choosesFiles) {
    VN_LogSetLevel(9);
    VN_LogSetFilename("log", 0, 1);
    VN_LogTrace("kept");
    VN_LogSetFilename("log", 0, 0);  // appends
    VN_LogSetFilename("/no/such/quiet", 1, 0);
    VN_LogSetFilename("/no/such/loud", 0, 1);
    VN_LogSetFD(1);
    VN_LogTrace("at the level that was set");
    VN_LogSetFilename("emptied", 0, 1);
    VN_LogTrace("gone");
    VN_LogSetFilename("emptied", 1, 0);
    return 0;
}

TEST(Log, PassesTheDestinationOn) {
    const TestDirectory directory;
    const ChildResult child = runChild("choosesFiles", {.workingDirectory = directory.file("")});
    EXPECT_EQ(child.err, "Unable to open logfile \"/no/such/loud\": No such file or directory\n");
    ASSERT_EQ(linesOf(child.out).size(), 1u);
    EXPECT_EQ(Line(linesOf(child.out)[0]).message, "at the level that was set");
    ASSERT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(directory.file("emptied")));
    EXPECT_EQ(contentsOf(directory.file("emptied")), "");
}

vn_Mutex callersMutex;

VN_CHILD(mutexFirst) {
    vn_Mutex_init(&callersMutex);
    VN_SetMutex(&callersMutex);
    vn_Mutex_lock(&callersMutex);
    std::thread writer([] { VN_LogInfo("second"); });
    usleep(20'000);
    fputs("first\n", stderr);
    vn_Mutex_unlock(&callersMutex);
    writer.join();
    return 0;
}

TEST(Log, SetMutexAsTheFirstCall) {
    const auto lines = linesOf(runChild("mutexFirst").err);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "first");
    EXPECT_EQ(Line(lines[1]).message, "second");
}

VN_CHILD(wordsFirst) {
    const bool ok = VN_StringToLogLevel("warn") == 6 && VN_StringToLogLevel("Warning") == 0 &&
                    VN_StringToLogLevel(nullptr) == 0 &&
                    std::string(VN_LogLevelToString(2)) == "#####" &&
                    std::string(VN_LogLevelToString(0)) == "NULL" &&
                    std::string(VN_LogLevelToString(10)) == "NULL";
    return ok && !sighupIsHandled() ? 0 : 1;
}

TEST(Log, WordsAndNamesDoNotMakeTheLogger) {
    EXPECT_EQ(runChild("wordsFirst").exitStatus, 0);
}

VN_CHILD(allLevels) {
    VN_LogSetup(static_cast<uint32_t>(atoi(arguments[0].c_str())), "stderr", 0, 1);
    for (const Operation& operation : operations) {
        operation.log("%d", 5);
    }
    for (uint32_t level = 0; level <= 9; ++level) {
        doLog(level, "%s%u", "list", level);
        VN_DoLogV(level, "%s%u", "arguments", level);
    }
    return 0;
}

TEST(Log, EveryOperationHasItsLevel) {
    const char* names[] = {"NULL ", "OFF  ", "#####", "CRIT ", "FATAL",
                           "ERROR", "WARN ", "INFO ", "DEBUG", "TRACE"};
    for (unsigned threshold = 0; threshold <= 9; ++threshold) {
        const ChildResult child = runChild("allLevels", {.arguments = {std::to_string(threshold)}});
        std::vector<std::string> found, expected;
        for (const std::string& line : linesOf(child.err)) {
            found.push_back(Line(line).level + Line(line).message);
        }
        for (unsigned level = 2; level <= threshold; ++level) {
            expected.push_back(std::string(operations[level - 2].level) + "5");
        }
        for (unsigned level = 0; level <= threshold; ++level) {
            expected.push_back(names[level] + ("list" + std::to_string(level)));
            expected.push_back(names[level] + ("arguments" + std::to_string(level)));
        }
        EXPECT_EQ(found, expected) << threshold;
    }
}

VN_CHILD(firstCallsRace) {
    constexpr int threads = 8;
    std::atomic<int> ready{0};
    std::vector<std::thread> callers;
    std::vector<const char*> names(threads);
    for (int i = 0; i < threads; ++i) {
        callers.emplace_back([&, i] {
            ++ready;
            while (ready < threads) {
            }
            names[static_cast<size_t>(i)] = VN_GetLogFileName();  // one pointer per logger
            VN_LogInfo("%d", i);
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    for (const char* name : names) {
        if (name != names[0]) {
            return 1;
        }
    }
    return 0;
}

TEST(Log, FirstCallsOfSeveralThreadsMakeOneLogger) {
    for (int round = 0; round < 20; ++round) {
        const ChildResult child = runChild("firstCallsRace");
        ASSERT_EQ(child.exitStatus, 0);
        EXPECT_EQ(linesOf(child.err).size(), 8u);
    }
}

}  // namespace
