// Taking a set, six stamps and destroying it, beside six bare clock reads, on 1 to 4 threads.
#include <benchmark/benchmark.h>
#include <sys/time.h>

#include <vncommon/timestamp_set.h>

namespace {

void sixClockReads(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < 6; ++i) {
            timeval now;
            gettimeofday(&now, nullptr);
            benchmark::DoNotOptimize(now);
        }
    }
}

void setWithSixStamps(benchmark::State& state) {
    for (auto _ : state) {
        VN_TimestampSet* set = VN_TimestampSet_ctor();
        for (uint64_t stage = 1; stage <= 6; ++stage) {
            VN_TimestampSet_addNow(set, stage);
        }
        VN_TimestampSet_dtor(set);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(sixClockReads)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(setWithSixStamps)->ThreadRange(1, 4)->UseRealTime();

}  // namespace
