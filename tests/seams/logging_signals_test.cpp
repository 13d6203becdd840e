// Another thread, a signal or another program acts while a log file is being reopened. The test's
// open() replaces the C library's and runs code at that moment.
#include <vncommon/file_logger.h>
#include <vncommon/log.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "logging/log_support.h"
#include "support/child_process.h"

namespace {

// If it returns false, open() fails with the current errno.
bool (*beforeOpen)(const char* name) = nullptr;
void (*afterOpen)(const char* name, int fd) = nullptr;

}  // namespace

extern "C" __attribute__((visibility("default"))) int open(const char* name, int flags, ...) {
    static const auto real =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (beforeOpen != nullptr && !beforeOpen(name)) {
        return -1;
    }
    const int fd = real(name, flags, mode);
    if (afterOpen != nullptr) {
        afterOpen(name, fd);
    }
    return fd;
}

namespace {

void expectSuccess(const char* child, const std::vector<std::string>& arguments = {}) {
    const TestDirectory directory;
    const ChildResult result =
        runChild(child, {.arguments = arguments, .workingDirectory = directory.file("")});
    EXPECT_EQ(result.signal, 0) << child;
    EXPECT_EQ(result.exitStatus, 0) << child << "\n" << result.out << result.err;
}

// Shows that the library really calls the test's open(); the tests below depend on it.
int openedFiles = 0;

bool countOpened(const char*) {
    ++openedFiles;
    return true;
}

TEST(LoggingAndSignals, OpensFilesThroughTheTest) {
    const TestDirectory directory;
    beforeOpen = countOpened;
    TestLogger logger(directory.file("log"));
    EXPECT_EQ(openedFiles, 1);
    raise(SIGHUP);
    EXPECT_EQ(openedFiles, 2);
    beforeOpen = nullptr;
}

bool isLogFile(const char* name) {
    return std::string(name) == "log";
}

// ---- A rotation between open() and the switch to the new file ----

void rotate(const char* name, int) {
    if (isLogFile(name)) {
        afterOpen = nullptr;
        rename("log", "log.1");
        raise(SIGHUP);
    }
}

VN_CHILD(rotatesBesideACall) {
    TestLogger logger("log");
    afterOpen = rotate;
    if (arguments[0] == "ReOpen") {
        FileLogger_ReOpen(logger);
    } else {
        FileLogger_SetFilename(logger, "log", arguments[0] == "truncate", 1);
    }
    FileLogger_LogInfo(logger, "line");
    return linesOf(contentsOf("log")).size() == 1 && contentsOf("log.1").empty() ? 0 : 1;
}

TEST(LoggingAndSignals, RotationBesideACallIsNotUndone) {
    for (const char* how : {"ReOpen", "SetFilename", "truncate"}) {
        expectSuccess("rotatesBesideACall", {how});
    }
}

// ---- open() interrupted by a signal ----

int interruptions = 0;

bool interruptThreeTimes(const char* name) {
    if (isLogFile(name) && interruptions < 3) {
        ++interruptions;
        errno = EINTR;
        return false;
    }
    return true;
}

VN_CHILD(opensDespiteInterruptions) {
    TestLogger logger;
    const bool isUTF8 = arguments[1] == "utf8";
    if (arguments[0] == "signal") {
        FileLogger_SetFilename(logger, "log", 0, isUTF8);
        remove("log");
        beforeOpen = interruptThreeTimes;
        raise(SIGHUP);
    } else {
        beforeOpen = interruptThreeTimes;
        FileLogger_SetFilename(logger, "log", 0, isUTF8);
    }
    return interruptions == 3 && logger->openFailure == 0 && access("log", F_OK) == 0 ? 0 : 1;
}

TEST(LoggingAndSignals, InterruptedOpenIsTriedAgain) {
    for (const char* how : {"call", "signal"}) {
        for (const char* name : {"utf8", "locale"}) {
            expectSuccess("opensDespiteInterruptions", {how, name});
        }
    }
}

// ---- Descriptors that other programs inherit ----

bool temporaryIsInherited = false;

void lookAtFlags(const char* name, int fd) {
    if (isLogFile(name)) {
        temporaryIsInherited = (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0;
    }
}

bool isInherited(const FileLogger* logger) {
    return (fcntl(FileLogger_GetFD(logger), F_GETFD) & FD_CLOEXEC) == 0;
}

VN_CHILD(leaksNoTemporaryDescriptor) {
    TestLogger logger;
    afterOpen = lookAtFlags;
    FileLogger_SetFilename(logger, "log", 0, 1);
    bool ok = !temporaryIsInherited && isInherited(logger);
    FileLogger_SetFilename(logger, "log", 0, 0);
    ok = ok && !temporaryIsInherited && isInherited(logger);
    raise(SIGHUP);
    return ok && !temporaryIsInherited && isInherited(logger) ? 0 : 1;
}

TEST(LoggingAndSignals, OnlyTheLogsOwnDescriptorIsInherited) {
    expectSuccess("leaksNoTemporaryDescriptor");
}

// ---- Handlers that replaced the library's for SIGHUP ----

int calls = 0;
struct sigaction taken;
using PlainHandler = void (*)(int);
PlainHandler takenPlain = nullptr;

// Typical code: calls the handler that signal() returned.
void plainThatCallsOn(int signal) {
    ++calls;
    takenPlain(signal);
}

void extendedThatPassesNoContext(int signal, siginfo_t*, void*) {
    ++calls;
    taken.sa_sigaction(signal, nullptr, nullptr);
}

void extendedThatPassesAnotherInfo(int signal, siginfo_t*, void*) {
    ++calls;
    siginfo_t info = {};
    taken.sa_sigaction(signal, &info, nullptr);
}

int callsOfOneSignal() {
    calls = 0;
    raise(SIGHUP);
    return calls;
}

VN_CHILD(takesHangupsOver) {
    TestLogger logger("log");
    if (arguments[0] == "plain") {
        takenPlain = signal(SIGHUP, plainThatCallsOn);
    } else {
        struct sigaction action = {};
        action.sa_sigaction = arguments[0] == "no context" ? extendedThatPassesNoContext
                                                           : extendedThatPassesAnotherInfo;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGHUP, &action, &taken);
    }
    bool ok = callsOfOneSignal() == 1;
    ok = ok && FileLogger_reinstallSignalHandler() == 0;
    for (int i = 0; i < 3; ++i) {
        remove("log");
        ok = ok && callsOfOneSignal() == 1 && access("log", F_OK) == 0;
    }
    printf("%d calls\n", calls);
    return ok ? 0 : 1;
}

TEST(LoggingAndSignals, HandlerThatTookTheSignalOverRunsOncePerSignal) {
    for (const char* kind : {"plain", "no context", "another info"}) {
        expectSuccess("takesHangupsOver", {kind});
    }
}

int depth = 0;

// Unblocks SIGHUP and raises it once more.
void raisesAnother(int signal) {
    ++calls;
    if (++depth == 1) {
        sigset_t sighup;
        sigemptyset(&sighup);
        sigaddset(&sighup, signal);
        pthread_sigmask(SIG_UNBLOCK, &sighup, nullptr);
        raise(signal);
    }
    --depth;
}

VN_CHILD(raisesInsideTheHandler) {
    signal(SIGHUP, raisesAnother);
    TestLogger logger("log");
    return callsOfOneSignal() == 2 ? 0 : 1;
}

TEST(LoggingAndSignals, NewSignalInsideTheHandlerBeforeIsPassedOnToo) {
    expectSuccess("raisesInsideTheHandler");
}

// ---- A signal while the registry is locked ----

// The handler may find the lock held by the thread that creates loggers. That thread then reopens
// the file when it unlocks.
TEST(LoggingAndSignals, HangupsBesideNewLoggersAllReopenTheFile) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    std::atomic<bool> done{false};
    std::thread registers([&done] {
        while (!done) {
            TestLogger another;
        }
    });
    for (int i = 0; i < 2000; ++i) {
        std::filesystem::remove(directory.file("log"));
        raise(SIGHUP);
        for (int wait = 0; wait < 60'000 && !std::filesystem::exists(directory.file("log"));
             ++wait) {
            usleep(1000);
        }
        ASSERT_TRUE(std::filesystem::exists(directory.file("log"))) << i;
    }
    done = true;
    registers.join();
}

// ---- Names that a signal changes ----

// A reader of a new name must see the whole name.
TEST(LoggingAndSignals, NamesMayBeReadBesideAHangup) {
    const TestDirectory directory;
    const std::string file = directory.file("log");
    TestLogger logger;
    std::atomic<bool> done{false};
    std::atomic<size_t> read{0};
    FileLogger_SetFilename(logger, file.c_str(), 0, 0);
    std::thread reads([&] {
        while (!done) {
            const std::string name = FileLogger_GetFileName(logger);
            const std::string utf8Name = FileLogger_GetUTF8FileName(logger);
            read += name == file && utf8Name == file;
        }
    });
    while (read == 0) {
        std::this_thread::yield();
    }
    raise(SIGHUP);  // the name becomes the UTF-8 one
    const size_t before = read;
    while (read == before) {
        std::this_thread::yield();
    }
    done = true;
    reads.join();
}

// ---- errno ----

// Hidden from the compiler, which warns that ISO C++ has no %m.
[[gnu::noinline]] const char* errnoFormat() {
    static char text[] = "%m%s";
    return text;
}

VN_CHILD(logsErrnoInTheFirstLine) {
    const char* const errnoText = errnoFormat();
    errno = EACCES;
    VN_LogInfo(errnoText, "");
    const int after = errno;
    errno = ENOENT;
    VN_LogInfo(errnoText, "");
    return after == EACCES && errno == ENOENT ? 0 : 1;
}

TEST(LoggingAndSignals, FirstLineKnowsTheCallersErrno) {
    const ChildResult child = runChild("logsErrnoInTheFirstLine");
    EXPECT_EQ(child.exitStatus, 0);
    const std::vector<std::string> lines = linesOf(child.err);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(Line(lines[0]).message, "Permission denied");
    EXPECT_EQ(Line(lines[1]).message, "No such file or directory");
}

// ---- Level words ----

// In Turkish, i and I are different letters.
VN_CHILD(readsLevelsInTurkish) {
    if (setlocale(LC_ALL, "tr_TR.ISO-8859-9") == nullptr) {
        return 77;
    }
    const bool ok = FileLogger_StringToLogLevel("info") == 7 &&
                    FileLogger_StringToLogLevel("crit") == 3 &&
                    FileLogger_StringToLogLevel("Info") == 7 && VN_StringToLogLevel("CRIT") == 3 &&
                    FileLogger_StringToLogLevel("\xfdnfo") == 0;
    return ok ? 0 : 1;
}

TEST(LoggingAndSignals, LevelWordsAreAsciiInEveryLocale) {
    const TestDirectory directory;
    const std::string make = "localedef -i tr_TR -f ISO-8859-9 " +
                             directory.file("tr_TR.ISO-8859-9") + " >/dev/null 2>&1";
    if (std::system(make.c_str()) != 0) {
        GTEST_SKIP() << "the sources of the Turkish locale are not installed";
    }
    const ChildResult child =
        runChild("readsLevelsInTurkish", {.environment = {{"LOCPATH", directory.file("")}}});
    EXPECT_EQ(child.exitStatus, 0);
}

}  // namespace
