#include "banner.h"

#include <cstdlib>

#include <vncommon/discovery.h>
#include <vncommon/failure.h>
#include <vncommon/log.h>
#include <vncommon/platform.h>
#include <vncommon/process.h>

namespace {

std::string idleLimitText(uint32_t seconds) {
    return seconds == 0 ? "no idle limit" : "idle limit of " + std::to_string(seconds) + " s";
}

}  // namespace

void setUpLog(const Settings& settings) {
    VN_LogSetup(settings.logLevel, settings.logFile.c_str(), 0, 1);
}

void logBanner(const Settings& settings, uint32_t workers, int port) {
    char* user = vn_getUTF8UserName();
    char* directory = vn_getUTF8CurrentDirectory();
    VN_LogForce("Event server, process %d of %s in %s", vn_getProcessId(), user,
                directory != nullptr ? directory : "a directory that is gone");
    VN_LogForce("Processor: %s", vn_getCPUDetails());
    VN_LogForce("Platform: %s", vn_getFullPlatformName());
    VN_LogForce("May use %g of %d processors and %.0f MiB of memory", vn_availableCPUs(),
                vn_getPhysicalCPUs(), vn_physicalMemory());
    VN_LogForce("Settings: %s; %u workers, queue of %u, %u clients, %s, log level %s",
                settings.file.empty() ? "no .vantrel.conf found" : settings.file.c_str(), workers,
                settings.queue, settings.clients, idleLimitText(settings.idleLimit).c_str(),
                VN_LogLevelToString(settings.logLevel));
    VN_LogForce("Listening on port %d", port);
    vn_free(directory);
    vn_free(user);
}
