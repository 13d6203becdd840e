// Eight threads use every family at once, while the log is rotated each second and another process
// loads and unloads the library. Checks every result; at the end the memory and the descriptors of
// both processes must be flat.
#include <vncommon/log.h>
#include <vncommon/threads.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "soak/log_files.h"
#include "soak/measure.h"
#include "soak/worker.h"
#include "support/temporary_folder.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t workerCount = 8;

std::atomic<uint64_t> failures{0};

// The process that loads and unloads the library. It ends when its standard input is closed.
class Loader {
  public:
    Loader(const char* program, const char* library) {
        int toChild[2];
        int fromChild[2];
        const bool piped =
            pipe2(toChild, O_CLOEXEC) == 0 && pipe2(fromChild, O_CLOEXEC | O_NONBLOCK) == 0;
        SOAK_CHECK(piped);
        if (!piped) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
        const char* arguments[] = {program, library, nullptr};
        SOAK_CHECK(posix_spawn(&process, program, &actions, nullptr, const_cast<char**>(arguments),
                               environ) == 0);
        posix_spawn_file_actions_destroy(&actions);
        close(toChild[0]);
        close(fromChild[1]);
        input = toChild[1];
        output = fromChild[0];
    }

    // Reads the lines that the process has printed since the last call.
    void read() {
        char piece[512];
        for (ssize_t got; (got = ::read(output, piece, sizeof piece)) > 0;) {
            pending.append(piece, static_cast<size_t>(got));
        }
        for (size_t end; (end = pending.find('\n')) != std::string::npos;) {
            Sample sample{};
            SOAK_CHECK(sscanf(pending.c_str(), "%lu %lf %lf %lf", &loads, &sample.residentBytes,
                              &sample.heapBytes, &sample.descriptors) == 4);
            samples.push_back(sample);
            pending.erase(0, end + 1);
        }
    }

    void end() {
        close(input);
        int status = -1;
        SOAK_CHECK(waitpid(process, &status, 0) == process && status == 0);
        read();
        close(output);
    }

    unsigned long loads = 0;
    std::vector<Sample> samples;

  private:
    pid_t process = -1;
    int input = -1;
    int output = -1;
    std::string pending;
};

class Soak {
  public:
    Soak(const std::string& folder, const char* program, const char* library)
        : shared(folder), log(folder, workerCount), loader(program, library) {
        for (size_t i = 0; i < workerCount; ++i) {
            workers[i].shared = &shared;
            workers[i].number = i;
            threads[i] = vn_createThread(work, &workers[i], false);
        }
        samples.reserve(4096);
    }

    // Lasts longer if the other process is slow to start.
    void run(int seconds) {
        waitForWorkers();
        const auto start = Clock::now();
        for (int second = 1; !isOver(second, seconds); ++second) {
            waitUntil(start + std::chrono::seconds(second));
            log.rotate();
            loader.read();
            samples.push_back(measure());
            if (second % 10 == 0) {
                printProgress(second);
            }
        }
        stopWorkers();
    }

    bool verdict() {
        printProgress(static_cast<int>(samples.size()));
        const bool flat = reportFlatness("threads", samples);
        const bool loaderFlat = reportFlatness("loading", loader.samples);
        printf("log: %lu lines in order, %d rotations\n",
               static_cast<unsigned long>(log.linesFound()), log.rotations());
        printf("queue: %lu elements put, %lu taken\n", static_cast<unsigned long>(shared.put.count),
               static_cast<unsigned long>(shared.taken.count));
        return flat && loaderFlat;
    }

  private:
    // A worker opens a connection in its first round and keeps it.
    void waitForWorkers() const {
        for (const Worker& worker : workers) {
            while (worker.rounds == 0 && failureCount() == 0) {
                vn_sleep(1);
            }
        }
    }

    bool isOver(int second, int seconds) const {
        return failureCount() > 0 || (second > seconds && loader.samples.size() >= fewestSamples);
    }

    // SIGHUP may end a sleep early.
    static void waitUntil(Clock::time_point time) {
        while (Clock::now() < time) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(time - Clock::now());
            vn_sleep(static_cast<uint32_t>(std::max<int64_t>(left.count(), 1)));
        }
    }

    void stopWorkers() {
        shared.stop = true;
        std::vector<uint64_t> written;
        for (size_t i = 0; i < workerCount; ++i) {
            vn_joinThread(threads[i]);
            written.push_back(workers[i].lines);
        }
        loader.end();
        log.finish(written);
    }

    void printProgress(int second) const {
        uint64_t rounds = 0;
        for (const Worker& worker : workers) {
            rounds += worker.rounds;
        }
        const Sample now = samples.empty() ? Sample{} : samples.back();
        printf(
            "%4d s: %lu rounds, %lu log lines, %lu loads, %.1f MiB resident, %.2f MiB heap, "
            "%.0f descriptors, %lu failures\n",
            second, static_cast<unsigned long>(rounds),
            static_cast<unsigned long>(log.linesFound()), loader.loads, now.residentBytes / 1048576,
            now.heapBytes / 1048576, now.descriptors, static_cast<unsigned long>(failureCount()));
        fflush(stdout);
    }

    Shared shared;
    LogFiles log;
    Loader loader;
    std::array<Worker, workerCount> workers;
    std::array<vn_ThreadId, workerCount> threads;
    std::vector<Sample> samples;
};

// Called first: the expected texts are those of UTF-8, and a closed connection must not end the
// process.
void prepareProcess() {
    setenv("LC_ALL", "C.UTF-8", 1);
    signal(SIGPIPE, SIG_IGN);
    vn_threadInit();
}

}  // namespace

void reportFailure(const char* file, int line, const char* what) {
    if (failures.fetch_add(1) < 20) {
        fprintf(stderr, "soak: %s:%d: failed: %s\n", file, line, what);
    }
}

uint64_t failureCount() {
    return failures;
}

int main(int argc, char** argv) {
    const int seconds = argc == 4 ? atoi(argv[3]) : 0;
    if (seconds < 4) {
        fprintf(stderr, "usage: soak SOAK_LOADING LIBRARY SECONDS (4 or more)\n");
        return 2;
    }
    prepareProcess();
    const TemporaryFolder folder;
    bool flat = false;
    {
        Soak soak(folder.path(), argv[1], argv[2]);
        soak.run(seconds);
        flat = soak.verdict();
    }
    const bool passed = flat && failureCount() == 0;
    printf("soak: %s\n", passed ? "passed" : "FAILED");
    return passed ? 0 : 1;
}
