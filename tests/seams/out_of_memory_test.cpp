// The out-of-memory exit, called by several threads, from its own callback, and again after a
// callback that did not return.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <vncommon/failure.h>

#include "support/child_process.h"

namespace {

using testing::MatchesRegex;

const std::string outOfMemoryLine = "This process is out of memory... exiting\n";
const std::string memoryLine = "memory used: vm=[0-9]+\\.000000, rss=[0-9]+\\.000000\n";

// By default ThreadSanitizer waits at the exit of each process for reports of other threads.
std::string sanitizerOptions() {
    const char* options = getenv("TSAN_OPTIONS");
    return std::string(options != nullptr ? options : "") + " atexit_sleep_ms=50";
}

ChildResult run(const std::string& name) {
    return runChild(name, {.environment = {{"VN_ABORT_ON_OOM", std::nullopt},
                                           {"TSAN_OPTIONS", sanitizerOptions()}}});
}

void say(const char* text) {
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text, strlen(text));
}

size_t countOf(const std::string& part, const std::string& text) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// ---- Two threads -----------------------------------------------------------------------------

// Lets threads continue at the same time.
class Gate {
  public:
    explicit Gate(int threads) : missing_(threads) {}
    void pass() {
        --missing_;
        while (missing_ > 0) {
        }
    }

  private:
    std::atomic<int> missing_;
};

VN_CHILD(twoThreads) {
    vn_setOutOfMemoryCallBack([] { say("callback\n"); });
    Gate gate(2);
    std::thread([&gate] {
        gate.pass();
        vn_outOfMemory();
    }).detach();
    gate.pass();
    vn_outOfMemory();
}

TEST(OutOfMemory, WritesTheMemoryLineOnceWhenTwoThreadsEnter) {
    for (int round = 0; round < 60; ++round) {
        const ChildResult child = run("twoThreads");
        ASSERT_EQ(child.exitStatus, 1) << child.err;
        ASSERT_EQ(countOf("memory used: ", child.err), 1U) << child.err;
        ASSERT_LE(countOf("callback\n", child.err), 1U) << child.err;
        ASSERT_THAT(child.err,
                    MatchesRegex("(" + outOfMemoryLine + "|callback\n|" + memoryLine + ")+"));
    }
}

VN_CHILD(threadBesideCallback) {
    vn_setOutOfMemoryCallBack([] {
        say("callback\n");
        std::thread(vn_outOfMemory).detach();
        for (;;) {
            pause();
        }
    });
    vn_outOfMemory();
}

TEST(OutOfMemory, InASecondThreadDoesNotWaitForTheCallback) {
    const ChildResult child = run("threadBesideCallback");
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_THAT(child.err,
                MatchesRegex(outOfMemoryLine + "callback\n" + outOfMemoryLine + memoryLine));
}

VN_CHILD(changingCallback) {
    Gate gate(4);
    const auto change = [&gate] {
        gate.pass();
        for (;;) {
            vn_setOutOfMemoryCallBack([] {});
            vn_setOutOfMemoryCallBack(nullptr);
        }
    };
    std::thread(change).detach();
    std::thread(change).detach();
    std::thread([&gate] {
        gate.pass();
        while (!vn_inImmediateExit()) {
        }
    }).detach();
    gate.pass();
    usleep(20000);
    vn_outOfMemory();
}

TEST(OutOfMemory, TakesACallbackThatOthersAreChanging) {
    const ChildResult child = run("changingCallback");
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_THAT(child.err, MatchesRegex(outOfMemoryLine + memoryLine));
}

// ---- Callbacks that call it again ------------------------------------------------------------

VN_CHILD(callbackWithSuccessor) {
    vn_setOutOfMemoryCallBack([] {
        say("first\n");
        vn_setOutOfMemoryCallBack([] {
            say("second\n");
            vn_outOfMemory();
        });
        vn_outOfMemory();
    });
    vn_outOfMemory();
}

TEST(OutOfMemory, CallsACallbackThatTheCallbackHasInstalled) {
    const ChildResult child = run("callbackWithSuccessor");
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_EQ(child.err,
              outOfMemoryLine + "first\n" + outOfMemoryLine + "second\n" + outOfMemoryLine);
}

// ---- Callbacks that do not return ------------------------------------------------------------

jmp_buf beforeCallback;

void leave() {
    say("leaving\n");
    longjmp(beforeCallback, 1);
}

// Calls it once; the callback returns here with longjmp().
[[gnu::noinline]] void enterAndLeave() {
    vn_setOutOfMemoryCallBack(leave);
    if (setjmp(beforeCallback) == 0) {
        vn_outOfMemory();
    }
}

[[gnu::noinline]] void enterFromDeeper() {
    char text[4096];
    snprintf(text, sizeof text, "%s\n", "deeper");
    say(text);
    vn_outOfMemory();
}

VN_CHILD(enterAfterLeaving) {
    enterAndLeave();
    vn_outOfMemory();
}

VN_CHILD(enterAfterLeavingTwice) {
    enterAndLeave();
    enterAndLeave();
    vn_outOfMemory();
}

VN_CHILD(enterAfterLeavingWithCallback) {
    enterAndLeave();
    vn_setOutOfMemoryCallBack([] { say("callback\n"); });
    enterFromDeeper();
    return 0;
}

VN_CHILD(enterAfterLeavingInAThread) {
    enterAndLeave();
    std::thread(vn_outOfMemory).join();
    return 0;
}

TEST(OutOfMemory, WritesTheMemoryLineAfterACallbackThatLeft) {
    const std::string left = outOfMemoryLine + "leaving\n";
    const struct {
        const char* child;
        std::string expected;
    } cases[] = {
        {"enterAfterLeaving", left + outOfMemoryLine + memoryLine},
        {"enterAfterLeavingTwice", left + left + outOfMemoryLine + memoryLine},
        {"enterAfterLeavingWithCallback",
         left + "deeper\n" + outOfMemoryLine + "callback\n" + memoryLine},
        {"enterAfterLeavingInAThread", left + outOfMemoryLine + memoryLine},
    };
    for (const auto& [name, expected] : cases) {
        const ChildResult child = run(name);
        EXPECT_EQ(child.exitStatus, 1) << name;
        EXPECT_THAT(child.err, MatchesRegex(expected)) << name;
    }
}

}  // namespace
