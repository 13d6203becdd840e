#include "soak/log_files.h"

#include <vncommon/log.h>

#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "soak/checks.h"

LogFiles::LogFiles(const std::string& folder, size_t threads)
    : name(folder + "/soak.log"), next(threads, 0) {
    VN_LogSetup(VN_StringToLogLevel("INFO"), name.c_str(), 1, 1);
}

void LogFiles::rotate() {
    SOAK_CHECK(rename(name.c_str(), movedName(moved).c_str()) == 0);
    raise(SIGHUP);
    if (moved > 0) {
        check(movedName(moved - 1));
    }
    ++moved;
}

void LogFiles::finish(const std::vector<uint64_t>& written) {
    if (moved > 0) {
        check(movedName(moved - 1));
    }
    check(name);
    for (size_t thread = 0; thread < next.size(); ++thread) {
        SOAK_CHECK(next[thread] == written[thread]);
    }
}

uint64_t LogFiles::linesFound() const {
    return std::accumulate(next.begin(), next.end(), uint64_t{0});
}

void LogFiles::check(const std::string& file) {
    FILE* stream = fopen(file.c_str(), "re");
    SOAK_CHECK(stream != nullptr);
    if (stream == nullptr) {
        return;
    }
    char line[256];
    while (fgets(line, sizeof line, stream) != nullptr) {
        checkLine(line);
    }
    fclose(stream);
    remove(file.c_str());
}

// A thread's lines are in the order in which it wrote them, so each number must be the next one.
void LogFiles::checkLine(const char* line) {
    size_t thread = next.size();
    uint64_t number = 0;
    int end = 0;
    const int read =
        sscanf(line, "%*4d-%*2d-%*2d %*2d:%*2d:%*2d.%*3d INFO  [%*u] - soak %zu %" SCNu64 "%n",
               &thread, &number, &end);
    const bool whole = read == 2 && thread < next.size() && strcmp(line + end, "\n") == 0;
    if (!whole || number != next[thread]) {
        fprintf(stderr, "soak: unexpected line: %s", line);
    }
    SOAK_CHECK(whole);
    if (whole) {
        SOAK_CHECK(number == next[thread]);
        next[thread] = number + 1;
    }
}

void writeLogLine(size_t thread, uint64_t number) {
    VN_LogInfo("soak %zu %" PRIu64, thread, number);
}
