// Loading a configuration, compared with GKeyFile and inih, from 100 kB to 100 MB: lines of typical
// length ("name = value"), a header every 50 lines. Each iteration also destroys what it loaded.
// inih stores nothing: its handler here copies each line, as programs must do.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <vncommon/config_file.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif
#ifdef VN_HAVE_INIH
#include <ini.h>
#endif

namespace {

// Written once per size, in the working directory, and removed at exit.
class Files {
  public:
    ~Files() {
        for (const std::string& name : written) {
            unlink(name.c_str());
        }
    }
    const char* ofSize(size_t size) {
        const std::string name = "config_file_bench." + std::to_string(size);
        for (const std::string& known : written) {
            if (known == name) {
                return known.c_str();
            }
        }
        std::ofstream(name, std::ios::binary) << content(size);
        return written.emplace_back(name).c_str();
    }

  private:
    static std::string content(size_t size) {
        std::mt19937 random(4);
        std::string text;
        for (size_t line = 0; text.size() < size; ++line) {
            if (line % 50 == 0) {
                text += "[section " + std::to_string(line / 50) + "]\n";
            }
            text += "setting." + std::to_string(line) + " = " +
                    std::string(5 + random() % 40, static_cast<char>('a' + random() % 26)) + "\n";
        }
        return text;
    }
    std::vector<std::string> written = [] {
        std::vector<std::string> names;
        names.reserve(16);  // no reallocation: names keep their addresses
        return names;
    }();
};

Files files;

void loadOurs(const char* name) {
    VN_ConfigFile* config;
    benchmark::DoNotOptimize(VN_ConfigFile_Load(name, &config));
    vn_HashMap_dtor(config->categories);
    VN_ConfigFile_Release(config);
}

#ifdef VN_HAVE_GLIB_2_0
void loadKeyFile(const char* name) {
    GKeyFile* file = g_key_file_new();
    benchmark::DoNotOptimize(g_key_file_load_from_file(file, name, G_KEY_FILE_NONE, nullptr));
    g_key_file_free(file);
}
#endif

#ifdef VN_HAVE_INIH
struct IniEntry {
    std::string section, name, value;
};

int keepIniEntry(void* entries, const char* section, const char* name, const char* value) {
    static_cast<std::vector<IniEntry>*>(entries)->push_back({section, name, value});
    return 1;
}

void loadIni(const char* name) {
    std::vector<IniEntry> entries;
    benchmark::DoNotOptimize(ini_parse(name, keepIniEntry, &entries));
}
#endif

using Load = void (*)(const char* name);

void measure(benchmark::State& state, Load load) {
    const auto size = static_cast<size_t>(state.range(0));
    const char* name = files.ofSize(size);
    for ([[maybe_unused]] auto _ : state) {
        load(name);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void enlist(const char* name, Load load) {
    benchmark::RegisterBenchmark(name, measure, load)
        ->RangeMultiplier(10)
        ->Range(100'000, 100'000'000)
        ->Unit(benchmark::kMillisecond);
}

[[maybe_unused]] const bool enlisted = [] {
    enlist("VN_ConfigFile_Load", loadOurs);
#ifdef VN_HAVE_INIH
    enlist("inih", loadIni);
#endif
#ifdef VN_HAVE_GLIB_2_0
    enlist("GKeyFile", loadKeyFile);
#endif
    return true;
}();

}  // namespace
