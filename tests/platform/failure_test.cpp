// The failure convention as callers see it. Code that ends the process runs in a child.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <vncommon/buffers.h>
#include <vncommon/failure.h>
#include <vncommon/threads.h>

#include "support/child_process.h"

namespace {

using testing::AnyOf;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string outOfMemoryLine = "This process is out of memory... exiting\n";
const std::string nullFromAllocator =
    "Fatal error: malloc or similar returned null - this suggests the process has run out of "
    "memory\n";
const std::string memoryLinePattern = "memory used: vm=[0-9]+\\.000000, rss=[0-9]+\\.000000\n";

// By default the sanitizers end the process when an allocation fails, and report a trap as an
// error.
ChildOptions withEnvironment(std::map<std::string, std::optional<std::string>> environment,
                             ChildArguments arguments = {}) {
    environment.insert({{"ASAN_OPTIONS", "allocator_may_return_null=1:handle_sigill=0"},
                        {"TSAN_OPTIONS", "allocator_may_return_null=1:handle_sigill=0"},
                        {"UBSAN_OPTIONS", "handle_sigill=0"},
                        {"LC_ALL", "C"}});
    if (!environment.contains("VN_ABORT_ON_OOM")) {
        environment["VN_ABORT_ON_OOM"] = std::nullopt;
    }
    if (!environment.contains("VN_TRACKMEMORY")) {
        environment["VN_TRACKMEMORY"] = std::nullopt;
    }
    ChildOptions options;
    options.environment = std::move(environment);
    options.arguments = std::move(arguments);
    return options;
}

ChildResult run(const std::string& name, ChildArguments arguments = {}) {
    return runChild(name, withEnvironment({}, std::move(arguments)));
}

void writeToStandardError(const char* text) {
    ASSERT_EQ(write(STDERR_FILENO, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
}

void formatNothing() {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, 0);
    errno = ENOENT;
    vn_strbufAppendFormat(&buffer, "%s", "");
}

void expectAbort(const ChildResult& child, const std::string& message) {
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_THAT(child.err, StartsWith(message));
}

// ---- vn_checkError and vn_strerror ----------------------------------------------------------

VN_CHILD(checkError) {
    errno = atoi(arguments[1].c_str());
    vn_checkError(atoi(arguments[0].c_str()), "reading the table");
    puts("went on");
    return 0;
}

TEST(CheckError, ReportsAndAborts) {
    const ChildResult child = run("checkError", {"5", "2"});
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err,
              "Fatal error: Call failed with code 5: reading the table\n"
              "(strerror(errno)=No such file or directory)\n"
              "(strerror(errcode)=Input/output error)\n");
    EXPECT_EQ(child.out, "");
}

VN_CHILD(checkErrorDescribed) {
    errno = 0;
    vn_checkError(5, std::string(std::stoul(arguments[0]), 'd').c_str());
    return 0;
}

TEST(CheckError, TakesADescriptionOfAnyLength) {
    for (const size_t length : {0U, 900U, 1500U, 100000U}) {
        const ChildResult child = run("checkErrorDescribed", {std::to_string(length)});
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_EQ(child.err, "Fatal error: Call failed with code 5: " + std::string(length, 'd') +
                                 "\n(strerror(errno)=Success)\n"
                                 "(strerror(errcode)=Input/output error)\n");
    }
}

TEST(CheckError, NamesUnknownCodes) {
    const ChildResult child = run("checkError", {"-1", "0"});
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err,
              "Fatal error: Call failed with code -1: reading the table\n"
              "(strerror(errno)=Success)\n"
              "(strerror(errcode)=An unknown error (-1) occurred)\n");
}

TEST(CheckError, IsSilentForZero) {
    const ChildResult child = run("checkError", {"0", "2"});
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.out, "went on\n");
}

std::string strerrorOf(int errnum, size_t size = 1024) {
    std::string buffer(size, '#');
    vn_strerror(buffer.data(), size, errnum);
    return buffer.c_str();
}

TEST(Strerror, GivesTheSystemsMessage) {
    for (int errnum = 0; errnum < 134; ++errnum) {
        if (errnum != 41 && errnum != 58) {  // Linux has no such numbers
            EXPECT_EQ(strerrorOf(errnum), strerror(errnum)) << errnum;
        }
    }
}

TEST(Strerror, NamesUnknownNumbers) {
    for (const int errnum : {41, 58, 134, 99999, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(strerrorOf(errnum), "An unknown error (" + std::to_string(errnum) + ") occurred");
    }
}

TEST(Strerror, TakesAMessageThatJustFits) {
    EXPECT_EQ(strerrorOf(ENOENT, sizeof "No such file or directory"), "No such file or directory");
}

TEST(Strerror, TakesAFallbackThatLeavesOneByte) {
    EXPECT_EQ(strerrorOf(99999, sizeof "An unknown error (99999) occurred" + 1),
              "An unknown error (99999) occurred");
}

VN_CHILD(strerrorInto) {
    strerrorOf(atoi(arguments[0].c_str()), strtoul(arguments[1].c_str(), nullptr, 10));
    return 0;
}

TEST(Strerror, AbortsWhenTheFallbackFillsTheBuffer) {
    const std::string exactly = std::to_string(sizeof "An unknown error (99999) occurred");
    for (const ChildArguments& arguments :
         {ChildArguments{"2", "1"}, {"2", "25"}, {"99999", exactly}, {"99999", "1"}}) {
        const ChildResult child = run("strerrorInto", arguments);
        EXPECT_EQ(child.signal, SIGABRT) << arguments[1];
        EXPECT_EQ(child.err, "Fatal error: error message buffer too small\n");
    }
}

// ---- Checked allocation ----------------------------------------------------------------------

volatile size_t tooMuch = PTRDIFF_MAX - 4096;  // volatile: unknown to the compiler

VN_CHILD(mallocTooMuch) {
    (void)vn_malloc(tooMuch);
    return 0;
}
VN_CHILD(reallocTooMuch) {
    (void)vn_realloc(vn_malloc(1), tooMuch);
    return 0;
}
VN_CHILD(reallocToNothing) {
    volatile size_t nothing = 0;
    (void)vn_realloc(vn_malloc(1), nothing);
    return 0;
}
VN_CHILD(checkNull) {
    vn_setOutOfMemoryCallBack([] { writeToStandardError("callback\n"); });
    vn_checkMemory(nullptr);
    return 0;
}

TEST(Allocation, NullEndsTheProcess) {
    expectAbort(run("checkNull"), nullFromAllocator);
    EXPECT_EQ(run("checkNull").err, nullFromAllocator);  // no callback, no memory line
    for (const char* child : {"mallocTooMuch", "reallocTooMuch", "reallocToNothing"}) {
        const ChildResult result = run(child);
        EXPECT_EQ(result.signal, SIGABRT) << child;
        // A sanitizer's allocator may have warned before.
        EXPECT_THAT(result.err, testing::EndsWith(nullFromAllocator)) << child;
    }
}

TEST(Allocation, WorksLikeThePlatforms) {
    int local = 0;
    vn_checkMemory(&local);
    auto* block = static_cast<char*>(vn_malloc(3));
    memcpy(block, "ab", 3);
    block = static_cast<char*>(vn_realloc(block, 100000));
    EXPECT_STREQ(block, "ab");
    vn_free(block);
    vn_free(nullptr);
    free(vn_malloc(0));  // either function frees either block
    vn_free(vn_realloc(nullptr, 8));
    vn_free(malloc(8));
}

TEST(Allocation, StrdupCopies) {
    const char text[] = "text";
    char* copy = vn_strdup(text);
    EXPECT_STREQ(copy, "text");
    EXPECT_NE(copy, text);
    vn_free(copy);
}

TEST(Allocation, StrndupCutsAndTerminates) {
    const struct {
        const char* text;
        size_t maximum;
        const char* expected;
    } cases[] = {{"abcdef", 3, "abc"},   {"ab", 10, "ab"}, {"ab", 2, "ab"},
                 {"ab", SIZE_MAX, "ab"}, {"ab", 0, ""},    {"", 5, ""}};
    for (const auto& [text, maximum, expected] : cases) {
        char* copy = vn_strndup(text, maximum);
        EXPECT_STREQ(copy, expected);
        vn_free(copy);
    }
}

VN_CHILD(duplicateNull) {
    return vn_strdup(nullptr) == nullptr && vn_strndup(nullptr, 3) == nullptr ? 0 : 1;
}

TEST(Allocation, DuplicatingNullWarnsAndGivesNull) {
    const ChildResult child = run("duplicateNull");
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "Warning: NULL passed to strdup\nWarning: NULL passed to strdup\n");
}

// ---- Standard error with a buffer --------------------------------------------------------------

using Report = void (*)();
const std::map<std::string, Report> fatalReports = {
    {"checkError", [] { vn_checkError(5, "reading"); }},
    {"checkMemory", [] { vn_checkMemory(nullptr); }},
    {"malloc", [] { (void)vn_malloc(tooMuch); }},
    {"realloc", [] { (void)vn_realloc(nullptr, tooMuch); }},
    {"strerror", [] { strerrorOf(ENOENT, 1); }},
    {"format", formatNothing},
    {"thread", [] { vn_createThread(nullptr, nullptr, false); }},
    {"condition", [] { vn_Condition_init(nullptr); }},
    {"semaphore", [] { vn_Semaphore_init(nullptr, 0); }},
};

VN_CHILD(fatalIntoABuffer) {
    static char buffer[65536];
    setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
    errno = ENOENT;
    fatalReports.at(arguments[0])();
    return 0;
}

TEST(FatalTexts, AreFlushedFromABufferedStandardError) {
    const std::string errorTexts =
        "(strerror(errno)=No such file or directory)\n(strerror(errcode)=";
    const std::string uninitialised = "C threading library used without first being initialised\n";
    const std::map<std::string, std::string> texts = {
        {"checkError",
         "Fatal error: Call failed with code 5: reading\n" + errorTexts + "Input/output error)\n"},
        {"checkMemory", nullFromAllocator},
        {"malloc", nullFromAllocator},
        {"realloc", nullFromAllocator},
        {"strerror", "Fatal error: error message buffer too small\n"},
        {"format", "Fatal error: Call failed with code 1: vn_strbufAppendFormat: vsnprintf\n" +
                       errorTexts + "Operation not permitted)\n"},
        {"thread", uninitialised},
        {"condition", uninitialised},
        {"semaphore", uninitialised},
    };
    for (const auto& [name, report] : fatalReports) {
        const ChildResult child = run("fatalIntoABuffer", {name});
        EXPECT_EQ(child.signal, SIGABRT) << name;
        // A sanitizer's allocator may have warned before.
        EXPECT_THAT(child.err, testing::EndsWith(texts.at(name))) << name;
    }
}

// Reports that the process survives. The child then ends without flushing any stream.
const std::map<std::string, Report> survivedReports = {
    {"strdup", [] { EXPECT_EQ(vn_strdup(nullptr), nullptr); }},
    {"strndup", [] { EXPECT_EQ(vn_strndup(nullptr, 3), nullptr); }},
    {"slot",
     [] {
         vn_ThreadLocal never = PTHREAD_KEYS_MAX;
         vn_ThreadLocal_destroy(&never);
     }},
};

VN_CHILD(survivedIntoABuffer) {
    static char buffer[65536];
    setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
    errno = ENOENT;
    survivedReports.at(arguments[0])();
    _exit(9);
}

TEST(SurvivedTexts, AreFlushedFromABufferedStandardError) {
    const std::string warning = "Warning: NULL passed to strdup\n";
    const std::map<std::string, std::string> texts = {
        {"strdup", warning},
        {"strndup", warning},
        {"slot",
         "Fatal error: System call pthread_key_delete failed\n"
         "(strerror(errno)=No such file or directory)\n"
         "(strerror(errcode)=Invalid argument)\n"},
    };
    for (const auto& [name, report] : survivedReports) {
        const ChildResult child = run("survivedIntoABuffer", {name});
        EXPECT_EQ(child.exitStatus, 9) << name;
        EXPECT_EQ(child.err, texts.at(name));
    }
}

// ---- One-line wrappers -----------------------------------------------------------------------

TEST(Wrappers, SystimeIsTheWallClockInMilliseconds) {
    const auto now = [] {
        timespec time;
        clock_gettime(CLOCK_REALTIME, &time);
        return static_cast<uint64_t>(time.tv_sec) * 1000 +
               static_cast<uint64_t>(time.tv_nsec) / 1000000;
    };
    const uint64_t before = now();
    const uint64_t time = vn_systime();
    const uint64_t after = now();
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST(Wrappers, StrcasecmpIsThePlatforms) {
    EXPECT_EQ(vn_strcasecmp("Text", "tEXT"), 0);
    const char* const texts[] = {"", "a", "B", "ab", "AC", "[", "z", "\xc3\xa9", "\xc3\x89"};
    for (const char* a : texts) {
        for (const char* b : texts) {
            EXPECT_EQ(vn_strcasecmp(a, b), strcasecmp(a, b)) << a << " " << b;
        }
    }
}

// ---- Immediate exit --------------------------------------------------------------------------

struct SpeaksAtExit {
    ~SpeaksAtExit() {
        if (speaks) {
            writeToStandardError("static destructor\n");
        }
    }
    bool speaks = false;
} speaksAtExit;

void speakAtExit() {
    speaksAtExit.speaks = true;
    atexit([] { writeToStandardError("exit handler\n"); });
}

VN_CHILD(immediateExit) {
    speakAtExit();
    printf("buffered");
    vn_immediateExit(atoi(arguments[0].c_str()));
}

VN_CHILD(ordinaryExit) {
    speakAtExit();
    return 0;
}

TEST(ImmediateExit, FlushesAndSkipsTheRest) {
    ASSERT_EQ(run("ordinaryExit").err, "exit handler\nstatic destructor\n");
    for (const int status : {0, 1, 77}) {
        const ChildResult child = run("immediateExit", {std::to_string(status)});
        EXPECT_EQ(child.exitStatus, status);
        EXPECT_EQ(child.out, "buffered");
        EXPECT_EQ(child.err, "");
    }
}

// A stream that reports when it is flushed: its name, and whether the exit has begun.
FILE* tellingStream(const char* name) {
    const auto tell = [](void* cookie, const char*, size_t size) {
        writeToStandardError(static_cast<const char*>(cookie));
        writeToStandardError(vn_inImmediateExit() ? " in exit\n" : " not in exit\n");
        return static_cast<ssize_t>(size);
    };
    FILE* stream = fopencookie(const_cast<char*>(name), "w",
                               {.read = nullptr, .write = tell, .seek = nullptr, .close = nullptr});
    setvbuf(stream, nullptr, _IOFBF, 4096);
    return stream;
}

VN_CHILD(immediateExitOrder) {
    stdout = tellingStream("stdout");
    stderr = tellingStream("stderr");
    fputs("x", stderr);
    fflush(stderr);
    fputs("x", stderr);
    fputs("x", stdout);
    vn_immediateExit(3);
}

TEST(ImmediateExit, IsKnownWhileStandardOutputThenErrorAreFlushed) {
    EXPECT_FALSE(vn_inImmediateExit());
    const ChildResult child = run("immediateExitOrder");
    EXPECT_EQ(child.exitStatus, 3);
    EXPECT_EQ(child.err, "stderr not in exit\nstdout in exit\nstderr in exit\n");
}

// ---- Out of memory ---------------------------------------------------------------------------

VN_CHILD(outOfMemory) {
    speakAtExit();
    printf("buffered");
    if (!arguments.empty()) {
        vn_setOutOfMemoryCallBack([] { writeToStandardError("replaced\n"); });
        vn_setOutOfMemoryCallBack([] { writeToStandardError("callback\n"); });
        if (arguments[0] == "cleared") {
            vn_setOutOfMemoryCallBack(nullptr);
        }
    }
    vn_outOfMemory();
}

TEST(OutOfMemory, ReportsAndExits) {
    for (const ChildArguments& arguments : {ChildArguments{}, {"cleared"}}) {
        const ChildResult child = run("outOfMemory", arguments);
        EXPECT_EQ(child.exitStatus, 1);
        EXPECT_EQ(child.out, "buffered");
        EXPECT_THAT(child.err, MatchesRegex(outOfMemoryLine + memoryLinePattern));
    }
}

TEST(OutOfMemory, CallsTheCallbackBetweenTheLines) {
    const ChildResult child = run("outOfMemory", {"installed"});
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_THAT(child.err, MatchesRegex(outOfMemoryLine + "callback\n" + memoryLinePattern));
}

TEST(OutOfMemory, ReportsBytes) {
    const ChildResult child = run("outOfMemory");
    double vm = 0;
    double rss = 0;
    ASSERT_EQ(sscanf(child.err.c_str() + outOfMemoryLine.size(), "memory used: vm=%lf, rss=%lf",
                     &vm, &rss),
              2);
    EXPECT_GT(rss, 1e5);
    EXPECT_GT(vm, rss);
}

TEST(OutOfMemory, TrapsWhenAsked) {
    for (const char* value : {"", "0", "1"}) {
        const ChildResult child =
            runChild("outOfMemory", withEnvironment({{"VN_ABORT_ON_OOM", value}}, {"installed"}));
        EXPECT_THAT(child.signal, AnyOf(SIGILL, SIGTRAP, SIGFPE, SIGSEGV, SIGBUS));
        EXPECT_EQ(child.out, "");  // nothing is flushed
        EXPECT_EQ(child.err, outOfMemoryLine + "callback\n");
    }
}

VN_CHILD(outOfMemoryTwice) {
    vn_setOutOfMemoryCallBack([] {
        writeToStandardError("callback\n");
        vn_outOfMemory();
    });
    vn_outOfMemory();
}

TEST(OutOfMemory, EnteredFromItsCallbackOnlyRepeatsTheFirstLine) {
    const ChildResult child = run("outOfMemoryTwice");
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_EQ(child.err, outOfMemoryLine + "callback\n" + outOfMemoryLine);
}

// A pipe in packet mode shows which bytes came in one write().
std::vector<std::string> packetsOfOutOfMemory() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_DIRECT | O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDERR_FILENO);
        vn_outOfMemory();
    }
    close(ends[1]);
    std::vector<std::string> packets;
    char packet[4096];
    ssize_t count;
    while ((count = read(ends[0], packet, sizeof packet)) > 0) {
        packets.emplace_back(packet, static_cast<size_t>(count));
    }
    close(ends[0]);
    waitpid(pid, nullptr, 0);
    return packets;
}

TEST(OutOfMemory, WritesEachLineAtOnce) {
    const std::vector<std::string> packets = packetsOfOutOfMemory();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0], outOfMemoryLine);
    EXPECT_EQ(packets[0].size(), 41U);
    EXPECT_THAT(packets[1], MatchesRegex(memoryLinePattern));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Sanitizers need more address space than this limit leaves.
VN_CHILD(outOfMemoryInEarnest) {
    const rlimit nothingMore = {.rlim_cur = 1, .rlim_max = 1};
    setrlimit(RLIMIT_AS, &nothingMore);
    for (const size_t size : {size_t{4096}, size_t{16}}) {
        while (void* volatile block = malloc(size)) {
            static_cast<void>(block);
        }
    }
    vn_outOfMemory();
}

TEST(OutOfMemory, WorksWithAnExhaustedHeap) {
    const ChildResult child = run("outOfMemoryInEarnest");
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_THAT(child.err, MatchesRegex(outOfMemoryLine + "memory used: vm=[1-9][0-9]+\\.000000, "
                                                          "rss=[1-9][0-9]+\\.000000\n"));
}
#endif

// ---- Memory counter --------------------------------------------------------------------------

using memorycounter::MemoryDiagnostics;

VN_CHILD(count) {
    printf("%d %ld", MemoryDiagnostics::_enabled, getMallocMemoryAllocated());
    countMemoryAllocated(150);
    countMemoryFreed(50);
    printf(" %ld", getMallocMemoryAllocated());
    printf(" %d", arguments[0] == "member" ? MemoryDiagnostics::checkEnabled()
                                           : checkMemoryTrackingEnabled());
    countMemoryAllocated(7);
    countMemoryFreed(300);
    printf(" %d %ld", MemoryDiagnostics::_enabled, getMallocMemoryAllocated());
    // The first call has decided; later changes of the variable have no effect.
    setenv("VN_TRACKMEMORY", "1", 1);
    printf(" %d %d", checkMemoryTrackingEnabled(), MemoryDiagnostics::checkEnabled());
    return 0;
}

TEST(MemoryCounter, StopsAtTheFirstCheckUnlessEnabled) {
    for (const char* form : {"member", "function"}) {
        EXPECT_EQ(run("count", {form}).out, "1 0 100 0 0 100 0 0");
    }
}

TEST(MemoryCounter, ContinuesWhenEnabled) {
    for (const char* form : {"member", "function"}) {
        for (const char* value : {"", "0", "yes"}) {
            const ChildResult child =
                runChild("count", withEnvironment({{"VN_TRACKMEMORY", value}}, {form}));
            EXPECT_EQ(child.out, "1 0 100 1 1 -193 1 1");
        }
    }
}

VN_CHILD(countFromThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 20000; ++j) {
                countMemoryAllocated(3);
                countMemoryFreed(1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    printf("%ld", getMallocMemoryAllocated());
    return 0;
}

TEST(MemoryCounter, LosesNoCount) {
    EXPECT_EQ(run("countFromThreads").out, "160000");
}

static_assert(std::is_same_v<decltype(&vn_checkMemory), void (*)(void*)>);
static_assert(std::is_same_v<decltype(&vn_strerror), void (*)(char*, size_t, int)>);
static_assert(std::is_same_v<decltype(&vn_systime), uint64_t (*)()>);
static_assert(std::is_same_v<decltype(&checkMemoryTrackingEnabled), int (*)()>);
static_assert(std::is_same_v<decltype(&getMallocMemoryAllocated), int64_t (*)()>);

}  // namespace
