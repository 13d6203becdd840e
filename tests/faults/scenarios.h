// Scenarios that use the library while system calls fail, one or more per family. A scenario runs
// in a child process and checks the documented result of each failure. faults_test.cpp repeats it
// with another failing call each time.
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
    std::vector<std::string> mustFail = {};  // calls of which at least one run must fail
    std::vector<std::string> onStandardError = {};  // further text that lines may have
    std::vector<std::string> silent = {};           // threading calls without a report
    std::map<std::string, std::optional<std::string>> environment = {};
    int exitStatus = 0;
    int mayKeep = 0;  // heap blocks that may stay allocated after a failure, for later use
    bool fromLoad = false;
    int step = 1;  // only every n-th call fails, for scenarios with many similar calls
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

// The message for the call that failed in the last injection: that of the first entry whose call
// failed; null without one.
struct Message {
    const char* call;
    const char* text;
};
const char* messageFor(const std::vector<Message>& messages);

// Checks a returned message and frees it.
void checkMessage(char* message, const char* expected, const char* file, int line);
#define CHECK_MESSAGE(message, ...) \
    faults::checkMessage(message, faults::messageFor(__VA_ARGS__), __FILE__, __LINE__)

// For scenarios that log only failures: makes the logger's one-time allocations before the count.
void makeProcessLogger();

// The folder for the files of this run; removed by the parent.
std::string folder();
std::string writeFile(const std::string& name, const std::string& text);  // returns the full name
std::string readFile(const std::string& name);                            // full name

}  // namespace faults

#endif
