// Sends the package database to the event server, record by record, and counts the answers.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <vncommon/failure.h>
#include <vncommon/file_logger.h>
#include <vncommon/strings.h>

#include "client_session.h"
#include "package_reader.h"
#include "record_line.h"

namespace {

constexpr char usage[] =
    "Usage: package_client -p PORT [OPTIONS] [FILE]\n"
    "Sends the records of FILE (default /var/lib/dpkg/status) to the event server.\n"
    "  -h HOST     where it runs (default 127.0.0.1)\n"
    "  -n COUNT    prints the first COUNT events (default 0)\n"
    "  -t SECONDS  sends the records again and again, for so long\n"
    "  -m COUNT    but not more than COUNT in all (default 1000000)\n"
    "  -c CLIENTS  over so many connections (default 1)\n"
    "The status is 0 only if every record sent was answered by an event.\n";

struct Options {
    std::string file = "/var/lib/dpkg/status";
    std::string host = "127.0.0.1";
    uint64_t port = 0;
    uint64_t shown = 0;
    uint64_t seconds = 0;
    uint64_t most = 1000000;
    uint64_t clients = 1;
};

struct Totals {
    uint64_t sent = 0;
    uint64_t answered = 0;
    uint64_t errors = 0;
    Histogram latency;
};

bool parseNumber(const char* text, uint64_t least, uint64_t most, uint64_t& number) {
    const char* end = nullptr;
    int32_t code = 0;
    number = vn_char8ToUInt64(text, &end, &code);
    return code == 0 && *end == '\0' && number >= least && number <= most;
}

bool parseOption(int letter, const char* value, Options& options) {
    switch (letter) {
        case 'p':
            return parseNumber(value, 1, 65535, options.port);
        case 'h':
            options.host = value;
            return true;
        case 'n':
            return parseNumber(value, 0, 1000000, options.shown);
        case 't':
            return parseNumber(value, 1, 3600, options.seconds);
        case 'm':
            return parseNumber(value, 1, 1000000000, options.most);
        case 'c':
            return parseNumber(value, 1, 1000, options.clients);
        default:
            return false;
    }
}

bool parseOptions(int argc, char** argv, Options& options) {
    for (int letter = getopt(argc, argv, "p:h:n:t:m:c:"); letter != -1;
         letter = getopt(argc, argv, "p:h:n:t:m:c:")) {
        if (!parseOption(letter, optarg, options)) {
            return false;
        }
    }
    if (optind < argc) {
        options.file = argv[optind];
    }
    return options.port != 0 && optind + 1 >= argc;
}

// Reads the whole file before the first record is sent: nothing is sent of a broken file.
bool readLines(const std::string& file, std::vector<std::string>& lines, std::string& error) {
    PackageReader reader;
    PackageRecord record;
    if (reader.open(file)) {
        while (reader.next(record)) {
            lines.push_back(recordLine(record));
        }
    }
    error = reader.error();
    if (error.empty() && lines.empty()) {
        error = file + ": holds no records";
    }
    return error.empty();
}

using Sessions = std::vector<std::unique_ptr<ClientSession>>;

bool connect(const Options& options, const ClientPlan& plan, Sessions& sessions,
             std::string& error) {
    for (uint64_t i = 0; i < options.clients; ++i) {
        const size_t firstLine = i * plan.lines.size() / options.clients;
        sessions.push_back(std::make_unique<ClientSession>(plan, firstLine));
        if (!sessions.back()->connect()) {
            error = "connection " + std::to_string(i + 1) + ": " + sessions.back()->failure();
            return false;
        }
    }
    return true;
}

Totals run(const Sessions& sessions, FileLogger* log) {
    Totals totals;
    for (const auto& session : sessions) {
        session->start();
    }
    for (const auto& session : sessions) {
        session->join();
        totals.sent += session->sent();
        totals.answered += session->answered();
        totals.errors += session->errors();
        totals.latency.add(session->latency());
        if (session->sent() == 0 || session->answered() != session->sent()) {
            FileLogger_LogError(log, "%lu of %lu records were answered: %s", session->answered(),
                                session->sent(), session->failure().c_str());
        }
    }
    return totals;
}

void print(const Totals& totals, double seconds) {
    printf("%lu records sent, %lu answered, %lu of them with an error, in %.3f s: %.0f events/s\n",
           totals.sent, totals.answered, totals.errors, seconds,
           static_cast<double>(totals.answered) / std::max(seconds, 1e-6));
    printf("%s\n%s\n", latencyHeading().c_str(), latencyLine("round trip", totals.latency).c_str());
}

ClientPlan makePlan(const Options& options) {
    ClientPlan plan;
    plan.host = options.host;
    plan.port = static_cast<int>(options.port);
    plan.seconds = static_cast<double>(options.seconds);
    plan.most = std::max<uint64_t>(1, options.most / options.clients);
    plan.shown = static_cast<unsigned>(options.shown);
    return plan;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) {
        fputs(usage, stderr);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    vn_threadInit();
    FileLogger* log = FileLogger_ctor();
    ClientPlan plan = makePlan(options);
    std::string error;
    Sessions sessions;
    bool good =
        readLines(options.file, plan.lines, error) && connect(options, plan, sessions, error);
    if (good) {
        const double start = VN_TimestampSet_getRelativeTime();
        const Totals totals = run(sessions, log);
        print(totals, VN_TimestampSet_getRelativeTime() - start);
        good = totals.sent > 0 && totals.answered == totals.sent && totals.errors == 0;
    } else {
        FileLogger_LogError(log, "%s", error.c_str());
    }
    char* lineBuffer = log->buffer;
    FileLogger_dtor(log);
    vn_free(lineBuffer);
    return good ? 0 : 1;
}
