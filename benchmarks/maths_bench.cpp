// The deterministic functions compared with the C library's, for a thousand arguments of usual
// size. For information only: their purpose is equal results on all machines, not speed.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include <vncommon/maths.h>

namespace {

constexpr size_t argumentCount = 1000;

struct Range {
    double low;
    double high;
};

constexpr Range ordinary{-20, 20};
constexpr Range positive{0.001, 1000};
constexpr Range unit{-1, 1};
constexpr Range aboveOne{1, 1000};
constexpr Range hugeAngles{-1e15, 1e15};

std::vector<double> arguments(Range range, unsigned seed) {
    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> uniform(range.low, range.high);
    std::vector<double> result(argumentCount);
    for (double& x : result) {
        x = uniform(engine);
    }
    return result;
}

template <typename Function>
void unary(benchmark::State& state, Function function, Range range) {
    const std::vector<double> xs = arguments(range, 1);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(function(xs[i]));
        i = (i + 1) % argumentCount;
    }
}

template <typename Function>
void binary(benchmark::State& state, Function function, Range first, Range second) {
    const std::vector<double> xs = arguments(first, 1);
    const std::vector<double> ys = arguments(second, 2);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(function(xs[i], ys[i]));
        i = (i + 1) % argumentCount;
    }
}

using Unary = double (*)(double);
using Binary = double (*)(double, double);

#define VN_BENCHMARK_UNARY(name, system, range)                               \
    BENCHMARK_CAPTURE(unary, vn_##name, vn_##name, range)->Name("vn_" #name); \
    BENCHMARK_CAPTURE(unary, libc_##name, static_cast<Unary>(system), range)->Name("libc_" #name)

#define VN_BENCHMARK_BINARY(name, first, second)                                       \
    BENCHMARK_CAPTURE(binary, vn_##name, vn_##name, first, second)->Name("vn_" #name); \
    BENCHMARK_CAPTURE(binary, libc_##name, static_cast<Binary>(name), first, second)   \
        ->Name("libc_" #name)

VN_BENCHMARK_BINARY(pow, positive, ordinary);
VN_BENCHMARK_UNARY(exp, exp, ordinary);
VN_BENCHMARK_UNARY(log, log, positive);
VN_BENCHMARK_UNARY(log10, log10, positive);
VN_BENCHMARK_UNARY(cbrt, cbrt, ordinary);
VN_BENCHMARK_UNARY(sin, sin, ordinary);
VN_BENCHMARK_UNARY(cos, cos, ordinary);
VN_BENCHMARK_UNARY(tan, tan, ordinary);
VN_BENCHMARK_UNARY(asin, asin, unit);
VN_BENCHMARK_UNARY(acos, acos, unit);
VN_BENCHMARK_UNARY(atan, atan, ordinary);
VN_BENCHMARK_BINARY(atan2, ordinary, ordinary);
VN_BENCHMARK_UNARY(sinh, sinh, ordinary);
VN_BENCHMARK_UNARY(cosh, cosh, ordinary);
VN_BENCHMARK_UNARY(tanh, tanh, unit);
VN_BENCHMARK_UNARY(asinh, asinh, ordinary);
VN_BENCHMARK_UNARY(acosh, acosh, aboveOne);
VN_BENCHMARK_UNARY(atanh, atanh, unit);
VN_BENCHMARK_UNARY(erf, erf, unit);
VN_BENCHMARK_UNARY(gammal, lgamma, ordinary);
VN_BENCHMARK_BINARY(nextafter, ordinary, ordinary);
VN_BENCHMARK_BINARY(fmod, positive, ordinary);

BENCHMARK_CAPTURE(unary, vn_sin_huge, vn_sin, hugeAngles)->Name("vn_sin_huge");
BENCHMARK_CAPTURE(unary, libc_sin_huge, static_cast<Unary>(sin), hugeAngles)->Name("libc_sin_huge");
BENCHMARK_CAPTURE(unary, vn_bankerRound, vn_bankerRound, ordinary)->Name("vn_bankerRound");
BENCHMARK_CAPTURE(unary, libc_llrint, static_cast<long long (*)(double)>(llrint), ordinary)
    ->Name("libc_llrint");

}  // namespace
