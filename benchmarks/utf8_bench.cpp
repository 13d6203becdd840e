// Validation, counting and comparison of UTF-8.
#include <benchmark/benchmark.h>
#include <strings.h>
#include <vncommon/utf8.h>

#include <cstring>
#include <map>
#include <string>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif
#ifdef VN_HAVE_SIMDJSON
#include <simdjson.h>
#endif

namespace {

enum Kind : int { ascii, latin, cjk, emoji };

const char* const samples[] = {
    "The quick brown fox jumps over the lazy dog, 0123456789 times. ",
    "D\xC3\xA9j\xC3\xA0 vu \xC3\xA0 M\xC3\xBCnchen, na\xC3\xAFve fa\xC3\xA7\x61\x64\x65s "
    "and \xC3\x85ngstr\xC3\xB6m units. ",
    "\xE4\xBD\xA0\xE5\xA5\xBD\xE4\xB8\x96\xE7\x95\x8C\xE3\x80\x82\xE6\x9D\xB1\xE4\xBA\xAC\xE3\x80"
    "\x81\xEC\x84\x9C\xEC\x9A\xB8",
    "\xF0\x9F\x98\x80\xF0\x9F\x9A\x80\xF0\x9F\x8E\x89\xF0\x9F\x90\x8D",
};

// Whole samples, padded with letters to exactly `size` bytes.
std::string makeText(int kind, size_t size) {
    const std::string sample = samples[kind];
    std::string text;
    while (text.size() + sample.size() <= size) {
        text += sample;
    }
    return text.append(size - text.size(), 'x');
}

template <class Function>
void runOverText(benchmark::State& state, Function function) {
    const auto size = static_cast<size_t>(state.range(1));
    const std::string text = makeText(static_cast<int>(state.range(0)), size);
    for (auto _ : state) {
        const char* data = text.c_str();
        benchmark::DoNotOptimize(data);
        benchmark::DoNotOptimize(function(data));
    }
    state.SetBytesProcessed(state.iterations() * state.range(1));
}

void allTexts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"kind", "bytes"})->ArgsProduct({{ascii, latin, cjk, emoji}, {16, 64, 1 << 20}});
}
void longTexts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"kind", "bytes"})->ArgsProduct({{ascii, latin, cjk, emoji}, {1 << 20}});
}
void asciiTexts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"kind", "bytes"})->ArgsProduct({{ascii}, {16, 64, 1 << 20}});
}

void vnIsUTF8(benchmark::State& state) {
    runOverText(state, vn_isUTF8);
}
BENCHMARK(vnIsUTF8)->Apply(allTexts);

void vnIsAscii(benchmark::State& state) {
    runOverText(state, vn_isAscii);
}
BENCHMARK(vnIsAscii)->Apply(asciiTexts);

void platformStrlen(benchmark::State& state) {
    runOverText(state, strlen);
}
BENCHMARK(platformStrlen)->Apply(asciiTexts);

#ifdef VN_HAVE_GLIB_2_0
void glibUtf8Validate(benchmark::State& state) {
    runOverText(state, [](const char* text) { return g_utf8_validate(text, -1, nullptr); });
}
BENCHMARK(glibUtf8Validate)->Apply(allTexts);
#endif

void vnLength(benchmark::State& state) {
    runOverText(state, vn_UTF8Length);
}
BENCHMARK(vnLength)->Apply(allTexts);

void vnCountChars(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(1));
    runOverText(state, [=](const char* text) { return vn_UTF8CountChars(text, text + size); });
}
BENCHMARK(vnCountChars)->Apply(longTexts);

#ifdef VN_HAVE_SIMDJSON
// Gets the size as an argument, like vn_UTF8CountChars; vn_UTF8Length must also find the
// terminator.
void simdjsonCount(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(1));
    runOverText(state, [=](const char* text) {
        if (!simdjson::validate_utf8(text, size)) {
            return 0;
        }
        int count = 0;
        for (size_t i = 0; i < size; ++i) {
            count += (static_cast<uint8_t>(text[i]) & 0xC0) != 0x80;
        }
        return count;
    });
}
BENCHMARK(simdjsonCount)->Apply(allTexts);
#endif

#ifdef VN_HAVE_GLIB_2_0
void glibStrlen(benchmark::State& state) {
    runOverText(state, [](const char* text) { return g_utf8_strlen(text, -1); });
}
BENCHMARK(glibStrlen)->Apply(allTexts);
#endif

// The texts differ only in the case of their letters, so both are read to the end. Their position
// in a page affects the time, so every function gets the same texts.
struct TextPair {
    std::string a;
    std::string b;
};

const TextPair& pairOfSize(size_t size) {
    static std::map<size_t, TextPair> pairs;
    TextPair& pair = pairs[size];
    if (pair.a.empty()) {
        pair.a = pair.b = makeText(ascii, size);
        for (char& c : pair.b) {
            c = static_cast<char>(vn_UTF8isAsciiLetter(c) ? c ^ 0x20 : c);
        }
    }
    return pair;
}

template <class Function>
void runOverPair(benchmark::State& state, Function function) {
    const auto& [a, b] = pairOfSize(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        const char* first = a.c_str();
        const char* second = b.c_str();
        benchmark::DoNotOptimize(first);
        benchmark::DoNotOptimize(second);
        benchmark::DoNotOptimize(function(first, second));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void vnCaseCmp(benchmark::State& state) {
    runOverPair(state, vn_UTF8CaseCmp);
}
BENCHMARK(vnCaseCmp)->ArgName("bytes")->Arg(8)->Arg(20)->Arg(64)->Arg(1024)->Arg(1 << 20);

void platformStrcasecmp(benchmark::State& state) {
    runOverPair(state, strcasecmp);
}
BENCHMARK(platformStrcasecmp)->ArgName("bytes")->Arg(8)->Arg(20)->Arg(64)->Arg(1024)->Arg(1 << 20);

#ifdef VN_HAVE_GLIB_2_0
void glibCaseCmp(benchmark::State& state) {
    runOverPair(state, [](const char* a, const char* b) {
        char* const foldedA = g_utf8_casefold(a, -1);
        char* const foldedB = g_utf8_casefold(b, -1);
        const int result = strcmp(foldedA, foldedB);
        g_free(foldedA);
        g_free(foldedB);
        return result;
    });
}
BENCHMARK(glibCaseCmp)->ArgName("bytes")->Arg(8)->Arg(20)->Arg(64)->Arg(1024)->Arg(1 << 20);
#endif

}  // namespace
