// The time stamp of log lines, compared with only reading the clock and with formatting every time.
#include <benchmark/benchmark.h>
#include <vncommon/process.h>

#include <cstdio>
#include <ctime>

namespace {

void timeStampGet(benchmark::State& state) {
    vn_TimeStampCache cache;
    vn_timeStampInit(&cache);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vn_timeStampGet(&cache));
    }
    vn_timeStampDestroy(&cache);
}
BENCHMARK(timeStampGet);

// The least cost of a time stamp.
void clockAndThreeDigits(benchmark::State& state) {
    char text[24] = "2024-03-05 14:07:09.";
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        const unsigned milliseconds = static_cast<unsigned>(now.tv_nsec) / 1000000;
        text[20] = static_cast<char>('0' + milliseconds / 100);
        text[21] = static_cast<char>('0' + milliseconds / 10 % 10);
        text[22] = static_cast<char>('0' + milliseconds % 10);
        benchmark::DoNotOptimize(&text[0]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(clockAndThreeDigits);

void localtimeAndStrftime(benchmark::State& state) {
    char text[32];
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        tm local;
        localtime_r(&now.tv_sec, &local);
        const size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S.", &local);
        snprintf(text + length, sizeof text - length, "%03ld", now.tv_nsec / 1000000);
        benchmark::DoNotOptimize(&text[0]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(localtimeAndStrftime);

void sysTime(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(vn_sys_time());
    }
}
BENCHMARK(sysTime);

}  // namespace
