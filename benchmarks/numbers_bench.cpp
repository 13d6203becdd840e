// Doubles to text and back, compared with the peers. Each call uses the next of about a thousand
// values, for realistic branch prediction.
#include <vncommon/numbers.h>

#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#ifdef VN_HAVE_FMT
#include <fmt/compile.h>
#include <fmt/format.h>
#endif
#ifdef VN_HAVE_DOUBLE_CONVERSION
#include <double-conversion/double-conversion.h>
#endif
#ifdef VN_HAVE_NSPR
#include <prdtoa.h>
#endif

namespace {

constexpr size_t sampleCount = 4096;

std::vector<double> randomBits() {
    std::mt19937_64 random(1);
    std::vector<double> values;
    while (values.size() < sampleCount) {
        const uint64_t bits = random();
        double x;
        memcpy(&x, &bits, sizeof x);
        if (std::isfinite(x)) {
            values.push_back(x);
        }
    }
    return values;
}

std::vector<double> prices() {
    std::mt19937_64 random(2);
    std::vector<double> values;
    while (values.size() < sampleCount) {
        values.push_back(static_cast<double>(random() % 1'000'000) / 100);
    }
    return values;
}

std::vector<double> integers() {
    std::mt19937_64 random(3);
    std::vector<double> values;
    while (values.size() < sampleCount) {
        values.push_back(static_cast<double>(random() % 1'000'000));
    }
    return values;
}

using Values = std::vector<double> (*)();

template <typename Format>
void format(benchmark::State& state, Values values, Format formatOne) {
    const std::vector<double> samples = values();
    char buffer[512];
    size_t i = 0;
    for (auto _ : state) {
        formatOne(buffer, samples[i++ % sampleCount]);
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
    }
}

template <typename Read>
void read(benchmark::State& state, Values values, Read readOne) {
    std::vector<std::string> texts;
    for (const double x : values()) {
        char text[32];
        *std::to_chars(text, text + sizeof text, x).ptr = '\0';
        texts.emplace_back(text);
    }
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(readOne(texts[i++ % sampleCount]));
    }
}

// --- shortest ---------------------------------------------------------------------------------

void shortestOurs(char* out, double x) {
    vn_g_fmt(out, x);
}
void shortestStd(char* out, double x) {
    *std::to_chars(out, out + 64, x).ptr = '\0';
}
void shortestPrintf(char* out, double x) {
    snprintf(out, 64, "%.17g", x);
}

// --- two places, six digits -------------------------------------------------------------------

void fixedOurs(char* out, double x) {
    (void)vn_g_fmt_fixed(out, 512, 2, x);
}
void fixedStd(char* out, double x) {
    *std::to_chars(out, out + 511, x, std::chars_format::fixed, 2).ptr = '\0';
}
void fixedPrintf(char* out, double x) {
    snprintf(out, 512, "%.2f", x);
}

void scientificOurs(char* out, double x) {
    (void)vn_g_fmt_scientific(out, 512, 6, x);
}
void scientificStd(char* out, double x) {
    *std::to_chars(out, out + 511, x, std::chars_format::scientific, 5).ptr = '\0';
}
void scientificPrintf(char* out, double x) {
    snprintf(out, 512, "%.5e", x);
}

// --- reading ----------------------------------------------------------------------------------

double readOurs(const std::string& text) {
    return vn_strtod(text.c_str(), nullptr);
}
double readStd(const std::string& text) {
    double x = 0;
    std::from_chars(text.data(), text.data() + text.size(), x);
    return x;
}
double readLibc(const std::string& text) {
    return strtod(text.c_str(), nullptr);
}

#ifdef VN_HAVE_FMT
void shortestFmt(char* out, double x) {
    *fmt::format_to(out, FMT_COMPILE("{}"), x) = '\0';
}
void fixedFmt(char* out, double x) {
    *fmt::format_to(out, FMT_COMPILE("{:.2f}"), x) = '\0';
}
void scientificFmt(char* out, double x) {
    *fmt::format_to(out, FMT_COMPILE("{:.5e}"), x) = '\0';
}
#endif

#ifdef VN_HAVE_DOUBLE_CONVERSION
using double_conversion::DoubleToStringConverter;
using double_conversion::StringBuilder;
using double_conversion::StringToDoubleConverter;

void shortestDoubleConversion(char* out, double x) {
    StringBuilder builder(out, 512);
    DoubleToStringConverter::EcmaScriptConverter().ToShortest(x, &builder);
    builder.Finalize();
}
void fixedDoubleConversion(char* out, double x) {
    StringBuilder builder(out, 512);
    DoubleToStringConverter::EcmaScriptConverter().ToFixed(x, 2, &builder);
    builder.Finalize();
}
void scientificDoubleConversion(char* out, double x) {
    StringBuilder builder(out, 512);
    DoubleToStringConverter::EcmaScriptConverter().ToExponential(x, 5, &builder);
    builder.Finalize();
}
double readDoubleConversion(const std::string& text) {
    static const StringToDoubleConverter converter(0, 0, 0, nullptr, nullptr);
    int count = 0;
    return converter.StringToDouble(text.data(), static_cast<int>(text.size()), &count);
}
#endif

#ifdef VN_HAVE_NSPR
void shortestNspr(char* out, double x) {
    int point = 0;
    int sign = 0;
    char* end = nullptr;
    PR_dtoa(x, 0, 0, &point, &sign, &end, out, 64);
}
double readNspr(const std::string& text) {
    return PR_strtod(text.c_str(), nullptr);
}
#endif

struct Input {
    const char* name;
    Values values;
};

constexpr Input inputs[] = {
    {"random bits", randomBits}, {"prices", prices}, {"integers", integers}};

template <typename Call>
void add(const char* operation, const char* who, Call call) {
    for (const Input& input : inputs) {
        const std::string name = std::string(operation) + "/" + input.name + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), [input, call](benchmark::State& state) {
            if constexpr (std::is_same_v<Call, double (*)(const std::string&)>) {
                read(state, input.values, call);
            } else {
                format(state, input.values, call);
            }
        });
    }
}

[[maybe_unused]] const bool added = [] {
    add("shortest", "vn_g_fmt", shortestOurs);
    add("shortest", "std::to_chars", shortestStd);
    add("shortest", "snprintf", shortestPrintf);
    add("fixed", "vn_g_fmt_fixed", fixedOurs);
    add("fixed", "std::to_chars", fixedStd);
    add("fixed", "snprintf", fixedPrintf);
    add("scientific", "vn_g_fmt_scientific", scientificOurs);
    add("scientific", "std::to_chars", scientificStd);
    add("scientific", "snprintf", scientificPrintf);
    add("read", "vn_strtod", readOurs);
    add("read", "std::from_chars", readStd);
    add("read", "strtod", readLibc);
#ifdef VN_HAVE_FMT
    add("shortest", "fmt", shortestFmt);
    add("fixed", "fmt", fixedFmt);
    add("scientific", "fmt", scientificFmt);
#endif
#ifdef VN_HAVE_DOUBLE_CONVERSION
    add("shortest", "double-conversion", shortestDoubleConversion);
    add("fixed", "double-conversion", fixedDoubleConversion);
    add("scientific", "double-conversion", scientificDoubleConversion);
    add("read", "double-conversion", readDoubleConversion);
#endif
#ifdef VN_HAVE_NSPR
    add("shortest", "PR_dtoa", shortestNspr);
    add("read", "PR_strtod", readNspr);
#endif
    return true;
}();

}  // namespace
