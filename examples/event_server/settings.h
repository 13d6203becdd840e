// The server's settings: the [server] category of the configuration file, whose entries read
// "key = value".
#ifndef VN_EXAMPLES_SETTINGS_H
#define VN_EXAMPLES_SETTINGS_H

#include <cstdint>
#include <string>

struct Settings {
    std::string file;                // where they were read; empty: nowhere, all as below
    uint32_t port = 7007;            // port = 0 lets the system choose
    uint32_t workers = 0;            // workers = 0 stands for as many as there are processors
    std::string logFile = "stderr";  // log file = PATH, stderr or stdout
    uint32_t logLevel = 7;     // log level = OFF, CRIT, FATAL, ERROR, WARN, INFO, DEBUG, TRACE
    uint32_t queue = 8192;     // queue = the most records that wait for a worker
    uint32_t clients = 200;    // clients = the most connections at a time
    uint32_t idleLimit = 300;  // idle limit = seconds without a line; 0 for no limit
};

// From the file of that name or, when path is null, from the .vantrel.conf that the library
// finds. False with a message in error.
bool readSettings(const char* path, Settings& settings, std::string& error);

#endif
