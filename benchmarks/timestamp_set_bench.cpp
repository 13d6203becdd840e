// Creating a set, adding six stamps and destroying it, compared with six bare clock reads, on 1 to
// 4 threads with a pool each.
//
// A thread's id selects its pool, so whether two threads share a pool depends on the ids assigned
// before. Here threads that are measured together get ids with different pools. There are at least
// four pools: on a machine with fewer processors the program restarts itself with VN_ASSUME_CPUS.
#include <benchmark/benchmark.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <vncommon/discovery.h>
#include <vncommon/threads.h>
#include <vncommon/timestamp_set.h>

namespace {

constexpr int mostThreads = 4;

void sixClockReads(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < 6; ++i) {
            timeval now;
            gettimeofday(&now, nullptr);
            benchmark::DoNotOptimize(now);
        }
    }
}

// Gives the n-th thread of a measurement (thread 0 is the main thread) an id that equals the main
// thread's id plus n, modulo the number of pools. Short-lived threads take the ids in between.
void takePool(uint64_t thread) {
    static std::mutex lock;
    static const uint64_t firstId = vn_getCountedThreadId();
    static uint64_t lastId = firstId;
    const std::lock_guard<std::mutex> guard(lock);
    const auto pools = static_cast<uint64_t>(vn_numberOfCPUs());
    while (thread > 0 && (lastId + 1 - firstId) % pools != thread % pools) {
        std::thread([] { lastId = vn_getCountedThreadId(); }).join();
    }
    lastId = std::max(lastId, vn_getCountedThreadId());
}

void setWithSixStamps(benchmark::State& state) {
    takePool(static_cast<uint64_t>(state.thread_index()));
    for (auto _ : state) {
        VN_TimestampSet* set = VN_TimestampSet_ctor();
        for (uint64_t stage = 1; stage <= 6; ++stage) {
            VN_TimestampSet_addNow(set, stage);
        }
        VN_TimestampSet_dtor(set);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(sixClockReads)->ThreadRange(1, mostThreads)->UseRealTime();
BENCHMARK(setWithSixStamps)->ThreadRange(1, mostThreads)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    if (vn_numberOfCPUs() < mostThreads && getenv("VN_ASSUME_CPUS") == nullptr) {
        setenv("VN_ASSUME_CPUS", "4", 1);
        execv("/proc/self/exe", argv);
        perror("execv");
        return 1;
    }
    takePool(0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
