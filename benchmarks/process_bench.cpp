// The time stamp of log lines, compared with only reading the clock and with formatting every time.
#include <benchmark/benchmark.h>
#include <vncommon/process.h>

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

// Init forgets the second, so every call formats a new one.
void timeStampGetNewSecond(benchmark::State& state) {
    vn_TimeStampCache cache;
    for (auto _ : state) {
        vn_timeStampInit(&cache);
        benchmark::DoNotOptimize(vn_timeStampGet(&cache));
    }
    vn_timeStampDestroy(&cache);
}
BENCHMARK(timeStampGetNewSecond);

void putMilliseconds(char* to, const timespec& now) {
    const unsigned milliseconds = static_cast<unsigned>(now.tv_nsec) / 1000000;
    to[0] = static_cast<char>('0' + milliseconds / 100);
    to[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    to[2] = static_cast<char>('0' + milliseconds % 10);
    to[3] = '\0';
}

// The least cost of a time stamp.
void clockAndThreeDigits(benchmark::State& state) {
    char text[24] = "2024-03-05 14:07:09.";
    for (auto _ : state) {
        timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        putMilliseconds(text + 20, now);
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
        putMilliseconds(text + length, now);
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
