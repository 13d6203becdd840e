// Loggers. The important figure is the time of a line beyond a bare write() of its bytes, which is
// also measured. spdlog's file logger flushes every line, because ours writes every line. Run with
// --benchmark_repetitions=15 --benchmark_enable_random_interleaving=true and compare medians.
#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <vncommon/file_logger.h>
#include <vncommon/log.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#ifdef VN_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include "peer_comparison.h"

namespace {

const char client[] = "client-0017.frankfurt.example";
constexpr unsigned long orderId = 18446744;

// The line has 80 characters, including the arguments.
constexpr char text[] = "order %7d of %s was filled and is reported as number %lu.";
[[maybe_unused]] constexpr char fmtText[] =
    "order {:7d} of {} was filled and is reported as number {}.";

constexpr int linesPerFile = 50'000;

// A file in memory that is truncated from time to time.
class LogFile {
  public:
    LogFile() {
        std::string pattern = "/dev/shm/vn_logging_bench_XXXXXX";
        close(mkstemp(pattern.data()));
        path = pattern;
    }
    ~LogFile() { unlink(path.c_str()); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void lineWritten() {
        if (++lines % linesPerFile == 0 && truncate(path.c_str(), 0) != 0) {
            abort();
        }
    }
    std::string path;

  private:
    int lines = 0;
};

void setItems(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations());
}

// ---- One thread ----

void write_only(benchmark::State& state) {
    LogFile file;
    const std::string message(80, 'm');
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, file.path.c_str(), 1, 1);
    FileLogger_LogInfo(logger, "%s", message.c_str());
    const std::string line(std::filesystem::file_size(file.path), 'x');
    const int fd = FileLogger_GetFD(logger);
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
        file.lineWritten();
    }
    state.SetLabel(std::to_string(line.size()) + " bytes");
    FileLogger_dtor(logger);
}
BENCHMARK(write_only);

void vn_line(benchmark::State& state) {
    LogFile file;
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, file.path.c_str(), 1, 1);
    int number = 0;
    for (auto _ : state) {
        FileLogger_LogInfo(logger, text, ++number, client, orderId);
        file.lineWritten();
    }
    FileLogger_dtor(logger);
}
BENCHMARK(vn_line);

void vn_line_with_double(benchmark::State& state) {
    LogFile file;
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFilename(logger, file.path.c_str(), 1, 1);
    int number = 0;
    for (auto _ : state) {
        FileLogger_LogInfo(logger, "order %7d of %s was filled and is reported at %.2f", ++number,
                           client, 17.25);
        file.lineWritten();
    }
    FileLogger_dtor(logger);
}
BENCHMARK(vn_line_with_double);

#ifdef VN_HAVE_SPDLOG
std::shared_ptr<spdlog::logger> peerLogger(const std::string& path) {
    auto logger = std::make_shared<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
    logger->flush_on(spdlog::level::trace);
    // The same columns as ours.
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %-5l [%t] - %v");
    return logger;
}

void spdlog_line(benchmark::State& state) {
    LogFile file;
    const auto logger = peerLogger(file.path);
    int number = 0;
    for (auto _ : state) {
        logger->info(fmtText, ++number, client, orderId);
        file.lineWritten();
    }
}
BENCHMARK(spdlog_line);

void spdlog_line_default_pattern(benchmark::State& state) {
    LogFile file;
    const auto logger = peerLogger(file.path);
    logger->set_pattern("%+");
    int number = 0;
    for (auto _ : state) {
        logger->info(fmtText, ++number, client, orderId);
        file.lineWritten();
    }
}
BENCHMARK(spdlog_line_default_pattern);

void spdlog_line_with_double(benchmark::State& state) {
    LogFile file;
    const auto logger = peerLogger(file.path);
    int number = 0;
    for (auto _ : state) {
        logger->info("order {:7d} of {} was filled and is reported at {:.2f}", ++number, client,
                     17.25);
        file.lineWritten();
    }
}
BENCHMARK(spdlog_line_with_double);
#endif

// ---- Several threads on one logger ----

void vn_threads(benchmark::State& state) {
    static LogFile* file;
    static FileLogger* logger;
    if (state.thread_index() == 0) {
        file = new LogFile;
        logger = FileLogger_ctor();
        FileLogger_SetFilename(logger, file->path.c_str(), 1, 1);
    }
    int number = 0;
    for (auto _ : state) {
        FileLogger_LogInfo(logger, text, ++number, client, orderId);
        if (state.thread_index() == 0) {
            file->lineWritten();
        }
    }
    setItems(state);
    if (state.thread_index() == 0) {
        FileLogger_dtor(logger);
        delete file;
    }
}
BENCHMARK(vn_threads)->Threads(2)->Threads(4)->UseRealTime();

#ifdef VN_HAVE_SPDLOG
void spdlog_threads(benchmark::State& state) {
    static LogFile* file;
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0) {
        file = new LogFile;
        logger = peerLogger(file->path);
    }
    int number = 0;
    for (auto _ : state) {
        logger->info(fmtText, ++number, client, orderId);
        if (state.thread_index() == 0) {
            file->lineWritten();
        }
    }
    setItems(state);
    if (state.thread_index() == 0) {
        logger.reset();
        delete file;
    }
}
BENCHMARK(spdlog_threads)->Threads(2)->Threads(4)->UseRealTime();
#endif

// ---- Suppressed lines ----

// The least cost of a call into another library.
void comparison_only(benchmark::State& state) {
    unsigned threshold = 7;
    benchmark::DoNotOptimize(threshold);
    for (auto _ : state) {
        benchmark::DoNotOptimize(peer_isAtMost(8, threshold));
    }
}
BENCHMARK(comparison_only);

void vn_suppressed(benchmark::State& state) {
    VN_LogSetLevel(7);
    for (auto _ : state) {
        VN_LogDebug("suppressed");
    }
}
BENCHMARK(vn_suppressed);

void vn_suppressed_with_arguments(benchmark::State& state) {
    VN_LogSetLevel(7);
    for (auto _ : state) {
        VN_LogDebug(text, 5, client, orderId);
    }
}
BENCHMARK(vn_suppressed_with_arguments);

void vn_suppressed_on_a_logger(benchmark::State& state) {
    FileLogger* logger = FileLogger_ctor();
    for (auto _ : state) {
        FileLogger_LogDebug(logger, text, 5, client, orderId);
    }
    FileLogger_dtor(logger);
}
BENCHMARK(vn_suppressed_on_a_logger);

void vn_suppressed_with_double(benchmark::State& state) {
    VN_LogSetLevel(7);
    for (auto _ : state) {
        VN_LogDebug("%d %s %f", 5, client, 1.5);
    }
}
BENCHMARK(vn_suppressed_with_double);

}  // namespace
