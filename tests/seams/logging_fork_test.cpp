// Loggers while the process forks: with pending signals, in several threads at once, from a signal
// handler, and while a log file takes long to open.
//
// Most of these tests look for a hang. Each runs in a separate process, which is killed after a
// time limit; alarm() ends a forked child.
#include <vncommon/file_logger.h>
#include <vncommon/log.h>

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "logging/log_support.h"
#include "support/child_process.h"
#include "support/pause_at_fork.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int childHangSeconds = 300;  // for a forked child

// Waits for a forked child; returns whether it ended with status 0.
bool endsWell(pid_t child) {
    int status;
    pid_t ended;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Not _exit(): ThreadSanitizer takes it for the end of the parent's threads, which do not exist in
// the child.
[[noreturn]] void endChild(int status) {
    quick_exit(status);
}

void expectNoHang(const char* child, const std::vector<std::string>& arguments = {}) {
    const TestDirectory directory;
    const ChildResult result =
        runChild(child, {.arguments = arguments, .workingDirectory = directory.file("")});
    EXPECT_EQ(result.signal, 0) << child << " hangs";
    EXPECT_EQ(result.exitStatus, 0) << child << "\n" << result.out << result.err;
}

bool blocksSighup() {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGHUP) == 1;
}

bool isCancellable() {
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    pthread_setcancelstate(state, nullptr);
    return state == PTHREAD_CANCEL_ENABLE;
}

void blockSighup() {
    sigset_t sighup;
    sigemptyset(&sighup);
    sigaddset(&sighup, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &sighup, nullptr);
}

// Sends SIGHUP to a thread while it lives.
class Hangups {
  public:
    explicit Hangups(pthread_t target)
        : thread_([this, target] {
              blockSighup();
              while (!done_) {
                  pthread_kill(target, SIGHUP);
                  std::this_thread::sleep_for(500us);
              }
          }) {}
    ~Hangups() {
        done_ = true;
        thread_.join();
    }
    Hangups(const Hangups&) = delete;
    Hangups& operator=(const Hangups&) = delete;

  private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

// ---- fork() and SIGHUP ----

VN_CHILD(allocatesAndLogsWhileAThreadForks) {
    TestLogger logger("log");
    std::atomic<bool> done{false};
    std::thread runsPrograms([&done] {
        while (!done) {
            const pid_t child = fork();
            if (child == 0) {
                execl("/bin/true", "true", nullptr);
                endChild(1);
            }
            endsWell(child);
        }
    });
    {
        const Hangups hangups(pthread_self());
        const auto end = Clock::now() + 2s;
        for (int i = 0; Clock::now() < end; ++i) {
            std::vector<std::string> memory(64, std::string(60'000, 'x'));
            memory.resize(1);
            malloc_trim(0);  // holds the heap's lock for a long time
            FileLogger_LogInfo(logger, "%d", i);
        }
    }
    done = true;
    runsPrograms.join();
    return 0;
}

TEST(LoggingAndFork, HangupInsideMallocDuringAForkDoesNotHang) {
    expectNoHang("allocatesAndLogsWhileAThreadForks");
}

// ---- Forks of several threads ----

VN_CHILD(threadsFork) {
    TestLogger logger("log");
    std::atomic<int> blocked{0}, notCancellable{0}, blockedInChild{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!done) {
                const pid_t child = fork();
                if (child == 0) {
                    endChild(blocksSighup() || !isCancellable() ? 1 : 0);
                }
                blockedInChild += !endsWell(child);
                blocked += blocksSighup();
                notCancellable += !isCancellable();
            }
        });
    }
    const auto end = Clock::now() + 1500ms;
    while (Clock::now() < end) {
        FileLogger_ReOpen(logger);
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    printf("SIGHUP blocked %d, in children %d; not cancellable %d\n", blocked.load(),
           blockedInChild.load(), notCancellable.load());
    return blocked + notCancellable + blockedInChild == 0 ? 0 : 1;
}

TEST(LoggingAndFork, ConcurrentForksKeepTheSignalMaskAndTheCancelState) {
    expectNoHang("threadsFork");
}

// ---- A fork while another thread makes the process's logger ----

void join(std::thread& thread) {
    if (thread.joinable()) {
        thread.join();
    }
}

// A sanitizer's heap: see support/pause_at_fork.h.
void waitUnlessChildrenMayAllocate(std::thread& thread) {
    if (!childrenMayAllocate) {
        thread.join();
    }
}

// One thread creates the process's logger while this thread forks children that log.
bool forksWhileTheLoggerIsMade() {
    std::atomic<bool> started{false};
    std::thread makes([&started] {
        started = true;
        VN_LogInfo("parent");
    });
    while (!started) {
    }
    waitUnlessChildrenMayAllocate(makes);
    bool ok = true;
    for (int i = 0; ok && i < 4; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(childHangSeconds);
            VN_LogInfo("child");
            endChild(0);
        }
        ok = endsWell(child);
    }
    join(makes);
    return ok;
}

VN_CHILD(makesTheLoggerInManyProcesses) {
    if (freopen("/dev/null", "w", stderr) == nullptr) {
        return 1;
    }
    const int processes = 150;
    for (int i = 0; i < processes; ++i) {
        const pid_t process = fork();
        if (process == 0) {
            endChild(forksWhileTheLoggerIsMade() ? 0 : 1);
        }
        if (!endsWell(process)) {
            printf("a child hangs in process %d\n", i);
            return 1;
        }
    }
    return 0;
}

TEST(LoggingAndFork, ChildLogsWhileTheParentMakesItsLogger) {
    expectNoHang("makesTheLoggerInManyProcesses");
}

// ---- A signal handler that forks ----

volatile sig_atomic_t forks = 0;
volatile sig_atomic_t badChildren = 0;
volatile sig_atomic_t isChild = 0;

// Not periodic: the interrupted code must make progress even if a fork takes longer than the
// period.
void setAlarm(suseconds_t microseconds) {
    const itimerval once = {{0, 0}, {0, microseconds}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

// The child, too, returns from the handler and continues the interrupted call.
void forkInHandler(int) {
    const int errnoBefore = errno;
    const pid_t child = fork();
    if (child == 0) {
        isChild = 1;
    } else {
        badChildren = badChildren + !endsWell(child);
        forks = forks + 1;
        setAlarm(700);
    }
    errno = errnoBefore;
}

void endInHandler(int) {
    forkInHandler(0);
    if (isChild != 0) {
        endChild(0);
    }
}

// Makes the calls while the handler forks children; returns whether all children ended well.
template <typename Calls>
bool forksDuring(void (*handler)(int), Calls calls) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    setAlarm(700);
    const auto end = Clock::now() + 1500ms;
    while ((Clock::now() < end || forks < 5) && isChild == 0) {
        calls();
    }
    setAlarm(0);
    return badChildren == 0;
}

VN_CHILD(forksInAHandlerWhileReopening) {
    TestLogger logger("log");
    const bool ok = forksDuring(endInHandler, [&] { FileLogger_ReOpen(logger); });
    FileLogger_LogInfo(logger, "still works");
    return ok && linesOf(contentsOf("log")).size() == 1 ? 0 : 1;
}

VN_CHILD(forksInAHandlerDuringAHangup) {
    TestLogger logger("log");
    return forksDuring(endInHandler, [] { raise(SIGHUP); }) ? 0 : 1;
}

// Every line fetches the local time.
VN_CHILD(forksInAHandlerWhileFormattingTheTime) {
    TestLogger logger("log");
    const auto log = [&] {
        logger->prefixTime = 0;
        FileLogger_LogInfo(logger, "line");
    };
    return forksDuring(endInHandler, log) ? 0 : 1;
}

// The thread sanitizer itself allocates in fork() and reports that as unsafe in a handler.
#if defined(__SANITIZE_THREAD__)
constexpr bool canForkInHandlers = false;
#else
constexpr bool canForkInHandlers = true;
#endif

TEST(LoggingAndFork, HandlerThatForksDoesNotWaitForItsOwnThread) {
    if (!canForkInHandlers) {
        GTEST_SKIP() << "not under the thread sanitizer";
    }
    expectNoHang("forksInAHandlerWhileReopening");
    expectNoHang("forksInAHandlerDuringAHangup");
    expectNoHang("forksInAHandlerWhileFormattingTheTime");
}

// The handler's children continue in the middle of the interrupted call.
VN_CHILD(continuesInTheChildOfAHandler) {
    TestLogger logger("log");
    const bool ok = forksDuring(forkInHandler, [&] { FileLogger_ReOpen(logger); });
    if (isChild != 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(childHangSeconds);
        FileLogger_ReOpen(logger);
        raise(SIGHUP);
        logger->prefixTime = 0;
        FileLogger_LogInfo(logger, "child");
        endChild(0);
    }
    return ok ? 0 : 1;
}

TEST(LoggingAndFork, ChildOfAHandlerGoesOnWithTheInterruptedCall) {
    if (!canForkInHandlers) {
        GTEST_SKIP() << "not under the thread sanitizer";
    }
    expectNoHang("continuesInTheChildOfAHandler");
}

// ---- A log file that takes long to open ----

// A FIFO without a reader: open() waits until there is one.
VN_CHILD(logsBesideAReopeningThatWaits) {
    TestLogger slow("slow");
    TestLogger other("other");
    FileLogger_LogInfo(other, "first");
    rename("slow", "old");
    mkfifo("slow", 0600);
    std::thread waits([] { pthread_kill(pthread_self(), SIGHUP); });
    std::this_thread::sleep_for(200ms);
    std::thread runsAProgram([] {
        const pid_t child = fork();
        if (child == 0) {
            endChild(0);
        }
        endsWell(child);
    });
    std::this_thread::sleep_for(200ms);
    const auto start = time(nullptr);
    int lines = 1;
    while (time(nullptr) < start + 3) {  // several new seconds: each needs the local time
        FileLogger_LogInfo(other, "line %d", lines++);
        std::this_thread::sleep_for(10ms);
    }
    const size_t written = linesOf(contentsOf("other")).size();
    const int reader = open("slow", O_RDONLY | O_NONBLOCK);
    waits.join();
    runsAProgram.join();
    close(reader);
    return written == static_cast<size_t>(lines) ? 0 : 1;
}

TEST(LoggingAndFork, SlowOpenStopsNoLineOfOtherLoggers) {
    expectNoHang("logsBesideAReopeningThatWaits");
}

// ---- Local time ----

// The process formats its first local time while it forks; the child must be able to fork again.
bool firstTimeBesideAFork() {
    std::atomic<bool> started{false};
    std::thread formats([&started] {
        TestLogger logger("/dev/null");
        started = true;
        FileLogger_LogInfo(logger, "first");
    });
    while (!started) {
    }
    waitUnlessChildrenMayAllocate(formats);
    bool ok = true;
    for (int i = 0; ok && i < 3; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(childHangSeconds);
            TestLogger logger("/dev/null");
            FileLogger_LogInfo(logger, "child");
            const pid_t grandchild = fork();
            if (grandchild == 0) {
                endChild(0);
            }
            endChild(endsWell(grandchild) ? 0 : 1);
        }
        ok = endsWell(child);
    }
    join(formats);
    return ok;
}

VN_CHILD(formatsTheFirstTimeInManyProcesses) {
    for (int i = 0; i < 100; ++i) {
        const pid_t process = fork();
        if (process == 0) {
            endChild(firstTimeBesideAFork() ? 0 : 1);
        }
        if (!endsWell(process)) {
            return 1;
        }
    }
    return 0;
}

TEST(LoggingAndFork, FirstLocalTimeBesideAForkLeavesTheChildAbleToFork) {
    expectNoHang("formatsTheFirstTimeInManyProcesses");
}

std::string localSecond(time_t second) {
    tm local;
    localtime_r(&second, &local);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

// Not time(): Linux updates its clock only at each tick, so it can still return the previous
// second.
time_t currentSecond() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

VN_CHILD(changesTheTimeZone) {
    TestLogger logger("log");
    for (const char* zone : {"UTC", "Asia/Tokyo", "America/New_York", "XXX-3:30", "UTC"}) {
        setenv("TZ", zone, 1);
        tzset();
        logger->prefixTime = 0;  // as if a new second had begun
        const time_t before = currentSecond();
        FileLogger_LogInfo(logger, "%s", zone);
        const time_t after = currentSecond();
        const std::string written = Line(linesOf(contentsOf("log")).back()).second;
        if (written < localSecond(before) || written > localSecond(after)) {
            printf("%s: %s\n", zone, written.c_str());
            return 1;
        }
    }
    return 0;
}

TEST(LoggingAndFork, ChangedTimeZoneShowsInTheNextSecond) {
    expectNoHang("changesTheTimeZone");
}

}  // namespace
