// First calls that several threads of a host make at once.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <vncommon/failure.h>
#include <vncommon/threads.h>

#include "support/child_process.h"

namespace {

constexpr int threads = 4;

// Runs body in several threads at the same time.
void together(const std::function<void()>& body) {
    std::atomic<int> missing{threads};
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([&] {
            --missing;
            while (missing > 0) {
            }
            body();
        });
    }
    for (std::thread& thread : all) {
        thread.join();
    }
}

VN_CHILD(initialise) {
    std::atomic<int> taken{0};
    together([&taken] {
        vn_threadInit();
        vn_Semaphore semaphore;
        vn_Semaphore_init(&semaphore, 1);
        taken += vn_Semaphore_trywait(&semaphore) ? 0 : 1;
        vn_Semaphore_destroy(&semaphore);
    });
    return taken == threads ? 9 : 1;
}

TEST(FirstCalls, OfThreadInit) {
    const ChildResult child = runChild("initialise");
    EXPECT_EQ(child.exitStatus, 9);
    EXPECT_EQ(child.err, "");
}

// All threads get the same decision, and counts after it are ignored.
VN_CHILD(decideCounting) {
    std::atomic<int> enabled{0};
    together([&enabled] {
        enabled += checkMemoryTrackingEnabled();
        countMemoryAllocated(100);
        countMemoryFreed(30);
    });
    const bool counting = arguments[0] == "counting";
    const int64_t counted = counting ? threads * 70 : 0;
    return enabled == (counting ? threads : 0) && getMallocMemoryAllocated() == counted ? 9 : 1;
}

TEST(FirstCalls, OfTheMemoryCountersDecision) {
    for (int round = 0; round < 20; ++round) {
        const ChildResult off = runChild(
            "decideCounting",
            {.environment = {{"VN_TRACKMEMORY", std::nullopt}}, .arguments = {"not counting"}});
        EXPECT_EQ(off.exitStatus, 9);
        EXPECT_EQ(off.err, "");
    }
    const ChildResult on = runChild(
        "decideCounting", {.environment = {{"VN_TRACKMEMORY", "1"}}, .arguments = {"counting"}});
    EXPECT_EQ(on.exitStatus, 9);
    EXPECT_EQ(on.err, "");
}

}  // namespace
