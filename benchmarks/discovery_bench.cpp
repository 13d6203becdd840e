// Discovery: the cost of a call, compared with plain system calls (which ignore control groups).
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <vncommon/discovery.h>
#include <vncommon/platform.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#ifdef VN_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

template <auto function>
void call(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(function());
    }
}

// ---- Processors ------------------------------------------------------------------------------

BENCHMARK(call<vn_getPhysicalCPUs>)->Name("cpus/vn_getPhysicalCPUs");
BENCHMARK(call<vn_numberOfCPUs>)->Name("cpus/vn_numberOfCPUs");
BENCHMARK(call<std::thread::hardware_concurrency>)->Name("cpus/std::hardware_concurrency");
#ifdef VN_HAVE_GLIB_2_0
BENCHMARK(call<g_get_num_processors>)->Name("cpus/g_get_num_processors");
#endif

// ---- Memory ----------------------------------------------------------------------------------

BENCHMARK(call<vn_physicalMemory>)->Name("memory/vn_physicalMemory");
BENCHMARK(call<vn_actualPhysicalMemoryBytes>)->Name("memory/vn_actualPhysicalMemoryBytes");

// ---- Size of the process ---------------------------------------------------------------------

double vmSizeStdio() {
    FILE* file = fopen("/proc/self/status", "r");
    char line[256];
    double size = 0;
    while (fgets(line, sizeof line, file) != nullptr) {
        if (strncmp(line, "VmSize:", 7) == 0) {
            size = strtod(line + 7, nullptr) * 1024;
            break;
        }
    }
    fclose(file);
    return size;
}

double vmSizeStreams() {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("VmSize:")) {
            return strtod(line.c_str() + 7, nullptr) * 1024;
        }
    }
    return 0;
}

double residentSetSizeStdio() {
    FILE* file = fopen("/proc/self/statm", "r");
    long pages = 0;
    const int count = fscanf(file, "%*s%ld", &pages);
    fclose(file);
    return count == 1 ? static_cast<double>(pages * sysconf(_SC_PAGESIZE)) : 0;
}

BENCHMARK(call<vn_vmSize>)->Name("vm/vn_vmSize");
BENCHMARK(call<vmSizeStdio>)->Name("vm/stdio");
BENCHMARK(call<vmSizeStreams>)->Name("vm/ifstream");
BENCHMARK(call<vn_residentSetSize>)->Name("rss/vn_residentSetSize");
BENCHMARK(call<residentSetSizeStdio>)->Name("rss/stdio");

// ---- Descriptions ----------------------------------------------------------------------------

BENCHMARK(call<vn_getCPUDetails>)->Name("text/vn_getCPUDetails");
BENCHMARK(call<vn_getFullPlatformName>)->Name("text/vn_getFullPlatformName");

}  // namespace
