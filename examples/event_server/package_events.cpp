// Prints the package database as events, one per line, and counts and rates on standard error: the
// server's work without a server. All events are rendered before the first byte is written, so a
// broken file gives no partial output.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vncommon/failure.h>

#include "package_event.h"
#include "package_reader.h"
#include "record_line.h"
#include "record_parser.h"

namespace {

constexpr char defaultFile[] = "/var/lib/dpkg/status";

bool render(const PackageRecord& stanza, RecordParser& parser, std::string& output,
            std::string& error) {
    Record record;
    std::string line = recordLine(stanza);
    if (!parser.parse(line, record, error)) {
        return false;
    }
    VN_EventWriter* event = buildPackageEvent(record);
    output += renderOnOneLine(event) + '\n';
    VN_EventWriter_dtor(event);
    return true;
}

bool renderAll(const char* path, std::string& output, unsigned long& records, std::string& error) {
    PackageReader reader;
    RecordParser parser;
    PackageRecord stanza;
    if (!reader.open(path)) {
        error = reader.error();
        return false;
    }
    while (reader.next(stanza)) {
        ++records;
        if (!render(stanza, parser, output, error)) {
            error = std::string(path) + ": record " + std::to_string(records) + ": " + error;
            return false;
        }
    }
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
        const bool help = argc == 2 && strcmp(argv[1], "--help") == 0;
        fprintf(help ? stdout : stderr,
                "Usage: package_events [FILE]\n"
                "Prints the records of FILE (default %s) as events.\n",
                defaultFile);
        return help ? 0 : 2;
    }
    const uint64_t start = vn_systime();
    std::string output;
    std::string error;
    unsigned long records = 0;
    if (!renderAll(argc == 2 ? argv[1] : defaultFile, output, records, error)) {
        return fail(error);
    }
    const uint64_t elapsed = vn_systime() - start;
    if (fwrite(output.data(), 1, output.size(), stdout) != output.size() || fflush(stdout) != 0) {
        return fail("standard output cannot be written");
    }
    const double seconds = static_cast<double>(elapsed > 0 ? elapsed : 1) / 1000.0;
    fprintf(stderr, "%lu events, %lu bytes in %.3f s: %.0f events/s, %.1f MB/s\n", records,
            output.size(), seconds, static_cast<double>(records) / seconds,
            static_cast<double>(output.size()) / seconds / 1e6);
    return 0;
}
