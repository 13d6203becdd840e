// Prints the package database as events, one a line, and counts and rates on standard error.
// A broken file leaves nothing half-written: everything is rendered before the first byte goes
// out.
#include <cstdio>
#include <string>

#include <vncommon/failure.h>

#include "package_event.h"
#include "package_reader.h"

namespace {

constexpr char defaultFile[] = "/var/lib/dpkg/status";

struct Counts {
    unsigned long records = 0;
    unsigned long bytes = 0;
};

bool renderAll(const char* path, std::string& output, Counts& counts, std::string& error) {
    PackageReader reader;
    PackageRecord record;
    std::string text;
    if (!reader.open(path)) {
        error = reader.error();
        return false;
    }
    while (reader.next(record)) {
        ++counts.records;
        if (!renderPackageEvent(record, text, error)) {
            error = std::string(path) + ": record " + std::to_string(counts.records) + ": " + error;
            return false;
        }
        output += text;
        output += '\n';
    }
    counts.bytes = output.size();
    error = reader.error();
    return error.empty();
}

int fail(const std::string& error) {
    fprintf(stderr, "package_events: %s\n", error.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        fprintf(stderr,
                "Usage: package_events [FILE]\n"
                "Prints the records of FILE (default %s) as events.\n",
                defaultFile);
        return 2;
    }
    const uint64_t start = vn_systime();
    std::string output;
    std::string error;
    Counts counts;
    if (!renderAll(argc == 2 ? argv[1] : defaultFile, output, counts, error)) {
        return fail(error);
    }
    const uint64_t elapsed = vn_systime() - start;
    if (fwrite(output.data(), 1, output.size(), stdout) != output.size() || fflush(stdout) != 0) {
        return fail("standard output cannot be written");
    }
    const double seconds = static_cast<double>(elapsed > 0 ? elapsed : 1) / 1000.0;
    fprintf(stderr, "%lu events, %lu bytes in %.3f s: %.0f events/s, %.1f MB/s\n", counts.records,
            counts.bytes, seconds, static_cast<double>(counts.records) / seconds,
            static_cast<double>(counts.bytes) / seconds / 1e6);
    return 0;
}
