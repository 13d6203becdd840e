// A line is one write() of all its bytes, whatever the result of the call.
#include <vncommon/file_logger.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <set>
#include <thread>

#include "logging/log_support.h"
#include "support/child_process.h"

namespace {

std::string readOnce(int descriptor) {
    std::string text(1 << 20, '\0');
    const ssize_t length = read(descriptor, text.data(), text.size());
    text.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return text;
}

// Each packet that is read was written by one write().
void expectOnePacketPerLine(int readEnd, int writeEnd, const std::vector<size_t>& lengths) {
    TestLogger logger;
    FileLogger_SetFD(logger, writeEnd);
    for (const size_t length : lengths) {
        const std::string message(length, 'm');
        FileLogger_LogInfo(logger, "%s", message.c_str());
        const std::string packet = readOnce(readEnd);
        ASSERT_FALSE(packet.empty());
        EXPECT_EQ(packet.back(), '\n');
        EXPECT_EQ(Line(packet.substr(0, packet.size() - 1)).message, message);
    }
    EXPECT_EQ(fcntl(readEnd, F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(readOnce(readEnd), "");  // nothing else was written
    close(readEnd);
}

TEST(LineWriting, OneLineIsOnePacketOfASocket) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    expectOnePacketPerLine(ends[0], ends[1], {0, 1, 80, 900, 980, 1024, 5000, 50'000, 100'000});
}

TEST(LineWriting, OneLineIsOnePacketOfAPipe) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT), 0);
    expectOnePacketPerLine(ends[0], ends[1], {0, 1, 80, 900, 980, 1024, 4000});
}

TEST(LineWriting, LinesOfSeveralThreadsNeverMix) {
    constexpr int threadCount = 8;
    constexpr int linesPerThread = 1500;
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            std::minstd_rand random(static_cast<unsigned>(i) + 1);
            for (int number = 0; number < linesPerThread; ++number) {
                const std::string body(10 + random() % 9991, static_cast<char>('a' + i));
                FileLogger_LogInfo(logger, "%d:%d:%zu:%s", i, number, body.size(), body.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<int> next(threadCount);
    std::set<std::string> threadIds;
    for (const std::string& line : linesOf(contentsOf(directory.file("log")))) {
        const Line parts(line);
        int thread, number, start;
        size_t length;
        ASSERT_EQ(sscanf(parts.message.c_str(), "%d:%d:%zu:%n", &thread, &number, &length, &start),
                  3);
        ASSERT_EQ(number, next[static_cast<size_t>(thread)]++);
        ASSERT_EQ(parts.message.substr(static_cast<size_t>(start)),
                  std::string(length, static_cast<char>('a' + thread)));
        threadIds.insert(parts.thread);
    }
    EXPECT_EQ(next, std::vector<int>(threadCount, linesPerThread));
    EXPECT_EQ(threadIds.size(), static_cast<size_t>(threadCount));
}

// ---- Lines that cannot be written ----

VN_CHILD(fillsItsFile) {
    signal(SIGXFSZ, SIG_IGN);
    TestLogger logger("log");
    rlimit limit = {4096, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    for (int i = 0; i < 200; ++i) {
        FileLogger_LogInfo(logger, "%d", i);
    }
    const bool full = std::filesystem::file_size("log") == 4096;
    limit.rlim_cur = RLIM_INFINITY;
    setrlimit(RLIMIT_FSIZE, &limit);
    FileLogger_LogInfo(logger, "room again");
    return full && FileLogger_GetFD(logger) > 2 ? 0 : 1;
}

TEST(LineWriting, AFullFileLosesLinesSilentlyAndLoggingGoesOn) {
    const TestDirectory directory;
    const ChildResult child = runChild("fillsItsFile", {.workingDirectory = directory.file("")});
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
    const std::string text = contentsOf(directory.file("log"));
    EXPECT_EQ(text.substr(text.size() - 11), "room again\n");
    const auto lines = linesOf(text.substr(0, 4000));
    EXPECT_EQ(Line(lines.at(0)).message, "0");
}

TEST(LineWriting, AFullDeviceIsNoError) {
    TestLogger logger("/dev/full");
    for (int i = 0; i < 10; ++i) {
        FileLogger_LogInfo(logger, "lost");
    }
    EXPECT_STREQ(FileLogger_GetFileName(logger), "/dev/full");
    EXPECT_EQ(logger->openFailure, 0);
}

VN_CHILD(logsToAClosedPipe) {
    if (arguments[0] == "ignored") {
        signal(SIGPIPE, SIG_IGN);
    }
    int ends[2];
    if (pipe(ends) != 0) {
        return 1;
    }
    close(ends[0]);
    TestLogger logger;
    FileLogger_SetFD(logger, ends[1]);
    FileLogger_LogInfo(logger, "lost");
    FileLogger_SetFilename(logger, "stderr", 0, 1);
    FileLogger_LogInfo(logger, "goes on");
    return 0;
}

TEST(LineWriting, AClosedPipeRaisesASignalUnlessIgnored) {
    const ChildResult ignoring = runChild("logsToAClosedPipe", {.arguments = {"ignored"}});
    EXPECT_EQ(ignoring.exitStatus, 0);
    EXPECT_EQ(linesOf(ignoring.err).size(), 1u);
    EXPECT_EQ(runChild("logsToAClosedPipe", {.arguments = {"default"}}).signal, SIGPIPE);
}

// ---- Terminals ----

// Logs to a new terminal and prints what arrives there.
VN_CHILD(logsToATerminal) {
    int master, terminal;
    char name[200];
    if (openpty(&master, &terminal, name, nullptr, nullptr) != 0) {
        return 2;
    }
    termios raw;
    tcgetattr(terminal, &raw);
    cfmakeraw(&raw);
    tcsetattr(terminal, TCSANOW, &raw);
    TestLogger logger;
    bool ok = FileLogger_SetFD(logger, terminal) == 1 && logger->console == 1;
    FileLogger_LogInfo(logger, "%s", arguments[0].c_str());
    const std::string byDescriptor = readOnce(master);
    ok = ok && FileLogger_SetFilename(logger, name, 0, 1) == 1;
    raise(SIGHUP);
    ok = ok && logger->console == 1;
    FileLogger_LogInfo(logger, "%s", arguments[0].c_str());
    const std::string byName = readOnce(master);
    ok = ok && Line(byDescriptor).message == Line(byName).message;
    ok = ok && FileLogger_SetFilename(logger, "/dev/null", 0, 1) == 0 && logger->console == 0;
    fputs(Line(byName).message.c_str(), stdout);
    return ok ? 0 : 1;
}

TEST(LineWriting, ATerminalGetsTheLocalesCodePage) {
    const char latin[] = "de_DE.ISO-8859-1";
    const struct {
        const char *locale, *message, *expected;
    } cases[] = {{"de_DE.UTF-8", "gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F\n"},
                 {latin, "gr\xC3\xBC\xC3\x9F", "gr\xFC\xDF\n"},
                 {latin, "\xC3\xBC\xE2\x82\xAC", "\xC3\xBC\xE2\x82\xAC\n"},  // not in Latin-1
                 {latin, "plain", "plain\n"}};
    for (const auto& test : cases) {
        const ChildResult child =
            runChild("logsToATerminal",
                     {.environment = {{"LC_ALL", test.locale}}, .arguments = {test.message}});
        EXPECT_EQ(child.exitStatus, 0) << test.locale << test.message;
        EXPECT_EQ(child.out, test.expected);
    }
}

}  // namespace
