// Logger objects: creation and destruction, levels, the format of a line, destinations. Other
// programs test rotation and the system calls of writes.
#include <vncommon/file_logger.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

#include "logging/log_support.h"
#include "support/child_process.h"

namespace {

int fakeSecond = -1;  // the second that localtime_r returns, if not negative

}  // namespace

// Replaces the C library's, for the shared library too.
extern "C" __attribute__((visibility("default"))) tm* localtime_r(const time_t* time,
                                                                  tm* local) noexcept {
    using Function = tm* (*)(const time_t*, tm*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "localtime_r"));
    tm* result = real(time, local);
    local->tm_sec = fakeSecond >= 0 ? fakeSecond : local->tm_sec;
    return result;
}

namespace {

using Operation = void (*)(FileLogger*, const char*, ...);

struct NamedLevel {
    uint32_t level;
    const char* name;
    Operation operation;  // null if the level has none
};

constexpr NamedLevel levels[] = {
    {0, "NULL", nullptr},
    {1, "OFF", nullptr},
    {2, "#####", FileLogger_LogForce},
    {3, "CRIT", FileLogger_LogCrit},
    {4, "FATAL", FileLogger_LogFatal},
    {5, "ERROR", FileLogger_LogError},
    {6, "WARN", FileLogger_LogWarn},
    {7, "INFO", FileLogger_LogInfo},
    {8, "DEBUG", FileLogger_LogDebug},
    {9, "TRACE", FileLogger_LogTrace},
};

void doLog(FileLogger* logger, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FileLogger_DoLog(logger, level, format, arguments);
    va_end(arguments);
}

void doLogCat(FileLogger* logger, const char* variable, uint32_t level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FileLogger_DoLog_cat(logger, variable, level, format, arguments);
    va_end(arguments);
}

// Not time(): Linux updates its clock only at each tick, so it can still return the previous
// second.
time_t currentSecond() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

std::string padded(std::string name) {
    name.resize(5, ' ');
    return name;
}

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}

bool sameFile(int descriptor, const std::string& path) {
    struct stat a, b;
    return fstat(descriptor, &a) == 0 && stat(path.c_str(), &b) == 0 && a.st_ino == b.st_ino &&
           a.st_dev == b.st_dev;
}

// ---- Creation and destruction ----

TEST(FileLogger, StartsOnStandardErrorAtInfo) {
    TestLogger logger;
    EXPECT_EQ(logger->level, 7u);
    EXPECT_NE(logger->mutex, nullptr);
    EXPECT_EQ(logger->ownsMutex, 1);
    EXPECT_EQ(logger->fd, 2);
    EXPECT_NE(logger->buffer, nullptr);
    EXPECT_EQ(logger->bufferSize, 1024);
    EXPECT_EQ(logger->prefixLength, 0);
    EXPECT_EQ(logger->prefixTime, 0);
    EXPECT_EQ(logger->fileName, nullptr);
    EXPECT_EQ(logger->utf8FileName, nullptr);
    EXPECT_EQ(logger->console, 0);
    EXPECT_EQ(logger->openFailure, 0);
    EXPECT_EQ(FileLogger_GetLogLevel(logger), 7u);
    EXPECT_EQ(FileLogger_GetFD(logger), 2);
    EXPECT_EQ(FileLogger_GetFileName(logger), nullptr);
    EXPECT_EQ(FileLogger_GetUTF8FileName(logger), nullptr);
    EXPECT_EQ(FileLogger_GetMutex(logger), logger->mutex);
}

TEST(FileLogger, KeepsTheRecordThatCompiledProgramsKnow) {
    EXPECT_EQ(sizeof(FileLogger), 72u);
    EXPECT_EQ(offsetof(FileLogger, level), 0u);
    EXPECT_EQ(offsetof(FileLogger, mutex), 8u);
    EXPECT_EQ(offsetof(FileLogger, ownsMutex), 16u);
    EXPECT_EQ(offsetof(FileLogger, fd), 20u);
    EXPECT_EQ(offsetof(FileLogger, buffer), 24u);
    EXPECT_EQ(offsetof(FileLogger, bufferSize), 32u);
    EXPECT_EQ(offsetof(FileLogger, prefixLength), 36u);
    EXPECT_EQ(offsetof(FileLogger, prefixTime), 40u);
    EXPECT_EQ(offsetof(FileLogger, fileName), 48u);
    EXPECT_EQ(offsetof(FileLogger, utf8FileName), 56u);
    EXPECT_EQ(offsetof(FileLogger, console), 64u);
    EXPECT_EQ(offsetof(FileLogger, openFailure), 68u);
}

TEST(FileLogger, AllocatedLoggersAreInitialised) {
    const TestDirectory directory;
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, directory.file("log").c_str(), 0, 1);
    FileLogger_LogInfo(logger, "%s", "hello");
    char* buffer = logger->buffer;
    const int fd = logger->fd;
    FileLogger_dtor(logger);
    EXPECT_FALSE(isOpen(fd));
    // After the logger's destruction the caller owns the buffer, which still has the last line.
    EXPECT_NE(std::string(buffer).find("hello\n"), std::string::npos);
    free(buffer);
    EXPECT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 1u);
}

TEST(FileLogger, ManyLoggersComeAndGo) {
    const TestDirectory directory;
    std::vector<FileLogger*> loggers;
    std::vector<char*> buffers;
    for (int i = 0; i < 100; ++i) {
        loggers.push_back(FileLogger_ctor());
        buffers.push_back(loggers.back()->buffer);
        FileLogger_SetFilename(loggers.back(), directory.file(std::to_string(i)).c_str(), 0, 1);
    }
    for (size_t i = 0; i < loggers.size(); i += 2) {
        FileLogger_dtor(loggers[i]);
    }
    for (size_t i = 1; i < loggers.size(); i += 2) {
        FileLogger_LogWarn(loggers[i], "number %zu", i);
        FileLogger_dtor(loggers[i]);
        EXPECT_EQ(Line(linesOf(contentsOf(directory.file(std::to_string(i)))).at(0)).message,
                  "number " + std::to_string(i));
    }
    for (char* buffer : buffers) {
        free(buffer);
    }
}

// ---- The format of a line ----

TEST(FileLogger, LineHoldsTimeLevelThreadAndMessage) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    const time_t before = currentSecond();
    FileLogger_LogInfo(logger, "%d of %s at %.2f", 3, "clients", 1.5);
    const time_t after = currentSecond();

    const std::string text = contentsOf(directory.file("log"));
    ASSERT_EQ(text.back(), '\n');
    const Line line(text.substr(0, text.size() - 1));
    EXPECT_EQ(line.message, "3 of clients at 1.50");
    EXPECT_EQ(line.level, "INFO ");
    EXPECT_EQ(line.thread, std::to_string(static_cast<unsigned long>(pthread_self())));

    tm local = {};
    ASSERT_NE(strptime(line.second.c_str(), "%Y-%m-%d %H:%M:%S", &local), nullptr);
    local.tm_isdst = -1;
    const time_t written = mktime(&local);
    EXPECT_GE(written, before);
    EXPECT_LE(written, after);
}

// Compares every byte of the head with printf's result.
TEST(FileLogger, HeadIsWhatPrintfMakesOfIt) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    for (const NamedLevel& level : levels) {
        doLog(logger, level.level, "x");
    }
    FileLogger_SetLogLevel(logger, 9);
    for (const NamedLevel& level : levels) {
        if (level.operation != nullptr) {
            level.operation(logger, "x");
        }
    }
    const auto lines = linesOf(contentsOf(directory.file("log")));
    ASSERT_EQ(lines.size(), 8u + 8u);
    size_t next = 0;
    const auto expectLine = [&](const NamedLevel& level) {
        const std::string& line = lines[next++];
        char expected[100];
        snprintf(expected, sizeof expected, "%s.%03d %-5s [%lu] - x", Line(line).second.c_str(),
                 atoi(Line(line).milliseconds.c_str()), level.name,
                 static_cast<unsigned long>(pthread_self()));
        EXPECT_EQ(line, expected);
    };
    for (const NamedLevel& level : levels) {
        if (level.level <= 7) {
            expectLine(level);
        }
    }
    for (const NamedLevel& level : levels) {
        if (level.operation != nullptr) {
            expectLine(level);
        }
    }
}

TEST(FileLogger, MillisecondsAreThoseOfTheClockAndHaveThreeDigits) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    std::vector<int64_t> before, after;
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    for (int i = 0; i < 120; ++i) {  // longer than a second, so the second changes at least once
        before.push_back(now());
        FileLogger_LogInfo(logger, "x");
        after.push_back(now());
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const auto lines = linesOf(contentsOf(directory.file("log")));
    ASSERT_EQ(lines.size(), before.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const Line line(lines[i]);
        tm local = {};
        strptime(line.second.c_str(), "%Y-%m-%d %H:%M:%S", &local);
        local.tm_isdst = -1;
        const int64_t time = int64_t{mktime(&local)} * 1000 + atoi(line.milliseconds.c_str());
        EXPECT_GE(time, before[i]) << lines[i];
        EXPECT_LE(time, after[i]) << lines[i];
    }
}

TEST(FileLogger, KeepsTheDateAndTimeOfTheSecond) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    const time_t before = currentSecond();
    FileLogger_LogInfo(logger, "one");
    EXPECT_EQ(logger->prefixLength, 20);
    EXPECT_GE(logger->prefixTime, before);
    EXPECT_LE(logger->prefixTime, currentSecond());
    // A prefix that is valid for this second is used unchanged.
    time_t second;
    do {
        second = currentSecond();
        logger->prefixTime = second;
        memcpy(logger->buffer, "1999-12-31 23:59:59.", 20);
        FileLogger_LogInfo(logger, "kept");
    } while (second != currentSecond());  // the second changed in between
    EXPECT_EQ(Line(linesOf(contentsOf(directory.file("log"))).back()).second,
              "1999-12-31 23:59:59");
    // A prefix for another second is replaced.
    logger->prefixTime = 946681199;
    FileLogger_LogInfo(logger, "new");
    EXPECT_NE(Line(linesOf(contentsOf(directory.file("log"))).back()).second,
              "1999-12-31 23:59:59");
}

TEST(FileLogger, NoSecondIsAboveSixty) {
    const TestDirectory directory;
    for (const auto& [second, shown] : {std::pair{59, "59"}, {60, "60"}, {61, "60"}, {99, "60"}}) {
        const std::string file = directory.file(std::to_string(second));
        TestLogger logger(file);
        fakeSecond = second;
        FileLogger_LogInfo(logger, "x");
        fakeSecond = -1;
        EXPECT_EQ(Line(linesOf(contentsOf(file)).at(0)).second.substr(17), shown);
    }
}

VN_CHILD(logsInKathmandu) {
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, "stderr", 0, 1);
    FileLogger_LogInfo(logger, "%lld", static_cast<long long>(currentSecond()));
    printf("%lld", static_cast<long long>(currentSecond()));
    return 0;
}

TEST(FileLogger, TimeIsLocal) {
    const ChildResult child = runChild("logsInKathmandu", {.environment = {{"TZ", "XXX-05:45"}}});
    const Line line(linesOf(child.err).at(0));
    tm utc = {};
    strptime(line.second.c_str(), "%Y-%m-%d %H:%M:%S", &utc);
    const int64_t second = timegm(&utc) - (5 * 60 + 45) * 60;
    EXPECT_GE(second, atoll(line.message.c_str()));
    EXPECT_LE(second, atoll(child.out.c_str()));
}

// ---- Formats ----

TEST(FileLogger, MessagesOfEveryLengthAroundTheBufferAreWhole) {
    const TestDirectory directory;
    for (const int length :
         {0,   1,   900, 950,  960,  961,  962,  963,  964,  965,  966,  967,
          968, 969, 970, 971,  972,  973,  974,  975,  976,  977,  978,  979,
          980, 985, 990, 1000, 1020, 1023, 1024, 1025, 2000, 2048, 5000, 100'000}) {
        TestLogger logger(directory.file(std::to_string(length)));
        std::string message(static_cast<size_t>(length), 'm');
        if (length > 2) {
            message.front() = '<';
            message.back() = '>';
        }
        FileLogger_LogInfo(logger, "%s", message.c_str());
        const std::string text = contentsOf(directory.file(std::to_string(length)));
        ASSERT_EQ(text.back(), '\n');
        EXPECT_EQ(Line(text.substr(0, text.size() - 1)).message, message);
        // The size is the smallest of 1024, 2048, ... with room for three bytes more.
        const int head = static_cast<int>(text.size()) - 1 - length;
        int size = 1024;
        while (length + 3 > size - head) {
            size *= 2;
        }
        EXPECT_EQ(logger->bufferSize, size) << length;
    }
}

TEST(FileLogger, WritesAMessageOfTenMebibytesWhole) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    const std::string message(10 << 20, 'x');
    FileLogger_LogInfo(logger, "%s|%d", message.c_str(), 5);
    const std::string text = contentsOf(directory.file("log"));
    const size_t head = text.find(" - ") + 3;
    EXPECT_EQ(text.size(), head + message.size() + 3);
    EXPECT_EQ(text.substr(head), message + "|5\n");
    EXPECT_EQ(logger->bufferSize, 16 << 20);
    FileLogger_LogInfo(logger, "short");
    EXPECT_EQ(logger->bufferSize, 16 << 20);  // never shrinks
    EXPECT_EQ(Line(linesOf(contentsOf(directory.file("log"))).back()).message, "short");
}

TEST(FileLogger, FormatsThatPrintfRefusesAreTheMessage) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    const wchar_t unpaired[] = {static_cast<wchar_t>(0x7fffffff), 0};
    doLog(logger, 5, "%ls", unpaired);
    doLog(logger, 5, nullptr);
    const std::string longFormat = "%ls" + std::string(3000, 'f');
    doLog(logger, 5, longFormat.c_str(), unpaired);
    doLog(logger, 5, "after");
    const auto lines = linesOf(contentsOf(directory.file("log")));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(Line(lines[0]).message, "%ls");
    EXPECT_EQ(Line(lines[1]).message, "(null)");
    EXPECT_EQ(Line(lines[2]).message, longFormat);
    EXPECT_EQ(Line(lines[3]).message, "after");
}

TEST(FileLogger, LeavesErrnoAloneAndFormatsTheCallersOwn) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    errno = ENOTDIR;
    doLog(logger, 7, "%m");
    EXPECT_EQ(errno, ENOTDIR);
    FileLogger_SetFD(logger, -1);
    errno = ERANGE;
    FileLogger_LogInfo(logger, "cannot be written");
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(Line(linesOf(contentsOf(directory.file("log"))).at(0)).message, "Not a directory");
}

TEST(FileLogger, ZeroBytesAreWrittenToo) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    FileLogger_LogInfo(logger, "a%cb", 0);
    const std::string text = contentsOf(directory.file("log"));
    EXPECT_EQ(text.substr(text.size() - 4), std::string("a\0b\n", 4));
}

// ---- Levels ----

TEST(FileLogger, ThresholdLetsMoreSevereLinesPass) {
    const TestDirectory directory;
    for (uint32_t threshold = 0; threshold <= 10; ++threshold) {
        const std::string file = directory.file(std::to_string(threshold));
        TestLogger logger(file);
        FileLogger_SetLogLevel(logger, threshold);
        EXPECT_EQ(FileLogger_GetLogLevel(logger), threshold);
        std::vector<std::string> expected;
        for (const NamedLevel& level : levels) {
            doLog(logger, level.level, "x");
            if (level.level <= threshold) {
                expected.push_back(padded(level.name));
            }
            if (level.operation != nullptr) {
                level.operation(logger, "x");
                if (level.level <= threshold) {
                    expected.push_back(padded(level.name));
                }
            }
        }
        std::vector<std::string> found;
        for (const std::string& line : linesOf(contentsOf(file))) {
            found.push_back(Line(line).level);
        }
        EXPECT_EQ(found, expected) << threshold;
    }
}

TEST(FileLogger, LevelsAboveTheTableDoNoHarm) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    FileLogger_SetLogLevel(logger, UINT32_MAX);
    for (const uint32_t level : {10u, 18u, 19u, 20u, 1000u, UINT32_MAX}) {
        doLog(logger, level, "x");
    }
    for (const std::string& line : linesOf(contentsOf(directory.file("log")))) {
        EXPECT_EQ(Line(line).message, "x");
    }
}

TEST(FileLogger, ALineBelowTheThresholdTakesNoLock) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    vn_Mutex_lock(FileLogger_GetMutex(logger));
    FileLogger_LogDebug(logger, "would wait for ever");
    vn_Mutex_unlock(FileLogger_GetMutex(logger));
    EXPECT_EQ(contentsOf(directory.file("log")), "");
}

TEST(FileLogger, TheLevelIsSetUnderTheLock) {
    TestLogger logger;
    vn_Mutex_lock(FileLogger_GetMutex(logger));
    std::atomic<bool> done{false};
    std::thread setter([&] {
        FileLogger_SetLogLevel(logger, 9);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(done);
    EXPECT_EQ(FileLogger_GetLogLevel(logger), 7u) << "the getter takes no lock";
    vn_Mutex_unlock(FileLogger_GetMutex(logger));
    setter.join();
    EXPECT_EQ(FileLogger_GetLogLevel(logger), 9u);
}

TEST(FileLogger, WordsParseInAnyCaseAndOnlyWhole) {
    const std::pair<const char*, uint32_t> words[] = {
        {"TRACE", 9}, {"DEBUG", 8},   {"INFO", 7},  {"WARN", 6},  {"ERROR", 5}, {"FATAL", 4},
        {"CRIT", 3},  {"OFF", 1},     {"trace", 9}, {"Debug", 8}, {"iNFO", 7},  {"warn", 6},
        {"off", 1},   {"Warning", 0}, {"", 0},      {"NULL", 0},  {"#####", 0}, {"FORCE", 0},
        {"T", 0},     {" INFO", 0},   {"INFO ", 0}, {"alert", 0}, {"7", 0}};
    for (const auto& [word, level] : words) {
        EXPECT_EQ(FileLogger_StringToLogLevel(word), level) << word;
    }
    EXPECT_EQ(FileLogger_StringToLogLevel(nullptr), 0u);
}

TEST(FileLogger, LevelsHaveNames) {
    for (const NamedLevel& level : levels) {
        EXPECT_STREQ(FileLogger_LogLevelToString(level.level), level.name);
    }
    for (const uint32_t level : {10u, 11u, 18u, 19u, 20u, UINT32_MAX}) {
        EXPECT_STREQ(FileLogger_LogLevelToString(level), "NULL");
    }
}

TEST(FileLogger, FirstLetterOfTheVariableIsTheThreshold) {
    const TestDirectory directory;
    const std::string known = "TtDdIiWwEeFfCcAOo";
    const uint32_t levelOf[] = {9, 9, 8, 8, 7, 7, 6, 6, 5, 5, 4, 4, 3, 3, 3, 1, 1};
    TestLogger logger;
    FileLogger_SetLogLevel(logger, 2);
    for (int byte = 1; byte < 256; ++byte) {
        const char value[] = {static_cast<char>(byte), 'x', '\0'};
        setenv("VN_TEST_LEVEL", value, 1);
        const std::string file = directory.file(std::to_string(byte));
        FileLogger_SetFilename(logger, file.c_str(), 0, 1);
        for (uint32_t level = 0; level <= 9; ++level) {
            doLogCat(logger, "VN_TEST_LEVEL", level, "x");
        }
        const size_t found = known.find(static_cast<char>(byte));
        const uint32_t threshold = found == std::string::npos ? 2 : levelOf[found];
        EXPECT_EQ(linesOf(contentsOf(file)).size(), threshold + 1) << byte;
    }
    unsetenv("VN_TEST_LEVEL");
}

TEST(FileLogger, VariableHoldsForTheLineOnly) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    setenv("VN_TEST_LEVEL", "debug", 1);
    doLogCat(logger, "VN_TEST_LEVEL", 8, "debug");
    doLogCat(logger, "VN_TEST_LEVEL", 9, "-");
    setenv("VN_TEST_LEVEL", "Alert", 1);
    doLogCat(logger, "VN_TEST_LEVEL", 4, "-");
    doLogCat(logger, "VN_TEST_LEVEL", 3, "Alert");
    doLogCat(logger, "VN_TEST_LEVEL", 2, "Alert");
    setenv("VN_TEST_LEVEL", "alert", 1);
    doLogCat(logger, "VN_TEST_LEVEL", 7, "alert");
    doLogCat(logger, "VN_TEST_LEVEL", 8, "-");
    setenv("VN_TEST_LEVEL", "", 1);
    doLogCat(logger, "VN_TEST_LEVEL", 7, "empty");
    doLogCat(logger, "VN_TEST_LEVEL", 8, "-");
    unsetenv("VN_TEST_LEVEL");
    doLogCat(logger, "VN_TEST_LEVEL", 7, "unset");
    doLogCat(logger, "VN_TEST_LEVEL", 8, "-");
    doLogCat(logger, nullptr, 7, "none");
    doLogCat(logger, nullptr, 8, "-");
    EXPECT_EQ(FileLogger_GetLogLevel(logger), 7u);
    std::vector<std::string> messages;
    for (const std::string& line : linesOf(contentsOf(directory.file("log")))) {
        messages.push_back(Line(line).message);
    }
    EXPECT_EQ(messages, (std::vector<std::string>{"debug", "Alert", "Alert", "alert", "empty",
                                                  "unset", "none"}));
}

// ---- Destinations ----

TEST(FileLogger, CreatesAppendsAndTruncates) {
    const TestDirectory directory;
    const std::string file = directory.file("log");
    const mode_t maskBefore = umask(0);
    TestLogger logger;
    EXPECT_EQ(FileLogger_SetFilename(logger, file.c_str(), 0, 1), 0);
    umask(maskBefore);
    struct stat status;
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
    EXPECT_EQ(fcntl(logger->fd, F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY | O_APPEND);
    EXPECT_EQ(fcntl(logger->fd, F_GETFD), 0);
    FileLogger_LogInfo(logger, "one");
    FileLogger_SetFilename(logger, file.c_str(), 0, 0);
    FileLogger_LogInfo(logger, "two");
    EXPECT_EQ(linesOf(contentsOf(file)).size(), 2u);
    FileLogger_SetFilename(logger, file.c_str(), 1, 1);
    EXPECT_EQ(contentsOf(file), "");
    FileLogger_LogInfo(logger, "three");
    std::ofstream(file, std::ios::app) << "another writer\n";
    FileLogger_LogInfo(logger, "four");
    const auto lines = linesOf(contentsOf(file));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "another writer");
    FileLogger_SetFilename(logger, file.c_str(), 7, 0);  // every value except 0 truncates
    EXPECT_EQ(contentsOf(file), "");
}

TEST(FileLogger, KnowsItsNames) {
    const TestDirectory directory;
    const std::string file = directory.file(
        "gr\xC3\xBC\xC3\x9F"
        "e");
    TestLogger logger(file);
    EXPECT_EQ(FileLogger_GetFileName(logger), file);
    EXPECT_EQ(FileLogger_GetUTF8FileName(logger), file);
    EXPECT_NE(FileLogger_GetFileName(logger), file.c_str());
    EXPECT_EQ(FileLogger_GetFileName(logger), logger->fileName);
    EXPECT_EQ(FileLogger_GetUTF8FileName(logger), logger->utf8FileName);
    // The logger accepts the names that it returned.
    FileLogger_SetFilename(logger, FileLogger_GetFileName(logger), 0, 1);
    EXPECT_EQ(FileLogger_GetFileName(logger), file);
    FileLogger_LogInfo(logger, "x");
    EXPECT_EQ(linesOf(contentsOf(file)).size(), 1u);
}

TEST(FileLogger, MovingToAnotherFileClosesTheOneBefore) {
    const TestDirectory directory;
    TestLogger logger(directory.file("a"));
    const int first = logger->fd;
    FileLogger_SetFilename(logger, directory.file("b").c_str(), 0, 1);
    EXPECT_TRUE(sameFile(logger->fd, directory.file("b")));
    EXPECT_TRUE(logger->fd == first || !isOpen(first));
    FileLogger_SetFilename(logger, "stderr", 0, 1);
    EXPECT_FALSE(isOpen(first));
    EXPECT_EQ(FileLogger_GetFD(logger), 2);
    EXPECT_STREQ(FileLogger_GetFileName(logger), "stderr");
}

TEST(FileLogger, AFailedOpenClosesTheFileBeforeToo) {
    const TestDirectory directory;
    TestLogger logger(directory.file("a"));
    const int first = logger->fd;
    FileLogger_SetFilename(logger, "/no/such/quiet", 0, 0);
    EXPECT_EQ(FileLogger_GetFD(logger), 2);
    EXPECT_FALSE(isOpen(first));
}

TEST(FileLogger, NeverClosesStandardStreams) {
    TestLogger logger;
    EXPECT_EQ(FileLogger_SetFilename(logger, "stdout", 0, 1), isatty(1));
    EXPECT_EQ(FileLogger_GetFD(logger), 1);
    EXPECT_STREQ(FileLogger_GetUTF8FileName(logger), "stdout");
    FileLogger_SetFilename(logger, "stderr", 0, 0);
    EXPECT_EQ(FileLogger_GetFD(logger), 2);
    EXPECT_TRUE(isOpen(1));
    FileLogger_SetFilename(logger, "stdout", 0, 0);
    FileLogger_ReOpen(logger);
    EXPECT_EQ(FileLogger_GetFD(logger), 1);
    FileLogger_SetFD(logger, 2);
    EXPECT_TRUE(isOpen(1));
    EXPECT_TRUE(isOpen(2));
}

TEST(FileLogger, OnlyTheExactWordsAreStandardStreams) {
    const TestDirectory directory;
    ASSERT_EQ(chdir(directory.file("").c_str()), 0);
    TestLogger logger;
    for (const char* name : {"stderr ", "STDERR", "stdout.log"}) {
        FileLogger_SetFilename(logger, name, 0, 1);
        EXPECT_TRUE(sameFile(logger->fd, directory.file(name)));
    }
    ASSERT_EQ(chdir("/"), 0);
}

VN_CHILD(logsWithoutStandardInput) {
    close(0);
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, arguments[0].c_str(), 0, 1);
    const bool opened = FileLogger_GetFD(logger) == 0;
    FileLogger_SetFilename(logger, "stdout", 0, 1);
    return opened && !isOpen(0) ? 0 : 1;
}

TEST(FileLogger, DescriptorZeroIsClosedLikeAnyOther) {
    const TestDirectory directory;
    EXPECT_EQ(
        runChild("logsWithoutStandardInput", {.arguments = {directory.file("log")}}).exitStatus, 0);
}

TEST(FileLogger, AGivenDescriptorHasNoNameAndIsClosedByCleanupAlone) {
    const TestDirectory directory;
    const int given = open(directory.file("given").c_str(), O_WRONLY | O_CREAT, 0600);
    const int other = open(directory.file("other").c_str(), O_WRONLY | O_CREAT, 0600);
    {
        TestLogger logger(directory.file("named"));
        const int named = logger->fd;
        EXPECT_EQ(FileLogger_SetFD(logger, given), 0);
        EXPECT_EQ(FileLogger_GetFD(logger), given);
        EXPECT_EQ(FileLogger_GetFileName(logger), nullptr);
        EXPECT_EQ(FileLogger_GetUTF8FileName(logger), nullptr);
        EXPECT_TRUE(isOpen(named));
        close(named);
        FileLogger_LogInfo(logger, "x");
        EXPECT_EQ(linesOf(contentsOf(directory.file("given"))).size(), 1u);
        FileLogger_ReOpen(logger);  // nothing to reopen
        EXPECT_EQ(FileLogger_GetFD(logger), given);
        FileLogger_SetFilename(logger, directory.file("named").c_str(), 0, 1);
        EXPECT_TRUE(isOpen(given));
        EXPECT_NE(FileLogger_GetFD(logger), given);
        FileLogger_SetFD(logger, other);
    }
    EXPECT_TRUE(isOpen(given));
    EXPECT_FALSE(isOpen(other));
    close(given);
}

VN_CHILD(opensBadNames) {
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, "/no/such/\xC3\xA4/log", 0, 1);
    bool ok = logger->openFailure == 1 && logger->fd == 2;
    ok = ok && std::string(FileLogger_GetFileName(logger)) == "stderr" &&
         std::string(FileLogger_GetUTF8FileName(logger)) == "stderr";
    FileLogger_LogInfo(logger, "goes on");
    FileLogger_ReOpen(logger);
    FileLogger_SetFilename(logger, "/no/such/quiet", 0, 0);
    ok = ok && logger->openFailure == 1;  // 2 does not replace it
    FileLogger_SetFilename(logger, "/dev/null", 0, 1);
    ok = ok && logger->openFailure == 1;  // never cleared
    FileLogger_SetFilename(logger, nullptr, 0, 1);
    ok = ok && logger->fd == 2 && std::string(FileLogger_GetFileName(logger)) == "stderr";

    FileLogger* quiet = FileLogger_ctor();
    FileLogger_SetFilename(quiet, "/no/such/quiet", 0, 0);
    ok = ok && quiet->openFailure == 2 && quiet->fd == 2;
    FileLogger_SetFilename(quiet, nullptr, 0, 0);
    ok = ok && quiet->openFailure == 2 && std::string(FileLogger_GetFileName(quiet)) == "stderr";
    FileLogger_SetFilename(quiet, "/no/such/loud", 0, 1);
    return ok && quiet->openFailure == 1 ? 0 : 1;
}

TEST(FileLogger, FallsBackToStandardError) {
    const ChildResult child = runChild("opensBadNames");
    EXPECT_EQ(child.exitStatus, 0);
    const auto lines = linesOf(child.err);
    ASSERT_EQ(lines.size(), 4u) << child.err;
    EXPECT_EQ(lines[0],
              "Unable to open logfile \"/no/such/\xC3\xA4/log\": No such file or directory");
    EXPECT_EQ(Line(lines[1]).message, "goes on");
    EXPECT_EQ(lines[2], "Unable to open logfile \"(null)\": Bad address");
    EXPECT_EQ(lines[3], "Unable to open logfile \"/no/such/loud\": No such file or directory");
}

// A program that becomes a daemon may close every descriptor. The file then gets the same number.
TEST(FileLogger, ReOpenRepairsAClosedDescriptor) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    const int descriptor = FileLogger_GetFD(logger);
    close(descriptor);
    FileLogger_ReOpen(logger);
    EXPECT_EQ(FileLogger_GetFD(logger), descriptor);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), 0);
    FileLogger_LogInfo(logger, "goes on");
    EXPECT_NE(contentsOf(directory.file("log")).find("goes on\n"), std::string::npos);
}

TEST(FileLogger, ReOpenFollowsTheName) {
    const TestDirectory directory;
    const std::string file = directory.file("log");
    TestLogger logger(file);
    FileLogger_LogInfo(logger, "old");
    std::filesystem::rename(file, directory.file("old"));
    FileLogger_LogInfo(logger, "still old");
    const int fd = logger->fd;
    FileLogger_ReOpen(logger);
    FileLogger_LogInfo(logger, "new");
    EXPECT_EQ(logger->fd, fd);
    EXPECT_EQ(linesOf(contentsOf(directory.file("old"))).size(), 2u);
    EXPECT_EQ(linesOf(contentsOf(file)).size(), 1u);
    FileLogger_ReOpen(logger);  // without truncating
    FileLogger_LogInfo(logger, "newer");
    EXPECT_EQ(linesOf(contentsOf(file)).size(), 2u);
}

// The code page is ISO 8859-1: the file's name has its bytes; reopening converts the UTF-8 name.
VN_CHILD(logsUnderALatinName) {
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger,
                           "gr\xFC\xDF"
                           "e",
                           0, 0);
    FileLogger_LogInfo(logger, "one");
    bool ok = std::string(FileLogger_GetFileName(logger)) ==
              "gr\xFC\xDF"
              "e";
    ok = ok && std::string(FileLogger_GetUTF8FileName(logger)) ==
                   "gr\xC3\xBC\xC3\x9F"
                   "e";
    if (arguments[0] == "signal") {
        raise(SIGHUP);
    } else {
        FileLogger_ReOpen(logger);
    }
    FileLogger_LogInfo(logger, "two");
    ok = ok && std::string(FileLogger_GetFileName(logger)) ==
                   "gr\xC3\xBC\xC3\x9F"
                   "e";
    ok = ok && std::string(FileLogger_GetUTF8FileName(logger)) ==
                   "gr\xC3\xBC\xC3\x9F"
                   "e";
    free(logger->buffer);
    FileLogger_dtor(logger);
    return ok ? 0 : 1;
}

TEST(FileLogger, NamesInTheCodePageAreConverted) {
    for (const char* how : {"call", "signal"}) {
        const TestDirectory directory;
        const ChildResult child =
            runChild("logsUnderALatinName", {.environment = {{"LC_ALL", "de_DE.ISO-8859-1"}},
                                             .arguments = {how},
                                             .workingDirectory = directory.file("")});
        EXPECT_EQ(child.exitStatus, 0) << how << child.err;
        EXPECT_EQ(linesOf(contentsOf(directory.file("gr\xFC\xDF"
                                                    "e")))
                      .size(),
                  2u);
    }
}

// In EBCDIC, "stderr" is other text. The name is compared as the caller gives it.
VN_CHILD(logsToAStandardStreamInEBCDIC) {
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, "stdout", 0, 0);
    bool ok = FileLogger_GetFD(logger) == STDOUT_FILENO;
    FileLogger_SetFilename(logger, "stderr", 0, 0);
    ok = ok && FileLogger_GetFD(logger) == STDERR_FILENO;
    ok = ok && std::string(FileLogger_GetFileName(logger)) == "stderr";
    free(logger->buffer);
    FileLogger_dtor(logger);
    return ok ? 0 : 1;
}

TEST(FileLogger, NamesOfStandardStreamsAreNotConverted) {
    const TestDirectory directory;
    const ChildResult child =
        runChild("logsToAStandardStreamInEBCDIC",
                 {.environment = {{"LC_ALL", "x.ibm-37"}}, .workingDirectory = directory.file("")});
    EXPECT_EQ(child.exitStatus, 0) << child.err;
    EXPECT_TRUE(std::filesystem::is_empty(directory.file("")));
}

// ---- The mutex ----

TEST(FileLogger, UsesAGivenMutexAndLeavesItAlone) {
    const TestDirectory directory;
    vn_Mutex shared;
    vn_Mutex_init(&shared);
    {
        TestLogger logger(directory.file("log"));
        FileLogger_SetMutex(logger, &shared);
        EXPECT_EQ(FileLogger_GetMutex(logger), &shared);
        EXPECT_EQ(logger->ownsMutex, 0);
        vn_Mutex_lock(&shared);
        std::thread writer([&] { FileLogger_LogInfo(logger, "after the caller's"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(contentsOf(directory.file("log")), "");
        vn_Mutex_unlock(&shared);
        writer.join();
        EXPECT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 1u);
    }
    vn_Mutex_lock(&shared);  // neither destroyed nor freed by the cleanup
    vn_Mutex_unlock(&shared);
    vn_Mutex_destroy(&shared);
}

TEST(FileLogger, FreesThePreviousMutexWhoeverOwnsIt) {
    auto* given = static_cast<vn_Mutex*>(malloc(sizeof(vn_Mutex)));  // freed by the second call
    vn_Mutex_init(given);
    vn_Mutex last;
    vn_Mutex_init(&last);
    TestLogger logger;
    FileLogger_SetMutex(logger, given);
    FileLogger_SetMutex(logger, &last);
    EXPECT_EQ(FileLogger_GetMutex(logger), &last);
    FileLogger_SetMutex(logger, &last);
    EXPECT_EQ(FileLogger_GetMutex(logger), &last);
}

}  // namespace
