// SIGHUP: reopens every file, loses no line, causes no deadlock, and is passed on to earlier
// handlers.
#include <vncommon/file_logger.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csetjmp>
#include <csignal>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "logging/log_support.h"
#include "support/child_process.h"
#include "support/pause_at_fork.h"

namespace {

using namespace std::chrono_literals;

// Runs body(i) on count threads.
class Threads {
  public:
    template <typename Body>
    Threads(int count, Body body) {
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([body, i] { body(i); });
        }
    }
    ~Threads() {
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    pthread_t handle(size_t i) { return threads[i % threads.size()].native_handle(); }

  private:
    std::vector<std::thread> threads;
};

// How often each message occurs in the files of a directory.
std::map<std::string, int> messagesIn(const std::string& directory) {
    std::map<std::string, int> messages;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        for (const std::string& line : linesOf(contentsOf(entry.path()))) {
            ++messages[Line(line).message];
        }
    }
    return messages;
}

// Expects every message "thread:number" exactly once; written has each thread's count of numbers.
void expectEachOnce(const std::map<std::string, int>& found, const std::vector<int>& written) {
    size_t total = 0;
    for (size_t thread = 0; thread < written.size(); ++thread) {
        for (int number = 0; number < written[thread]; ++number) {
            const std::string message = std::to_string(thread) + ":" + std::to_string(number);
            const auto entry = found.find(message);
            ASSERT_TRUE(entry != found.end()) << message << " is lost";
            ASSERT_EQ(entry->second, 1) << message;
            ++total;
        }
    }
    EXPECT_EQ(found.size(), total);
}

int openDescriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

// ---- Nothing is lost ----

TEST(Rotation, LosesAndDoublesNoLine) {
    constexpr int threadCount = 8;
    constexpr int rotations = 500;
    const TestDirectory directory;
    const std::string file = directory.file("log");
    std::vector<int> written(threadCount);
    {
        TestLogger logger(file);
        std::atomic<bool> done{false};
        Threads writers(threadCount, [&](int i) {
            int& number = written[static_cast<size_t>(i)];
            while (!done) {
                FileLogger_LogInfo(logger, "%d:%d", i, number++);
                if (number % 16 == 0) {  // allows quick rotations on few processors
                    std::this_thread::sleep_for(20us);
                }
            }
        });
        for (int rotation = 0; rotation < rotations; ++rotation) {
            std::filesystem::rename(file, directory.file("log." + std::to_string(rotation)));
            if (rotation % 2 == 0) {
                raise(SIGHUP);
            } else {  // interrupts a thread that is logging
                pthread_kill(writers.handle(static_cast<size_t>(rotation) / 2), SIGHUP);
            }
            // The handler may leave the reopening to a thread that is about to release the lock.
            while (!std::filesystem::exists(file)) {
                std::this_thread::yield();
            }
        }
        done = true;
    }
    expectEachOnce(messagesIn(directory.file("")), written);
}

TEST(Rotation, ReopensEveryLogger) {
    const TestDirectory directory;
    std::vector<std::unique_ptr<TestLogger>> loggers;
    for (int i = 0; i < 20; ++i) {
        loggers.push_back(std::make_unique<TestLogger>(directory.file(std::to_string(i))));
    }
    loggers.erase(loggers.begin() + 3, loggers.begin() + 7);
    for (int i = 0; i < 20; ++i) {
        std::filesystem::remove(directory.file(std::to_string(i)));
    }
    raise(SIGHUP);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(std::filesystem::exists(directory.file(std::to_string(i))), i < 3 || i >= 7);
    }
}

TEST(Rotation, KeepsWhatIsInTheFileAndItsDescriptor) {
    const TestDirectory directory;
    TestLogger logger;
    FileLogger_SetFilename(logger, directory.file("log").c_str(), 1, 1);
    const int fd = FileLogger_GetFD(logger);
    const int descriptors = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        FileLogger_LogInfo(logger, "%d", i);
        raise(SIGHUP);
    }
    EXPECT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 100u);
    EXPECT_EQ(FileLogger_GetFD(logger), fd);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), O_WRONLY | O_APPEND);
}

TEST(Rotation, SkipsLoggersWithoutAName) {
    const TestDirectory directory;
    TestLogger without, onDescriptor, onStream;
    const int fd = open(directory.file("given").c_str(), O_WRONLY | O_CREAT, 0600);
    FileLogger_SetFD(onDescriptor, fd);
    FileLogger_SetFilename(onStream, "stdout", 0, 1);
    raise(SIGHUP);
    EXPECT_EQ(FileLogger_GetFD(without), 2);
    EXPECT_EQ(FileLogger_GetFileName(without), nullptr);
    EXPECT_EQ(FileLogger_GetFD(onDescriptor), fd);
    EXPECT_EQ(FileLogger_GetFileName(onDescriptor), nullptr);
    EXPECT_EQ(FileLogger_GetFD(onStream), 1);
    EXPECT_STREQ(FileLogger_GetFileName(onStream), "stdout");
    FileLogger_LogInfo(onDescriptor, "x");
    EXPECT_EQ(linesOf(contentsOf(directory.file("given"))).size(), 1u);
}

TEST(Rotation, LeavesErrnoAlone) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    errno = EDOM;
    raise(SIGHUP);
    EXPECT_EQ(errno, EDOM);
}

VN_CHILD(rotatesWithoutAFreeDescriptor) {
    TestLogger logger("log");
    rename("log", "old");
    std::vector<int> spare;
    for (int fd = dup(0); fd >= 0; fd = dup(0)) {
        spare.push_back(fd);
    }
    if (arguments[0] == "signal") {
        raise(SIGHUP);
    } else {
        FileLogger_ReOpen(logger);
    }
    FileLogger_LogInfo(logger, "new");
    std::for_each(spare.begin(), spare.end(), close);
    return logger->openFailure;
}

TEST(Rotation, NeedsNoSpareDescriptor) {
    for (const char* how : {"signal", "call"}) {
        const TestDirectory directory;
        const ChildResult child =
            runChild("rotatesWithoutAFreeDescriptor",
                     {.arguments = {how}, .workingDirectory = directory.file("")});
        EXPECT_EQ(child.exitStatus, 0);
        EXPECT_EQ(child.err, "");
        EXPECT_EQ(linesOf(contentsOf(directory.file("log"))).size(), 1u);
    }
}

// ---- A file that cannot be reopened ----

VN_CHILD(losesItsDirectory) {
    const int descriptors = openDescriptors();
    std::filesystem::create_directory("d");
    TestLogger logger("d/log");
    std::atomic<bool> done{false};
    std::vector<int> written(4);
    {
        Threads writers(4, [&](int i) {
            while (!done) {
                FileLogger_LogInfo(logger, "%d:%d", i, written[static_cast<size_t>(i)]++);
            }
        });
        std::this_thread::sleep_for(20ms);
        std::filesystem::rename("d", "moved");
        raise(SIGHUP);
        std::this_thread::sleep_for(20ms);
        done = true;
    }
    bool ok = logger->openFailure == 1 && logger->fd == 2;
    ok = ok && std::string(FileLogger_GetFileName(logger)) == "stderr";
    ok = ok && std::string(FileLogger_GetUTF8FileName(logger)) == "stderr";
    const size_t inFile = linesOf(contentsOf("moved/log")).size();
    FileLogger_LogInfo(logger, "last");
    raise(SIGHUP);  // standard error: nothing to open, nothing to report
    ok = ok && linesOf(contentsOf("moved/log")).size() == inFile;
    for (const int count : written) {
        printf("%d\n", count);
    }
    FileLogger_SetFilename(logger, "again", 0, 1);
    ok = ok && openDescriptors() == descriptors + 1;
    return ok ? 0 : 1;
}

TEST(Rotation, FallsBackToStandardErrorWithoutLosingALine) {
    const TestDirectory directory;
    const ChildResult child =
        runChild("losesItsDirectory", {.workingDirectory = directory.file("")});
    EXPECT_EQ(child.exitStatus, 0);
    std::vector<int> written;
    for (const std::string& count : linesOf(child.out)) {
        written.push_back(atoi(count.c_str()));
    }
    std::map<std::string, int> found = messagesIn(directory.file("moved"));
    int reports = 0;
    for (const std::string& line : linesOf(child.err)) {
        if (line == "Unable to open logfile \"d/log\": No such file or directory") {
            ++reports;
        } else {
            ++found[Line(line).message];
        }
    }
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(found["last"], 1);
    found.erase("last");
    expectEachOnce(found, written);
}

// ---- No deadlock ----

volatile sig_atomic_t passedOn = 0;
std::atomic<unsigned> roundsDone{0};

void count(int) {
    passedOn = passedOn + 1;
}

// Allocates memory, logs, creates and destroys loggers for the given time.
void keepBusy(const std::string& file, unsigned seed, std::chrono::milliseconds time) {
    std::minstd_rand random(seed);
    std::vector<std::string> memory(50);
    TestLogger kept(file + ".kept");
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
        memory[random() % memory.size()].assign(random() % 5000, 'x');
        FileLogger_LogInfo(kept, "kept %s", memory[0].c_str());
        TestLogger logger;
        FileLogger_SetFilename(logger, file.c_str(), 0, 1);
        FileLogger_LogInfo(logger, "%s", memory[1].c_str());
        FileLogger_SetFilename(logger, "/no/such/quiet", 0, 0);
        FileLogger_ReOpen(kept);
        FileLogger_SetFD(logger, 2);
        ++roundsDone;
    }
}

// Sends SIGHUP to the threads in turn during its life. Between two bursts a thread finishes a
// round: on a slow machine the threads would otherwise do nothing but handle signals.
class Storm {
  public:
    explicit Storm(std::vector<pthread_t> targets)
        : thread([this, targets] {
              sigset_t sighup;
              sigemptyset(&sighup);
              sigaddset(&sighup, SIGHUP);
              pthread_sigmask(SIG_BLOCK, &sighup, nullptr);
              for (size_t i = 0; !done; ++i) {
                  pthread_kill(targets[i % targets.size()], SIGHUP);
                  const unsigned before = roundsDone;
                  while (i % 64 == 0 && roundsDone == before && !done) {
                      std::this_thread::sleep_for(50us);
                  }
              }
          }) {}
    ~Storm() {
        done = true;
        thread.join();
    }

  private:
    std::atomic<bool> done{false};
    std::thread thread;
};

VN_CHILD(mainThreadInTheStorm) {
    signal(SIGHUP, count);
    FileLogger_reinstallSignalHandler();
    {
        const Storm storm({pthread_self()});
        do {
            keepBusy("log", 1, 700ms);
        } while (passedOn < 100);  // the runner ends a hang
    }
    return 0;
}

VN_CHILD(allThreadsInTheStorm) {
    FileLogger_reinstallSignalHandler();
    Threads threads(3, [](int i) { keepBusy("log" + std::to_string(i), unsigned(i), 900ms); });
    {
        const Storm storm(
            {pthread_self(), threads.handle(0), threads.handle(1), threads.handle(2)});
        keepBusy("main", 4, 600ms);
    }
    return 0;
}

TEST(Rotation, StormOfSignalsDoesNotDeadlock) {
    for (const char* child : {"mainThreadInTheStorm", "allThreadsInTheStorm"}) {
        const TestDirectory directory;
        const ChildResult result = runChild(child, {.workingDirectory = directory.file("")});
        EXPECT_EQ(result.signal, 0) << child << " hangs";
        EXPECT_EQ(result.exitStatus, 0) << child << result.err;
        for (const std::string& line : linesOf(contentsOf(directory.file("log.kept")))) {
            ASSERT_EQ(Line(line).message.substr(0, 5), "kept ");
        }
    }
}

// ---- Handlers that were installed before ours ----

struct Received {
    int plain = 0;
    int extended = 0;
    int value = 0;
    bool hasContext = false;
};
Received received;
struct sigaction overridden;  // by other code

void plainHandler(int signal) {
    received.plain += signal == SIGHUP;
}

void extendedHandler(int signal, siginfo_t* info, void* context) {
    received.extended += signal == SIGHUP;
    received.value = info->si_value.sival_int;
    received.hasContext = context != nullptr;
}

// A handler of other code that passes the signal on, too.
void chainingHandler(int signal, siginfo_t* info, void* context) {
    ++received.extended;
    overridden.sa_sigaction(signal, info, context);
}

void installExtended(void (*handler)(int, siginfo_t*, void*), struct sigaction* before) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGHUP, &action, before);
}

void sendValue(int value) {
    sigval attached;
    attached.sival_int = value;
    sigqueue(getpid(), SIGHUP, attached);
}

bool exists(const char* file) {
    return access(file, F_OK) == 0;
}

// Raises SIGHUP; returns whether it reopened the logger's file.
bool reopens(const char* file) {
    remove(file);
    raise(SIGHUP);
    return exists(file);
}

VN_CHILD(handlersBefore) {
    const std::string& kind = arguments[0];
    if (kind == "ignored") {
        signal(SIGHUP, SIG_IGN);
    } else if (kind == "plain") {
        signal(SIGHUP, plainHandler);
    } else if (kind == "extended") {
        installExtended(extendedHandler, nullptr);
    } else if (kind == "extended and ignored") {
        struct sigaction action = {};
        action.sa_handler = SIG_IGN;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGHUP, &action, nullptr);
    }
    TestLogger logger("log");
    const bool ok = reopens("log");
    sendValue(77);
    usleep(1000);  // ThreadSanitizer delivers signals during this call
    printf("%d %d %d %d", received.plain, received.extended, received.value, received.hasContext);
    return ok ? 0 : 1;
}

TEST(Rotation, PassesTheSignalOn) {
    const std::pair<const char*, const char*> kinds[] = {{"default", "0 0 0 0"},
                                                         {"ignored", "0 0 0 0"},
                                                         {"plain", "2 0 0 0"},
                                                         {"extended", "0 2 77 1"},
                                                         {"extended and ignored", "0 0 0 0"}};
    for (const auto& [kind, expected] : kinds) {
        const TestDirectory directory;
        const ChildResult child = runChild(
            "handlersBefore", {.arguments = {kind}, .workingDirectory = directory.file("")});
        EXPECT_EQ(child.exitStatus, 0) << kind;
        EXPECT_EQ(child.out, expected) << kind;
    }
}

VN_CHILD(showsItsHandler) {
    signal(SIGHUP, plainHandler);
    TestLogger logger;
    struct sigaction ours;
    sigaction(SIGHUP, nullptr, &ours);
    constexpr int otherFlags = SA_RESTART | SA_NODEFER | static_cast<int>(SA_RESETHAND);
    bool ok = (ours.sa_flags & SA_SIGINFO) != 0 && (ours.sa_flags & otherFlags) == 0;
    for (int signal = 1; signal < 32; ++signal) {
        ok = ok && sigismember(&ours.sa_mask, signal) == 0;
    }
    TestLogger another;
    struct sigaction after;
    sigaction(SIGHUP, nullptr, &after);
    ok = ok && after.sa_sigaction == ours.sa_sigaction;
    return ok && prevsighup.sa_handler == plainHandler ? 0 : 1;
}

TEST(Rotation, HandlerIsInstalledOnceAndSavesTheOneBefore) {
    EXPECT_EQ(runChild("showsItsHandler").exitStatus, 0);
}

VN_CHILD(reinstalls) {
    signal(SIGHUP, plainHandler);
    TestLogger logger("log");
    bool ok = FileLogger_reinstallSignalHandler() == 0;  // our handler is installed: no change
    ok = ok && reopens("log") && received.plain == 1;
    installExtended(extendedHandler, nullptr);
    ok = ok && !reopens("log") && received.extended == 1;
    ok = ok && FileLogger_reinstallSignalHandler() == 0;
    ok = ok && reopens("log") && received.extended == 2 && received.plain == 1;
    ok = ok && prevsighup.sa_sigaction == extendedHandler;
    return ok ? 0 : 1;
}

VN_CHILD(reinstallsOverAChain) {
    TestLogger logger("log");
    installExtended(chainingHandler, &overridden);
    bool ok = reopens("log") && received.extended == 1;  // through the other handler
    ok = ok && FileLogger_reinstallSignalHandler() == 0;
    ok = ok && reopens("log") && received.extended == 2;  // without an endless loop
    return ok && reopens("log") && received.extended == 3 ? 0 : 1;
}

VN_CHILD(installsWithoutALogger) {
    signal(SIGHUP, plainHandler);
    bool ok = FileLogger_reinstallSignalHandler() == 0;
    raise(SIGHUP);
    ok = ok && received.plain == 1;
    TestLogger logger("log");
    return ok && reopens("log") && received.plain == 2 ? 0 : 1;
}

sigjmp_buf outside;
int jumps = 0;

void jump(int) {
    ++jumps;
    siglongjmp(outside, 1);
}

VN_CHILD(jumpsOutOfTheHandlerBefore) {
    signal(SIGHUP, jump);
    TestLogger logger("log");
    while (sigsetjmp(outside, 1) == 0 || jumps < 5) {
        remove("log");
        raise(SIGHUP);
    }
    FileLogger_LogInfo(logger, "x");
    return jumps == 5 && exists("log") ? 0 : 1;
}

TEST(Rotation, ReinstallingKeepsTheChain) {
    for (const char* child : {"reinstalls", "reinstallsOverAChain", "installsWithoutALogger",
                              "jumpsOutOfTheHandlerBefore"}) {
        const TestDirectory directory;
        const ChildResult result = runChild(child, {.workingDirectory = directory.file("")});
        EXPECT_EQ(result.exitStatus, 0) << child;
        EXPECT_EQ(result.signal, 0) << child;
    }
}

// ---- Children, cancelled threads ----

// In the child of a fork: one line, a new logger, a rotation.
[[noreturn]] void logInChild(FileLogger* logger, int number) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a deadlock ends with the parent
    FileLogger_LogInfo(logger, "child %d", number);
    FileLogger* own = FileLogger_ctor();
    FileLogger_SetFilename(own, "own", 0, 1);
    raise(SIGHUP);
    FileLogger_LogInfo(own, "own %d", number);
    quick_exit(0);  // like _exit(), but coverage builds can write their counters
}

VN_CHILD(forksWhileThreadsLog) {
    constexpr int children = 60;
    constexpr int threadCount = 4;
    TestLogger logger("log");
    std::atomic<bool> done{false};
    PauseAtFork pause(threadCount);
    bool ok = true;
    {
        Threads writers(threadCount, [&](int) {
            while (!done) {
                pause.here();
                FileLogger_LogInfo(logger, "parent %s", std::string(2000, 'p').c_str());
                TestLogger registers;
            }
        });
        for (int i = 0; i < children; ++i) {
            const pid_t pid = pause.fork();
            if (pid == 0) {
                logInChild(logger, i);
            }
            int status;
            waitpid(pid, &status, 0);
            ok = ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        done = true;
    }
    const auto found = messagesIn(".");
    for (int i = 0; i < children; ++i) {
        ok = ok && found.count("child " + std::to_string(i)) == 1;
        ok = ok && found.count("own " + std::to_string(i)) == 1;
    }
    return ok && found.size() == 2 * children + 1 ? 0 : 1;
}

TEST(Rotation, AChildAfterForkLogsAndRotates) {
    const TestDirectory directory;
    const ChildResult child =
        runChild("forksWhileThreadsLog", {.workingDirectory = directory.file("")});
    EXPECT_EQ(child.exitStatus, 0) << child.err;
    EXPECT_EQ(child.signal, 0);
}

void* logForEver(void* logger) {
    for (;;) {
        FileLogger_LogInfo(static_cast<FileLogger*>(logger), "x");
        pthread_testcancel();
    }
}

TEST(Rotation, ACancelledThreadLeavesNoLockBehind) {
    const TestDirectory directory;
    TestLogger logger(directory.file("log"));
    for (int i = 0; i < 20; ++i) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, logForEver, static_cast<FileLogger*>(logger)),
                  0);
        std::this_thread::sleep_for(1ms);
        pthread_cancel(thread);
        raise(SIGHUP);
        pthread_join(thread, nullptr);
        FileLogger_LogInfo(logger, "still works");
    }
}

}  // namespace
