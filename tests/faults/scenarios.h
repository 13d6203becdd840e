// What the library does while system calls fail: one or more scenarios per family. A scenario runs
// in a child process and checks the documented result of each failure. faults_test.cpp repeats it,
// with another call failing each time.
#ifndef VN_TESTS_FAULTS_SCENARIOS_H
#define VN_TESTS_FAULTS_SCENARIOS_H

#include <cstdlib>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "faults/interposer.h"

namespace faults {

struct Scenario {
    std::string name;
    void (*run)();
    Memory memory;                           // out of contract: see the table in faults_test.cpp
    std::vector<std::string> mustFail = {};  // calls that have to be among the failing ones
    std::vector<std::string> onStandardError = {};  // what lines may hold besides failure reports
    std::vector<std::string> silent = {};           // threading calls whose failure is no report
    std::map<std::string, std::optional<std::string>> environment = {};
    int exitStatus = 0;
    int mayKeep = 0;  // heap blocks that stay for later use in the case of a failure only
    bool fromLoad = false;
    int step = 1;  // with many similar calls, only every n-th fails
};

void PrintTo(const Scenario& scenario, std::ostream* to);

std::vector<Scenario> runtimeScenarios();
std::vector<Scenario> containerScenarios();
std::vector<Scenario> textScenarios();
std::vector<Scenario> platformScenarios();
std::vector<Scenario> configurationScenarios();
std::vector<Scenario> loggingScenarios();
std::vector<Scenario> eventScenarios();

// A failed check makes the child fail.
void check(bool holds, const char* what, const char* file, int line);
#define CHECK(condition) faults::check((condition), #condition, __FILE__, __LINE__)

bool equal(const char* text, const char* expected);  // null is equal to null only

// The message for the call that failed in the last injection; null if none of the listed calls
// failed. The first matching entry counts.
struct Message {
    const char* call;
    const char* text;
};
const char* messageFor(const std::vector<Message>& messages);

// Checks a returned message and frees it.
void checkMessage(char* message, const char* expected, const char* file, int line);
#define CHECK_MESSAGE(message, ...) \
    faults::checkMessage(message, faults::messageFor(__VA_ARGS__), __FILE__, __LINE__)

// For scenarios that log only failures: the logger's one-time allocations must not count.
void makeProcessLogger();

// The folder for the files of this run; removed by the parent.
std::string folder();
std::string writeFile(const std::string& name, const std::string& text);  // gives the full name
std::string readFile(const std::string& name);                            // full name

}  // namespace faults

#endif
