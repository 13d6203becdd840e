// User, directory, environment and stack trace.
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/process_sources.h"
#include "support/child_checks.h"

namespace {

std::string takeText(char* text) {
    const std::string copy = text != nullptr ? text : "(null)";
    free(text);
    return copy;
}

size_t linesOf(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST(Process, Id) {
    EXPECT_EQ(vn_getProcessId(), getpid());
}

TEST(Process, DummyDoesNothing) {
    VN_dummyFunction();
}

// ---- User name ----

TEST(UserName, IsTheEffectiveUsers) {
    const passwd* entry = getpwuid(geteuid());
    EXPECT_EQ(takeText(vn_getUTF8UserName()),
              entry != nullptr ? entry->pw_name : std::to_string(geteuid()));
}

TEST(UserName, FallsBackToTheNumber) {
    EXPECT_EQ(takeText(vncommon::userName(1024, 3999999990u)), "-294967306");  // "%d"
    EXPECT_EQ(takeText(vncommon::userName(1024, 1234567)), "1234567");
    EXPECT_EQ(takeText(vncommon::userName(1, 0)), "0") << "an entry that does not fit";
}

TEST(UserName, IsUnknownWithoutARecordSize) {
    EXPECT_EQ(takeText(vncommon::userName(-1, geteuid())), "unknown");
}

// ---- Current directory ----

VN_CHILD(descends) {
    const std::string component = arguments.at(0);
    const size_t levels = std::stoul(arguments.at(1));
    char root[] = "/tmp/vndeepXXXXXX";
    CHECK(mkdtemp(root) != nullptr && chdir(root) == 0);
    std::string expected = root;
    for (size_t i = 0; i < levels; ++i) {
        CHECK(mkdir(component.c_str(), 0700) == 0 && chdir(component.c_str()) == 0);
        expected += "/" + component;
    }
    const std::string directory = takeText(vn_getUTF8CurrentDirectory());
    for (size_t i = 0; i < levels; ++i) {
        CHECK(chdir("..") == 0 && rmdir(component.c_str()) == 0);
    }
    CHECK(chdir("/") == 0 && rmdir(root) == 0);
    // In another code page the directory is a text converted to UTF-8, so it differs.
    puts(directory == expected ? "as it is" : directory.c_str() + strlen(root));
    return 0;
}

std::string directoryAfter(const std::string& component, size_t levels, const char* locale) {
    const ChildResult child = runChild(
        "descends",
        {.environment = {{"LC_ALL", locale}}, .arguments = {component, std::to_string(levels)}});
    EXPECT_EQ(child.exitStatus, 0) << child.err;
    return child.out;
}

TEST(CurrentDirectory, IsTheSystems) {
    char expected[PATH_MAX];
    ASSERT_NE(getcwd(expected, sizeof expected), nullptr);
    EXPECT_EQ(takeText(vn_getUTF8CurrentDirectory()), expected);
}

TEST(CurrentDirectory, MayBeDeep) {
    const std::string component(200, 'd');
    for (const size_t levels : {1u, 19u, 20u, 21u, 40u, 41u, 85u}) {  // up to 17,000 bytes
        EXPECT_EQ(directoryAfter(component, levels, "C.UTF-8"), "as it is\n") << levels;
    }
}

TEST(CurrentDirectory, IsConvertedFromTheCodePage) {
    EXPECT_EQ(directoryAfter("caf\xc3\xa9", 1, "en_US.UTF-8"), "as it is\n");
    EXPECT_EQ(directoryAfter("caf\xe9", 1, "de_DE.ISO-8859-1"), "/caf\xc3\xa9\n");
}

VN_CHILD(removedDirectory) {
    char root[] = "/tmp/vngoneXXXXXX";
    CHECK(mkdtemp(root) != nullptr && chdir(root) == 0 && rmdir(root) == 0);
    errno = 0;
    CHECK(vn_getUTF8CurrentDirectory() == nullptr);
    CHECK(errno == ENOENT);
    return 0;
}

TEST(CurrentDirectory, IsNullWhenItIsGone) {
    const ChildResult child = runChild("removedDirectory");
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}

// ---- Environment ----

TEST(Environment, IsACopy) {
    setenv("VN_TEST_VARIABLE", "a=b", 1);
    char** copy = vn_getEnvironUTF8();
    size_t count = 0;
    for (; environ[count] != nullptr; ++count) {
        ASSERT_STREQ(copy[count], environ[count]);
        EXPECT_NE(copy[count], environ[count]);
    }
    EXPECT_EQ(copy[count], nullptr);
    vn_freeEnvironUTF8(copy);
    vn_freeEnvironUTF8(nullptr);
    unsetenv("VN_TEST_VARIABLE");
}

TEST(Environment, MayHoldAnything) {
    char plain[] = "NAME=value", none[] = "no sign", empty[] = "", odd[] = "=x";
    char* entries[] = {plain, none, empty, odd, nullptr};
    char** const before = environ;
    environ = entries;
    char** copy = vn_getEnvironUTF8();
    char* noEntries[] = {nullptr};
    environ = noEntries;
    char** emptyCopy = vn_getEnvironUTF8();
    environ = nullptr;
    char** nullCopy = vn_getEnvironUTF8();
    environ = before;

    EXPECT_STREQ(copy[0], "NAME=value");
    EXPECT_STREQ(copy[1], "no sign");
    EXPECT_STREQ(copy[2], "");
    EXPECT_STREQ(copy[3], "=x");
    EXPECT_EQ(copy[4], nullptr);
    EXPECT_EQ(emptyCopy[0], nullptr);
    EXPECT_EQ(nullCopy[0], nullptr);
    vn_freeEnvironUTF8(copy);
    vn_freeEnvironUTF8(emptyCopy);
    vn_freeEnvironUTF8(nullCopy);
}

VN_CHILD(printsItsEnvironment) {
    char** copy = vn_getEnvironUTF8();
    for (char** entry = copy; *entry != nullptr; ++entry) {
        if (strncmp(*entry, "VN_TEST_", 8) == 0) {
            puts(*entry);
        }
    }
    vn_freeEnvironUTF8(copy);
    return 0;
}

TEST(Environment, IsConvertedFromTheCodePage) {
    const ChildResult child =
        runChild("printsItsEnvironment",
                 {.environment = {{"LC_ALL", "de_DE.ISO-8859-1"}, {"VN_TEST_NAME", "caf\xe9"}}});
    EXPECT_EQ(child.out, "VN_TEST_NAME=caf\xc3\xa9\n");
}

// ---- Stack trace ----

namespace {

int pretendedFrames = 0;  // 0: use the real stack

}  // namespace

// Replaces glibc's backtrace. A simulated stack has no final empty entry, which glibc adds only if
// it can unwind to the end.
extern "C" [[gnu::noinline]] int backtrace(void** frames, int size) {
    using Backtrace = int (*)(void**, int);
    static const Backtrace systems = reinterpret_cast<Backtrace>(dlsym(RTLD_NEXT, "backtrace"));
    if (pretendedFrames == 0) {
        return systems(frames, size);
    }
    const int count = std::min(pretendedFrames, size);
    std::fill(frames, frames + count, reinterpret_cast<void*>(systems));
    return count;
}

namespace {

// The number of frames that backtrace() returns here, without the final empty entry.
[[gnu::noinline]] size_t framesHere() {
    void* frames[1000];
    return static_cast<size_t>(backtrace(frames, 1000));
}

// Prints a trace from the given depth of calls; returns the number of frames there.
[[gnu::noinline]] size_t traceFrom(int depth) {
    size_t frames = 0;
    if (depth > 0) {
        frames = traceFrom(depth - 1);
    } else {
        frames = framesHere();
        vn_stackTrace(STDOUT_FILENO);
    }
    asm volatile("" : "+r"(frames));  // keeps this frame on the stack
    return frames;
}

void endTrace() {
    [[maybe_unused]] const ssize_t ignored = write(STDOUT_FILENO, "--\n", 3);
}

// The number of lines of each of a child's traces.
std::vector<size_t> linesOfTraces(std::string out) {
    std::vector<size_t> lines;
    for (size_t end; (end = out.find("--\n")) != std::string::npos; out.erase(0, end + 3)) {
        lines.push_back(linesOf(out.substr(0, end)));
    }
    return lines;
}

}  // namespace

// Each argument: a number of pretended frames.
VN_CHILD(tracesPretendedFrames) {
    for (const std::string& frames : arguments) {
        pretendedFrames = std::stoi(frames);
        vn_stackTrace(STDOUT_FILENO);
        endTrace();
    }
    return 0;
}

// Each argument: a depth to trace from. The true numbers of frames go to standard error.
VN_CHILD(traces) {
    for (const std::string& depth : arguments) {
        fprintf(stderr, "%zu\n", traceFrom(std::stoi(depth)));
        endTrace();
    }
    return 0;
}

TEST(StackTrace, IsPossible) {
    EXPECT_TRUE(vn_canStackTrace());
}

TEST(StackTrace, PrintsAllButTheLastFrame) {
    // vn_stackTrace is called from the same function as framesHere(), so both have the same number
    // of frames. The trace lacks the last one.
    for (const char* depth : {"0", "1", "30"}) {
        const ChildResult child = runChild("traces", {.arguments = {depth}});
        EXPECT_EQ(linesOfTraces(child.out), std::vector<size_t>{std::stoul(child.err) - 1});
    }
}

TEST(StackTrace, PrintsSixtyFourFramesAtMost) {
    const ChildResult child = runChild("traces", {.arguments = {"100"}});
    EXPECT_EQ(linesOfTraces(child.out), std::vector<size_t>{64});
}

TEST(StackTrace, PrintsLeftoverFramesOfADeeperTrace) {
    const ChildResult child =
        runChild("tracesPretendedFrames", {.arguments = {"1", "5", "20", "3", "63", "64", "2"}});
    EXPECT_EQ(linesOfTraces(child.out), (std::vector<size_t>{0, 4, 19, 19, 62, 64, 64}));
}

TEST(StackTrace, CountsUpToTheFirstEmptyEntry) {
    void* frames[vncommon::maximumTraceFrames] = {};
    int frame;
    EXPECT_EQ(vncommon::printedTraceFrames(frames), -1);
    frames[0] = &frame;
    EXPECT_EQ(vncommon::printedTraceFrames(frames), 0);
    frames[1] = frames[3] = &frame;
    EXPECT_EQ(vncommon::printedTraceFrames(frames), 1);
    std::fill(std::begin(frames), std::end(frames), &frame);
    EXPECT_EQ(vncommon::printedTraceFrames(frames), 64);
    frames[63] = nullptr;
    EXPECT_EQ(vncommon::printedTraceFrames(frames), 62);
}
