// Integer parsing and XML escaping.
#include <benchmark/benchmark.h>
#include <vncommon/strings.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

// 1024 numbers with `digits` digits, or of any size if `digits` is 0; every fourth is negative.
std::vector<std::string> makeNumbers(int64_t digits) {
    std::mt19937_64 random(1);
    std::vector<std::string> numbers(1024);
    for (std::string& number : numbers) {
        number.assign(random() % 4 == 0, '-');
        const uint64_t size = digits != 0 ? static_cast<uint64_t>(digits) : 1 + random() % 18;
        number += static_cast<char>('1' + random() % 9);
        for (uint64_t i = 1; i < size; ++i) {
            number += static_cast<char>('0' + random() % 10);
        }
    }
    return numbers;
}

template <class Parse>
void parseNumbers(benchmark::State& state, Parse parse) {
    const std::vector<std::string> numbers = makeNumbers(state.range(0));
    for (auto _ : state) {
        for (const std::string& number : numbers) {
            benchmark::DoNotOptimize(parse(number));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(numbers.size()));
}

void digits(benchmark::internal::Benchmark* b) {
    b->ArgName("digits")->Arg(0)->Arg(3)->Arg(9)->Arg(18);
}

void vnChar8ToInt64(benchmark::State& state) {
    parseNumbers(state, [](const std::string& number) {
        int32_t error = 0;
        const char* end = nullptr;
        const int64_t value = vn_char8ToInt64(number.c_str(), &end, &error);
        benchmark::DoNotOptimize(end);
        return value + error;
    });
}
BENCHMARK(vnChar8ToInt64)->Apply(digits);

void stdFromChars(benchmark::State& state) {
    parseNumbers(state, [](const std::string& number) {
        int64_t value = 0;
        auto result = std::from_chars(number.data(), number.data() + number.size(), value);
        benchmark::DoNotOptimize(result.ptr);
        return value + static_cast<int64_t>(result.ec);
    });
}
BENCHMARK(stdFromChars)->Apply(digits);

void platformStrtoll(benchmark::State& state) {
    parseNumbers(state, [](const std::string& number) {
        char* end = nullptr;
        const int64_t value = strtoll(number.c_str(), &end, 10);
        benchmark::DoNotOptimize(end);
        return value;
    });
}
BENCHMARK(platformStrtoll)->Apply(digits);

enum Kind : int { plain, sparse, dense };

std::string makeXmlText(int64_t kind, int64_t size) {
    const char* const samples[] = {"Nothing in this text needs any escape at all, as is usual. ",
                                   "The price of \"A & B\" rose from 3 to 5 units; it's early. ",
                                   "<a b='c'>&\"</a>"};
    std::string text;
    while (text.size() < static_cast<size_t>(size)) {
        text += samples[kind];
    }
    text.resize(static_cast<size_t>(size));
    return text;
}

template <class Escape>
void escapeText(benchmark::State& state, Escape escape) {
    const std::string text = makeXmlText(state.range(0), state.range(1));
    for (auto _ : state) {
        free(escape(text.c_str()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(1));
}

void texts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"kind", "bytes"})->ArgsProduct({{plain, sparse, dense}, {16, 100, 10000}});
}

void vnXmlEscape(benchmark::State& state) {
    escapeText(state, vn_xmlEscapeString);
}
BENCHMARK(vnXmlEscape)->Apply(texts);

#ifdef VN_HAVE_GLIB_2_0
void glibMarkupEscape(benchmark::State& state) {
    escapeText(state, [](const char* text) { return g_markup_escape_text(text, -1); });
}
BENCHMARK(glibMarkupEscape)->Apply(texts);
#endif

}  // namespace
