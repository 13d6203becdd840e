// The clock and the cached text of a log line's time, against strftime and the clock itself.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <thread>

#include "platform/process_sources.h"
#include "support/child_process.h"
#include "support/pause_at_fork.h"

using vncommon::timeStampAt;

namespace {

std::string dateBy(const char* zone, time_t second) {
    setenv("TZ", zone, 1);
    tzset();
    tm local;
    localtime_r(&second, &local);
    char text[64];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S.", &local);
    return text;
}

// Two threads format dates continuously while the process forks children that format dates too.
VN_CHILD(forksWhileThreadsFormatDates) {
    std::atomic<bool> done{false};
    PauseAtFork pause(2);  // only for the start: nothing below uses the heap
    auto formatDates = [&] {
        vn_TimeStampCache own;
        while (!done) {
            pause.here();
            vn_timeStampInit(&own);
            vn_timeStampGet(&own);
        }
    };
    std::thread threads[] = {std::thread(formatDates), std::thread(formatDates)};
    if (!childrenMayAllocate) {
        pause.begin();
        vn_TimeStampCache own;
        vn_timeStampInit(&own);
        vn_timeStampGet(&own);  // the first one of a process reads the time zone
        pause.end();
    }
    bool ok = true;
    for (int i = 0; ok && i < 100; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // a deadlock ends with the parent
            vn_TimeStampCache own;
            vn_timeStampInit(&own);
            quick_exit(strlen(vn_timeStampGet(&own)) == 23 ? 0 : 1);
        }
        int status;
        ok = waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return ok ? 0 : 1;
}

struct TimeStamp : testing::Test {
    void SetUp() override {
        memset(&cache, 'x', sizeof cache);
        vn_timeStampInit(&cache);
    }
    void TearDown() override {
        vn_timeStampDestroy(&cache);
        unsetenv("TZ");
        tzset();
    }

    vn_TimeStampCache cache;
};

}  // namespace

TEST(Clock, MillisecondsLieBetweenTwoReadings) {
    timeval before, after;
    gettimeofday(&before, nullptr);
    const int64_t now = vn_sys_time();
    gettimeofday(&after, nullptr);
    EXPECT_GE(now, int64_t{before.tv_sec} * 1000 + before.tv_usec / 1000);
    EXPECT_LE(now, int64_t{after.tv_sec} * 1000 + after.tv_usec / 1000);
}

TEST_F(TimeStamp, RecordIsThirtyTwoBytes) {
    EXPECT_EQ(sizeof(vn_TimeStampCache), 32u);
    EXPECT_EQ(offsetof(vn_TimeStampCache, text), 8u);
}

TEST_F(TimeStamp, InitOnlyForgetsTheSecond) {
    EXPECT_EQ(cache.lastSecond, 0);
    EXPECT_EQ(cache.text[0], 'x');
}

TEST_F(TimeStamp, DestroyLeavesTheCacheAlone) {
    const vn_TimeStampCache before = cache;
    vn_timeStampDestroy(&cache);
    EXPECT_EQ(memcmp(&before, &cache, sizeof cache), 0);
}

TEST_F(TimeStamp, FirstCallFormatsTheDate) {
    const time_t before = time(nullptr);
    const char* text = vn_timeStampGet(&cache);
    const time_t after = time(nullptr);
    EXPECT_EQ(text, cache.text);
    ASSERT_EQ(strlen(text), 23u);
    // time() may lag the clock by a tick, so the second after it is allowed.
    EXPECT_GE(cache.lastSecond, before);
    EXPECT_LE(cache.lastSecond, after + 1);
    tm local;
    const time_t second = cache.lastSecond;
    localtime_r(&second, &local);
    char expected[64];
    strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S.", &local);
    EXPECT_EQ(std::string(text, 20), expected);
}

TEST_F(TimeStamp, ReadsTheClockToTheMillisecond) {
    for (int i = 0; i < 1000; ++i) {
        const int64_t before = vn_sys_time();
        const char* text = vn_timeStampGet(&cache);
        const int64_t stamped = cache.lastSecond * 1000 + atoi(text + 20);
        const int64_t after = vn_sys_time();
        EXPECT_LE(before, stamped);
        EXPECT_LE(stamped, after);
    }
}

TEST_F(TimeStamp, GivesTheExample) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_STREQ(timeStampAt(&cache, 1709647629, 42), "2024-03-05 14:07:09.042");
}

TEST_F(TimeStamp, WritesEveryMillisecondWithThreeDigits) {
    for (unsigned milliseconds = 0; milliseconds < 1000; ++milliseconds) {
        char expected[16];
        snprintf(expected, sizeof expected, "%03u", milliseconds);
        EXPECT_STREQ(timeStampAt(&cache, 1709647629, milliseconds) + 20, expected);
    }
}

TEST_F(TimeStamp, SameSecondKeepsTheDateAsItIs) {
    timeStampAt(&cache, 1709647629, 7);
    memset(cache.text, '#', 20);  // only reformatting would restore the date
    EXPECT_STREQ(timeStampAt(&cache, 1709647629, 8), "####################008");
    EXPECT_NE(timeStampAt(&cache, 1709647630, 9)[0], '#');
    memset(cache.text, '#', 20);
    EXPECT_NE(timeStampAt(&cache, 1709647629, 9)[0], '#') << "a second that is stepped back to";
}

// A new cache contains second 0, and a machine whose clock was not set starts there.
TEST_F(TimeStamp, FirstSecondOfAllIsWritten) {
    const std::string date = dateBy("UTC", 0);
    EXPECT_EQ(timeStampAt(&cache, 0, 5), date + "005");
}

TEST_F(TimeStamp, AgreesWithStrftimeInEveryZone) {
    std::mt19937_64 random(20240305);
    std::uniform_int_distribution<int64_t> seconds(1, 253402214400);  // to the year 9999
    for (const char* zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Asia/Kathmandu",
                             "Pacific/Chatham", "EST5EDT,M3.2.0,M11.1.0"}) {
        for (int i = 0; i < 2000; ++i) {
            const int64_t second = seconds(random);
            const std::string expected = dateBy(zone, second);
            ASSERT_EQ(timeStampAt(&cache, second, 999), expected + "999") << zone;
        }
    }
}

TEST_F(TimeStamp, StaysInItsAreaForYearsThatDoNotFit) {
    setenv("TZ", "UTC", 1);
    tzset();
    vn_TimeStampCache guarded[2];
    memset(guarded, 'x', sizeof guarded);
    vn_timeStampInit(guarded);
    EXPECT_STREQ(timeStampAt(guarded, 253402300800, 5), "10000-01-01 00:00:00005");
    EXPECT_EQ(strlen(timeStampAt(guarded, INT64_MAX, 6)), 23u);
    EXPECT_EQ(strlen(timeStampAt(guarded, INT64_MIN, 7)), 23u);
    EXPECT_EQ(guarded[1].text[0], 'x');
    EXPECT_EQ(guarded[1].lastSecond, 0x7878787878787878);
}

TEST_F(TimeStamp, LeapSecondIsSixty) {
    if (access("/usr/share/zoneinfo/right/UTC", R_OK) != 0) {
        GTEST_SKIP() << "no zone with leap seconds on this machine";
    }
    setenv("TZ", "right/UTC", 1);
    tzset();
    // The leap second at the end of 2016, counted with the 26 before it.
    EXPECT_STREQ(timeStampAt(&cache, 1483228800 + 26, 1), "2016-12-31 23:59:60.001");
}

TEST(TimeStampAfterFork, ChildrenCanFormatDates) {
    const ChildResult child = runChild("forksWhileThreadsFormatDates");
    EXPECT_EQ(child.exitStatus, 0) << child.err;
    EXPECT_EQ(child.signal, 0);
}
