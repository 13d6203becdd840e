// Timestamp sets through the interface; load and unload, in fresh processes; and pooling, which is
// visible in the counts of heap calls.
#include <vncommon/timestamp_set.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <vncommon/failure.h>
#include <vncommon/threads.h>

#include "support/child_process.h"
#include "support/heap_count.h"

namespace {

// The time that gettimeofday returns to the library while a test sets it.
bool clockIsFake = false;
bool clockFails = false;
timeval fakeTime;

}  // namespace

// Replaces the C library's, for the shared library too.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* time, void*) noexcept {
    if (clockFails) {
        errno = ENOSYS;
        return -1;
    }
    if (clockIsFake) {
        *time = fakeTime;
        return 0;
    }
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

namespace {

struct Set {
    Set() : set(VN_TimestampSet_ctor()) {}
    explicit Set(VN_TimestampSet* made) : set(made) {}
    ~Set() { VN_TimestampSet_dtor(set); }
    Set(const Set&) = delete;
    Set& operator=(const Set&) = delete;
    void add(uint64_t stage, double time) { VN_TimestampSet_addTime(set, stage, time); }
    VN_TimestampSet* set;
};

std::string textOf(VN_TimestampSet* set) {
    char* text = VN_TimestampSet_toString(set);
    const std::string result = text;
    vn_free(text);
    return result;
}

double wallClock() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

constexpr uint64_t high = uint64_t{1} << 32;

TEST(TimestampSet, TableHoldsTheOperationsInOrder) {
    Set s;
    EXPECT_EQ(s.set->functions, &VN_TimestampSetFunctions);
    ASSERT_EQ(sizeof VN_TimestampSetFunctions, 9 * sizeof(void*));
    void* slots[9];
    memcpy(slots, &VN_TimestampSetFunctions, sizeof slots);
    void* expected[9] = {
        reinterpret_cast<void*>(VN_TimestampSet_addNow),
        reinterpret_cast<void*>(VN_TimestampSet_addTime),
        reinterpret_cast<void*>(VN_TimestampSet_replace),
        reinterpret_cast<void*>(VN_TimestampSet_replaceWithNow),
        reinterpret_cast<void*>(VN_TimestampSet_findTime),
        reinterpret_cast<void*>(VN_TimestampSet_findTimeAndRemove),
        reinterpret_cast<void*>(VN_TimestampSet_getNextStampAndRemove),
        reinterpret_cast<void*>(VN_TimestampSet_getSize),
        reinterpret_cast<void*>(VN_TimestampSet_toString),
    };
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(slots[i], expected[i]) << "slot " << i + 1;
    }
}

TEST(TimestampSet, NewSetIsEmptyWithRoomForEight) {
    Set s;
    EXPECT_EQ(VN_TimestampSet_getSize(s.set), 0u);
    EXPECT_EQ(s.set->entries->initialCapacity, 8u);
    EXPECT_FALSE(s.set->entries->shrink);
    EXPECT_EQ(textOf(s.set), "{}");
}

TEST(TimestampSet, AddsInOrder) {
    Set s;
    s.add(2, 20.5);
    s.add(1, 10.25);
    ASSERT_EQ(VN_TimestampSet_getSize(s.set), 2u);
    const auto* first = static_cast<TimeStamp*>(vn_Vector_get(s.set->entries, 0));
    EXPECT_EQ(first->stage, 2u);
    EXPECT_EQ(first->time, 20.5);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 1), 10.25);
}

TEST(TimestampSet, StampsWithTheWallClockInMicroseconds) {
    Set s;
    const double before = wallClock();
    VN_TimestampSet_addNow(s.set, 1);
    const double after = wallClock();
    const double time = VN_TimestampSet_findTime(s.set, 1);
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
    EXPECT_NEAR(time * 1e6, std::round(time * 1e6), 0.3);
    const double relative = VN_TimestampSet_getRelativeTime();
    EXPECT_GE(relative, after);
    EXPECT_LE(relative, wallClock());
    EXPECT_GE(Java_com_vantrel_util_CommonNativeMethods_getMicroTime(nullptr, nullptr), relative);
}

// Every microsecond of seconds near powers of two: the time is the sum of the seconds and the
// exactly rounded fraction.
TEST(TimestampSet, TimeIsSecondsPlusMicrosecondsExactly) {
    for (const int64_t seconds : {0L, 1L, (1L << 21) - 1, 1L << 21, (1L << 21) + 1, (1L << 30) - 1,
                                  1L << 30, 1700000000L, (1L << 31) - 1, 1L << 31}) {
        for (int64_t microseconds = 0; microseconds < 1000000; ++microseconds) {
            fakeTime = {seconds, microseconds};
            const double expected =
                static_cast<double>(seconds) + static_cast<double>(microseconds) / 1000000.0;
            clockIsFake = true;
            const double time = VN_TimestampSet_getRelativeTime();
            clockIsFake = false;
            ASSERT_EQ(time, expected) << seconds << " s " << microseconds << " us";
        }
    }
}

VN_CHILD(clockFails) {
    clockFails = true;
    Set s;
    VN_TimestampSet_addNow(s.set, 1);
    s.add(2, 5.0);
    VN_TimestampSet_replaceWithNow(s.set, 2);
    EXPECT_EQ(VN_TimestampSet_replaceWithNow(s.set, 3), nullptr) << "does not read the clock";
    EXPECT_EQ(Java_com_vantrel_util_CommonNativeMethods_getMicroTime(nullptr, nullptr), 0.0);
    clockFails = false;
    puts(textOf(s.set).c_str());
    return 0;
}

TEST(TimestampSet, FailingClockIsLoggedAndGivesZero) {
    const ChildResult child = runChild("clockFails");
    EXPECT_EQ(child.out, "{1:0.000000, 2:0.000000}\n");
    const std::string warning = "WARN  [";
    const std::string message =
        "] - VN_TimestampSet_getRelativeTime(): gettimeofday() failed, errno = 38\n";
    size_t lines = 0;
    for (size_t at = child.err.find(message); at != std::string::npos;
         at = child.err.find(message, at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 3u) << child.err;
    EXPECT_NE(child.err.find(warning), std::string::npos) << child.err;
}

TEST(TimestampSet, AbsentStage) {
    Set s;
    s.add(1, 1.5);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 9), 0.0);
    EXPECT_EQ(VN_TimestampSet_findTimeAndRemove(s.set, 9), 0.0);
    EXPECT_EQ(VN_TimestampSet_replace(s.set, 9, 2.0), nullptr);
    EXPECT_EQ(VN_TimestampSet_replaceWithNow(s.set, 9), nullptr);
    EXPECT_EQ(VN_TimestampSet_getSize(s.set), 1u);
}

TEST(TimestampSet, ReplacesTheFirst) {
    Set s;
    s.add(1, 1.0);
    s.add(2, 2.0);
    s.add(1, 3.0);
    TimeStamp* entry = VN_TimestampSet_replace(s.set, 1, 7.0);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry, vn_Vector_get(s.set->entries, 0));
    EXPECT_EQ(entry->time, 7.0);
    EXPECT_EQ(static_cast<TimeStamp*>(vn_Vector_get(s.set->entries, 2))->time, 3.0);
    const double before = wallClock();
    EXPECT_EQ(VN_TimestampSet_replaceWithNow(s.set, 2), vn_Vector_get(s.set->entries, 1));
    EXPECT_GE(VN_TimestampSet_findTime(s.set, 2), before);
}

TEST(TimestampSet, RemovingKeepsTheOrderOfTheRest) {
    Set s;
    for (uint64_t stage = 1; stage <= 5; ++stage) {
        s.add(stage, static_cast<double>(stage));
    }
    EXPECT_EQ(VN_TimestampSet_findTimeAndRemove(s.set, 2), 2.0);
    EXPECT_EQ(VN_TimestampSet_getSize(s.set), 4u);
    uint64_t stage = 0;
    double time = 0;
    for (const uint64_t expected : {1u, 3u, 4u, 5u}) {
        ASSERT_TRUE(VN_TimestampSet_getNextStampAndRemove(s.set, &stage, &time));
        EXPECT_EQ(stage, expected);
        EXPECT_EQ(time, static_cast<double>(expected));
    }
    stage = 77;
    time = 7.5;
    EXPECT_FALSE(VN_TimestampSet_getNextStampAndRemove(s.set, &stage, &time));
    EXPECT_EQ(stage, 77u);
    EXPECT_EQ(time, 7.5);
}

TEST(TimestampSet, RepeatedStages) {
    Set s;
    s.add(3, 1.0);
    s.add(3, 2.0);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 3), 1.0);
    EXPECT_EQ(textOf(s.set), "{3:1.000000}");
    EXPECT_EQ(VN_TimestampSet_findTimeAndRemove(s.set, 3), 1.0);
    EXPECT_EQ(VN_TimestampSet_findTimeAndRemove(s.set, 3), 2.0);
    EXPECT_EQ(VN_TimestampSet_getSize(s.set), 0u);
}

TEST(TimestampSet, StagesMatchByTheirLowBitsButPrintWhole) {
    Set s;
    s.add(high + 5, 1.0);
    s.add(5, 2.0);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 5), 1.0);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 7 * high + 5), 1.0);
    VN_TimestampSet_replace(s.set, 3 * high + 5, 9.0);
    EXPECT_EQ(textOf(s.set), "{4294967301:9.000000, 5:2.000000}");
    EXPECT_EQ(VN_TimestampSet_findTimeAndRemove(s.set, 9 * high + 5), 9.0);
    EXPECT_EQ(textOf(s.set), "{5:2.000000}");
}

TEST(TimestampSet, Text) {
    Set s;
    s.add(1, 1700000000.25);
    EXPECT_EQ(textOf(s.set), "{1:1700000000.250000}");
    s.add(2, 1700000000.5);
    EXPECT_EQ(textOf(s.set), "{1:1700000000.250000, 2:1700000000.500000}");
    s.add(0, 0.0);
    s.add(~uint64_t{0}, -1.0);
    EXPECT_EQ(textOf(s.set),
              "{1:1700000000.250000, 2:1700000000.500000, 0:0.000000, "
              "18446744073709551615:-1.000000}");
    EXPECT_EQ(textOf(nullptr), "{NULL}");
    VN_TimestampSet bare = {nullptr, &VN_TimestampSetFunctions};
    EXPECT_EQ(textOf(&bare), "{NULL}");
}

TEST(TimestampSet, TextOfManyStages) {
    Set s;
    std::string expected = "{";
    for (uint64_t stage = 0; stage < 1000; ++stage) {
        s.add(stage * 16, 1.0);
        s.add(stage * 16, 2.0);
        expected += (stage > 0 ? ", " : "") + std::to_string(stage * 16) + ":1.000000";
    }
    EXPECT_EQ(textOf(s.set), expected + "}");
}

uint32_t hashOfStage(const void* stage) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(stage));
}

int32_t compareStages(const void* a, const void* b) {
    return a == b ? 0 : 1;
}

TEST(TimestampSet, ElementPrintsItsStageOnce) {
    HashMap printed;
    vn_HashMap_init(&printed, hashOfStage, compareStages, nullptr, nullptr, 16, 0);
    CStringBuffer text;
    vn_strbufInit(&text, 0);
    TimeStamp entry = {12, 0.5};
    VectorElement_toString(&entry, &text, &printed);
    EXPECT_STREQ(text.data, "12:0.500000, ");
    VectorElement_toString(&entry, &text, &printed);
    EXPECT_STREQ(text.data, "12:0.500000, ");
    EXPECT_TRUE(vn_HashMap_exists(&printed, reinterpret_cast<void*>(uintptr_t{12})));
    vn_strbufDestroy(&text, 1);
    vn_HashMap_cleanup(&printed);
}

TEST(TimestampSet, CopyKeepsEverything) {
    Set s;
    Set empty(VN_TimestampSet_copy(s.set));
    EXPECT_EQ(VN_TimestampSet_getSize(empty.set), 0u);
    s.add(1, 1.0);
    s.add(1, 2.0);
    s.add(high, 3.0);
    Set copy(VN_TimestampSet_copy(s.set));
    ASSERT_EQ(VN_TimestampSet_getSize(copy.set), 3u);
    VN_TimestampSet_replace(copy.set, 1, 8.0);
    EXPECT_EQ(VN_TimestampSet_findTime(s.set, 1), 1.0) << "entries are copies";
    uint64_t stage;
    double time;
    ASSERT_TRUE(VN_TimestampSet_getNextStampAndRemove(copy.set, &stage, &time));
    ASSERT_TRUE(VN_TimestampSet_getNextStampAndRemove(copy.set, &stage, &time));
    EXPECT_EQ(time, 2.0);
}

TEST(TimestampSet, DestroyingNullIsIgnored) {
    VN_TimestampSet_dtor(nullptr);
}

TEST(TimestampSet, SetsCrossThreads) {
    std::vector<VN_TimestampSet*> sets;
    std::thread maker([&] {
        for (int i = 0; i < 100; ++i) {
            sets.push_back(VN_TimestampSet_ctor());
            for (uint64_t stage = 0; stage < 10; ++stage) {
                VN_TimestampSet_addNow(sets.back(), stage);
            }
        }
    });
    maker.join();
    for (VN_TimestampSet* set : sets) {
        EXPECT_EQ(VN_TimestampSet_getSize(set), 10u);
        VN_TimestampSet_dtor(set);
    }
}

TEST(TimestampSet, ManyThreadsShareThePools) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (uint64_t t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int round = 0; round < 2000; ++round) {
                VN_TimestampSet* set = VN_TimestampSet_ctor();
                for (uint64_t stage = 0; stage < 12; ++stage) {
                    VN_TimestampSet_addTime(set, stage, static_cast<double>(t * 100 + stage));
                }
                wrong +=
                    VN_TimestampSet_findTimeAndRemove(set, 7) != static_cast<double>(t * 100 + 7);
                wrong += VN_TimestampSet_getSize(set) != 11;
                VN_TimestampSet_dtor(set);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

void takeStampAndDestroy() {
    VN_TimestampSet* set = VN_TimestampSet_ctor();
    for (uint64_t stage = 1; stage <= 6; ++stage) {
        VN_TimestampSet_addNow(set, stage);
    }
    VN_TimestampSet_dtor(set);
}

TEST(TimestampSet, NoHeapCallInSteadyState) {
    takeStampAndDestroy();
    const HeapCount count;
    for (int i = 0; i < 1000; ++i) {
        takeStampAndDestroy();
    }
    EXPECT_EQ(count.allocations(), 0u);
    EXPECT_EQ(count.frees(), 0u);
}

// Counts heap calls while one thread's pool is filled. Exits with 0 if all counts are as expected.
VN_CHILD(poolCapacities) {
    std::vector<VN_TimestampSet*> sets;
    for (int i = 0; i < 40; ++i) {
        sets.push_back(VN_TimestampSet_ctor());
        for (uint64_t stage = 0; stage < 4; ++stage) {
            VN_TimestampSet_addTime(sets.back(), stage, 1.0);
        }
    }
    const HeapCount filling;
    for (int i = 0; i < 32; ++i) {
        VN_TimestampSet_dtor(sets[static_cast<size_t>(i)]);
    }
    // 32 sets and 128 entries fit exactly; there is no room for a 33rd set.
    EXPECT_EQ(filling.frees(), 0u);
    const HeapCount overflowing;
    VN_TimestampSet_dtor(sets[32]);
    EXPECT_EQ(overflowing.frees(), 4u + 3u) << "4 entries, the storage, the Vector, the set";

    // Take 20 entries out of the pool: a set beyond the 32 is freed, its entries are kept.
    VN_TimestampSet* big = sets[39];
    for (uint64_t stage = 0; stage < 20; ++stage) {
        VN_TimestampSet_addTime(big, stage, 1.0);
    }
    const HeapCount entriesOnly;
    VN_TimestampSet_dtor(sets[33]);
    EXPECT_EQ(entriesOnly.frees(), 3u);
    for (size_t i = 34; i < 40; ++i) {
        VN_TimestampSet_dtor(sets[i]);
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(TimestampSet, PoolsKeep32SetsAnd128Entries) {
    const ChildResult child =
        runChild("poolCapacities",
                 {.environment = {{"VN_ASSUME_CPUS", "1"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// The addresses show which blocks came from the pool.
VN_CHILD(lastInFirstOut) {
    VN_TimestampSet* a = VN_TimestampSet_ctor();
    VN_TimestampSet* b = VN_TimestampSet_ctor();
    std::vector<void*> stamps;
    for (uint64_t stage = 0; stage < 4; ++stage) {
        VN_TimestampSet_addTime(a, stage, 1.0);
        stamps.push_back(vn_Vector_get(a->entries, static_cast<uint32_t>(stage)));
    }
    VN_TimestampSet_dtor(a);
    VN_TimestampSet_dtor(b);
    EXPECT_EQ(VN_TimestampSet_ctor(), b);
    EXPECT_EQ(VN_TimestampSet_ctor(), a);
    for (uint32_t i = 0; i < 4; ++i) {
        VN_TimestampSet_addTime(a, i, 1.0);
        EXPECT_EQ(vn_Vector_get(a->entries, i), stamps[3 - i]);
    }
    VN_TimestampSet_dtor(a);
    VN_TimestampSet_dtor(b);
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(TimestampSet, PoolsAreLastInFirstOut) {
    const ChildResult child =
        runChild("lastInFirstOut",
                 {.environment = {{"VN_ASSUME_CPUS", "1"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// Fills the calling thread's empty pool: 32 sets, 128 entries.
void fillPool() {
    std::vector<VN_TimestampSet*> sets;
    for (int i = 0; i < 32; ++i) {
        sets.push_back(VN_TimestampSet_ctor());
        for (uint64_t stage = 0; stage < 4; ++stage) {
            VN_TimestampSet_addTime(sets.back(), stage, 1.0);
        }
    }
    for (VN_TimestampSet* set : sets) {
        VN_TimestampSet_dtor(set);
    }
}

// All 128 pooled entries can be reused, however the 32 sets share them.
VN_CHILD(everyPooledEntry) {
    fillPool();
    for (const uint32_t stampsOfFirst : {4u, 1u, 97u, 0u, 128u - 31u * 3u}) {
        const HeapCount count;
        VN_TimestampSet* sets[32];
        for (VN_TimestampSet*& set : sets) {
            set = VN_TimestampSet_ctor();
        }
        uint32_t left = 128;
        for (uint64_t stage = 0; stage < stampsOfFirst; ++stage, --left) {
            VN_TimestampSet_addTime(sets[0], stage, 1.0);
        }
        for (size_t i = 1; left > 0; i = i % 31 + 1, --left) {  // the other sets in turn
            VN_TimestampSet_addTime(sets[i], i, 1.0);
        }
        const uint64_t grownVectors = count.allocations();
        for (VN_TimestampSet* set : sets) {
            VN_TimestampSet_dtor(set);
        }
        // The only allocations are the growth of the first set's Vector beyond 8 entries.
        EXPECT_LE(grownVectors, stampsOfFirst > 8 ? 4u : 0u) << stampsOfFirst;
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(TimestampSet, EveryPooledEntryIsReused) {
    const ChildResult child =
        runChild("everyPooledEntry",
                 {.environment = {{"VN_ASSUME_CPUS", "1"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// Sets in use do not affect what the pool returns next.
VN_CHILD(lastInFirstOutAcrossSets) {
    VN_TimestampSet* a = VN_TimestampSet_ctor();
    VN_TimestampSet* b = VN_TimestampSet_ctor();
    for (uint64_t stage = 0; stage < 6; ++stage) {
        VN_TimestampSet_addTime(a, stage, 1.0);
    }
    const std::vector<void*> given(a->entries->data, a->entries->data + 6);
    VN_TimestampSet_dtor(a);
    a = VN_TimestampSet_ctor();
    for (uint32_t i = 0; i < 6; ++i) {
        VN_TimestampSet* set = i % 2 == 0 ? b : a;
        VN_TimestampSet_addTime(set, i, 1.0);
        EXPECT_EQ(vn_Vector_get(set->entries, i / 2), given[5 - i]) << i;
    }
    VN_TimestampSet_findTimeAndRemove(a, 1);
    VN_TimestampSet_addTime(b, 9, 1.0);
    EXPECT_EQ(vn_Vector_get(b->entries, 3), given[4]) << "recycled by the other set just now";
    VN_TimestampSet_dtor(a);
    VN_TimestampSet_dtor(b);
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(TimestampSet, EntriesAreLastInFirstOutAcrossSets) {
    const ChildResult child =
        runChild("lastInFirstOutAcrossSets",
                 {.environment = {{"VN_ASSUME_CPUS", "1"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// With three pools, threads whose ids are equal modulo 3 share a pool.
VN_CHILD(poolsByThread) {
    VN_TimestampSet* kept = VN_TimestampSet_ctor();
    const uint64_t id = vn_getCountedThreadId();
    VN_TimestampSet_dtor(kept);
    for (int i = 1; i <= 6; ++i) {
        std::thread([&] {
            const bool sharesThePool = vn_getCountedThreadId() % 3 == id % 3;
            VN_TimestampSet* set = VN_TimestampSet_ctor();
            EXPECT_EQ(set == kept, sharesThePool);
            VN_TimestampSet_dtor(set);
            printf("%d", sharesThePool);
        }).join();
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(TimestampSet, TheCountedIdPicksThePool) {
    const ChildResult child =
        runChild("poolsByThread",
                 {.environment = {{"VN_ASSUME_CPUS", "3"}, {"VN_OBJECTPOOL_DISABLED", {}}}});
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
    EXPECT_EQ(child.out, "001001");
}

VN_CHILD(withoutPools) {
    takeStampAndDestroy();
    const HeapCount count;
    takeStampAndDestroy();
    printf("%lu %lu\n", static_cast<unsigned long>(count.allocations()),
           static_cast<unsigned long>(count.frees()));
    return 0;
}

TEST(TimestampSet, DisabledPoolsFreeAtOnce) {
    for (const char* value : {"", "0", "yes"}) {
        const ChildResult child =
            runChild("withoutPools", {.environment = {{"VN_OBJECTPOOL_DISABLED", value}}});
        EXPECT_EQ(child.out, "9 9\n") << "a set, its Vector and storage, 6 entries; " << child.err;
    }
}

// A thread's first set assigns its id, even if pools are disabled.
VN_CHILD(numberOfFirstSet) {
    VN_TimestampSet_dtor(VN_TimestampSet_ctor());
    uint64_t next = 0;
    std::thread([&] { next = vn_getCountedThreadId(); }).join();
    printf("%lu %lu", static_cast<unsigned long>(next),
           static_cast<unsigned long>(vn_getCountedThreadId()));
    return 0;
}

TEST(TimestampSet, UsingASetTakesACountedId) {
    for (const std::optional<std::string>& disabled : {std::optional<std::string>{}, {"1"}}) {
        const ChildResult child =
            runChild("numberOfFirstSet", {.environment = {{"VN_OBJECTPOOL_DISABLED", disabled}}});
        EXPECT_EQ(child.out, "2 1") << disabled.value_or("enabled");
    }
}

VN_CHILD(countedThreads) {
    // There are more threads than pools, so some threads share a pool.
    std::vector<std::thread> threads;
    for (int i = 0; i < 5; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                takeStampAndDestroy();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

TEST(TimestampSet, AnyNumberOfPools) {
    for (const char* cpus : {"1", "2", "3", "7", "16", "64"}) {
        EXPECT_EQ(
            runChild("countedThreads", {.environment = {{"VN_ASSUME_CPUS", cpus}}}).exitStatus, 0)
            << cpus;
    }
}

}  // namespace
