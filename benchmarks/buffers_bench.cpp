// Building 1 MiB of text with the buffers, compared with GString and std::string.
#include <benchmark/benchmark.h>
#include <vncommon/buffers.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

constexpr size_t total = 1 << 20;

// Texts of 1 to 40 characters, typical for records.
const std::vector<std::string>& words() {
    static const std::vector<std::string> made = [] {
        std::vector<std::string> list;
        for (size_t i = 0; i < 64; ++i) {
            list.push_back(std::string(1 + i * 7 % 40, static_cast<char>('a' + i % 26)));
        }
        return list;
    }();
    return made;
}

// Text with one character to escape per period.
std::string textToEscape(size_t period) {
    std::string text;
    const char special[] = {'\n', '"', '\\', '\r'};
    for (size_t i = 0; text.size() < total / 2; ++i) {
        text += std::string(period - 1, 'x') + special[i % 4];
    }
    return text;
}

// Calls append(text) word by word until the text has 1 MiB.
template <class Append>
void appendWords(const Append& append) {
    size_t size = 0;
    for (size_t i = 0; size < total; ++i) {
        const std::string& word = words()[i % 64];
        append(word.c_str());
        size += word.size();
    }
}

template <class Append>
void build(benchmark::State& state, const Append& append) {
    for (auto _ : state) {
        CStringBuffer buffer;
        vn_strbufInit(&buffer, 0);
        append(&buffer);
        benchmark::DoNotOptimize(buffer.data);
        vn_strbufDestroy(&buffer, 1);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(total));
}

template <class Append>
void buildStd(benchmark::State& state, const Append& append) {
    for (auto _ : state) {
        std::string text;
        append(text);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(total));
}

void string_vn(benchmark::State& state) {
    build(state, [](CStringBuffer* buffer) {
        appendWords([&](const char* word) { vn_strbufAppendString(buffer, word); });
    });
}
BENCHMARK(string_vn);

void string_std(benchmark::State& state) {
    buildStd(state,
             [](std::string& text) { appendWords([&](const char* word) { text.append(word); }); });
}
BENCHMARK(string_std);

// The default for callers: inlined, like GLib's macro below.
void char_vn(benchmark::State& state) {
    build(state, [](CStringBuffer* buffer) {
        for (size_t i = 0; i < total; ++i) {
            vn_strbufAppendChar(buffer, static_cast<int>('a' + i % 16));
        }
    });
}
BENCHMARK(char_vn);

// Through the exported function, as in programs compiled earlier.
void char_vnCalled(benchmark::State& state) {
    void (*volatile exported)(CStringBuffer*, int) = vn_strbufAppendChar;
    build(state, [append = exported](CStringBuffer* buffer) {
        for (size_t i = 0; i < total; ++i) {
            append(buffer, static_cast<int>('a' + i % 16));
        }
    });
}
BENCHMARK(char_vnCalled);

void char_std(benchmark::State& state) {
    buildStd(state, [](std::string& text) {
        for (size_t i = 0; i < total; ++i) {
            text.push_back(static_cast<char>('a' + i % 16));
        }
    });
}
BENCHMARK(char_std);

void format_vn(benchmark::State& state) {
    build(state, [](CStringBuffer* buffer) {
        appendWords(
            [&](const char* word) { vn_strbufAppendFormat(buffer, "%s=%d;", word, 12345); });
    });
}
BENCHMARK(format_vn);

void format_std(benchmark::State& state) {
    buildStd(state, [](std::string& text) {
        appendWords([&](const char* word) {
            char line[128];
            const int length = snprintf(line, sizeof line, "%s=%d;", word, 12345);
            text.append(line, static_cast<size_t>(length));
        });
    });
}
BENCHMARK(format_std);

void escape_vn(benchmark::State& state) {
    const std::string text = textToEscape(static_cast<size_t>(state.range(0)));
    build(state, [&](CStringBuffer* buffer) { vn_strbufAppendStringEscape(buffer, text.c_str()); });
}
BENCHMARK(escape_vn)->Arg(2)->Arg(10)->Arg(100);

void escapeSemiColon_vn(benchmark::State& state) {
    const std::string text = textToEscape(static_cast<size_t>(state.range(0)));
    build(state, [&](CStringBuffer* buffer) {
        vn_strbufAppendStringEscapeSemiColon(buffer, text.c_str());
    });
}
BENCHMARK(escapeSemiColon_vn)->Arg(2)->Arg(10)->Arg(100);

// A loop over a std::string with reserved capacity.
void escape_std(benchmark::State& state) {
    const std::string source = textToEscape(static_cast<size_t>(state.range(0)));
    buildStd(state, [&](std::string& text) {
        text.reserve(2 * source.size());
        for (const char c : source) {
            switch (c) {
                case '\n':
                    text += "\\n";
                    break;
                case '\r':
                    text += "\\r";
                    break;
                case '"':
                    text += "\\\"";
                    break;
                case '\\':
                    text += "\\\\";
                    break;
                default:
                    text += c;
            }
        }
    });
}
BENCHMARK(escape_std)->Arg(2)->Arg(10)->Arg(100);

void shortEscape_vn(benchmark::State& state) {
    build(state, [](CStringBuffer* buffer) {
        appendWords([&](const char* word) { vn_strbufAppendStringEscape(buffer, word); });
    });
}
BENCHMARK(shortEscape_vn);

void bytes_vn(benchmark::State& state) {
    for (auto _ : state) {
        CByteBuffer buffer;
        vn_bytebufInit(&buffer, 0);
        appendWords([&](const char* word) { vn_bytebufAppendString(&buffer, word); });
        benchmark::DoNotOptimize(buffer.data);
        vn_bytebufDestroy(&buffer, 1);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(total));
}
BENCHMARK(bytes_vn);

#ifdef VN_HAVE_GLIB_2_0

template <class Append>
void buildGString(benchmark::State& state, const Append& append) {
    for (auto _ : state) {
        GString* text = g_string_new(nullptr);
        append(text);
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(total));
}

void string_gstring(benchmark::State& state) {
    buildGString(state, [](GString* text) {
        appendWords([&](const char* word) { g_string_append(text, word); });
    });
}
BENCHMARK(string_gstring);

void char_gstring(benchmark::State& state) {
    buildGString(state, [](GString* text) {
        for (size_t i = 0; i < total; ++i) {
            g_string_append_c(text, static_cast<char>('a' + i % 16));
        }
    });
}
BENCHMARK(char_gstring);

// GLib has no function that appends one character; its macro falls back to this one.
void char_gstringCalled(benchmark::State& state) {
    GString* (*volatile exported)(GString*, gssize, gchar) = g_string_insert_c;
    buildGString(state, [append = exported](GString* text) {
        for (size_t i = 0; i < total; ++i) {
            append(text, -1, static_cast<char>('a' + i % 16));
        }
    });
}
BENCHMARK(char_gstringCalled);

void format_gstring(benchmark::State& state) {
    buildGString(state, [](GString* text) {
        appendWords([&](const char* word) { g_string_append_printf(text, "%s=%d;", word, 12345); });
    });
}
BENCHMARK(format_gstring);

void escape_gstring(benchmark::State& state) {
    const std::string source = textToEscape(static_cast<size_t>(state.range(0)));
    buildGString(state, [&](GString* text) {
        char* escaped = g_strescape(source.c_str(), nullptr);
        g_string_append(text, escaped);
        g_free(escaped);
    });
}
BENCHMARK(escape_gstring)->Arg(2)->Arg(10)->Arg(100);

void bytes_gbytearray(benchmark::State& state) {
    for (auto _ : state) {
        GByteArray* bytes = g_byte_array_new();
        appendWords([&](const char* word) {
            g_byte_array_append(bytes, reinterpret_cast<const guint8*>(word),
                                static_cast<guint>(strlen(word)));
        });
        benchmark::DoNotOptimize(bytes->data);
        g_byte_array_free(bytes, TRUE);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(total));
}
BENCHMARK(bytes_gbytearray);

#endif

}  // namespace
