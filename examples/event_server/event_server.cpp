// Serves records over TCP: each line of fields comes back as an event. README.md describes the
// protocol.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <vncommon/discovery.h>
#include <vncommon/failure.h>
#include <vncommon/log.h>
#include <vncommon/process.h>
#include <vncommon/threads.h>
#include <vncommon/utf8.h>

#include "banner.h"
#include "server.h"
#include "service_manager.h"

namespace {

// Runs before the process ends for lack of memory (failure.h): prints the stack.
void reportOutOfMemory() {
    vn_stackTrace(STDERR_FILENO);
}

void logReport(const Statistics& statistics) {
    for (const std::string& line : statistics.report()) {
        VN_LogInfo("%s", line.c_str());
        printf("%s\n", line.c_str());
    }
    fflush(stdout);
}

int fail(const std::string& error) {
    fprintf(stderr, "event_server: %s\n", error.c_str());
    return 1;
}

int serve(const Settings& settings) {
    const StopSignals signals;
    const auto workers = settings.workers != 0
                             ? settings.workers
                             : static_cast<uint32_t>(std::max(1, vn_numberOfCPUs()));
    Server server(settings, workers);
    std::string error;
    if (!server.listen(error)) {
        return fail(error);
    }
    setUpLog(settings);
    logBanner(settings, workers, server.port());
    printf("port %d\n", server.port());
    fflush(stdout);
    tellServiceManager("READY=1");
    server.run(signals);
    logReport(server.statistics());
    VN_LogForce("Ended");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        const bool help = argc == 2 && strcmp(argv[1], "--help") == 0;
        fprintf(
            help ? stdout : stderr,
            "Usage: event_server [CONFIGURATION]\n"
            "Serves until SIGINT or SIGTERM. Settings: the [server] category of CONFIGURATION,\n"
            "by default of the .vantrel.conf in this or the home directory.\n");
        return help ? 0 : 2;
    }
    signal(SIGPIPE, SIG_IGN);  // a closed connection is an error of write, not a signal
    vn_threadInit();
    vn_setOutOfMemoryCallBack(reportOutOfMemory);
    char* path = argc == 2 ? vn_cmdlineToUTF8(argv[1]) : nullptr;
    Settings settings;
    std::string error;
    const bool good = readSettings(path, settings, error);
    vn_free(path);
    return good ? serve(settings) : fail(error);
}
