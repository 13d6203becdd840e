// The server's settings: the [server] category of the configuration file, whose entries read
// "key = value".
#ifndef VN_EXAMPLES_SETTINGS_H
#define VN_EXAMPLES_SETTINGS_H

#include <cstdint>
#include <string>

struct Settings {
    std::string file;                // the file they come from; empty: all defaults
    uint32_t port = 7007;            // port = 0: the system chooses
    uint32_t workers = 0;            // workers = 0: one per processor
    std::string logFile = "stderr";  // log file = PATH, stderr or stdout
    uint32_t logLevel = 7;     // log level = OFF, CRIT, FATAL, ERROR, WARN, INFO, DEBUG, TRACE
    uint32_t queue = 8192;     // queue = maximum of waiting records
    uint32_t clients = 200;    // clients = maximum of connections
    uint32_t idleLimit = 300;  // idle limit = seconds without a line; 0 for no limit
};

// From the file of that name or, when path is null, from the .vantrel.conf that the library
// finds. False with a message in error.
bool readSettings(const char* path, Settings& settings, std::string& error);

#endif
