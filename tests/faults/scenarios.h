// What the library is put through while its calls fail, one scenario or more for each family. A
// scenario runs in a child process and checks there what each call promises for the case that the
// system refuses it something; faults_test.cpp repeats it with another call failing each time.
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
    Memory memory;  // see the table in faults_test.cpp for what is out of contract
    std::vector<std::string> mustFail = {};         // calls that have to be among the failing ones
    std::vector<std::string> onStandardError = {};  // what lines may hold besides failure reports
    std::vector<std::string> silent = {};           // threading calls whose failure is no report
    std::map<std::string, std::optional<std::string>> environment = {};
    int exitStatus = 0;
    int mayKeep = 0;  // heap blocks that stay for later use in the case of a failure only
    bool fromLoad = false;
    int step = 1;  // only every so many calls are made to fail, where there are many of a kind
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

// The message that goes with the call that failed in the last injection, null when none of the
// listed did. The first entry that fits counts.
struct Message {
    const char* call;
    const char* text;
};
const char* messageFor(const std::vector<Message>& messages);

// Checks a returned message and frees it.
void checkMessage(char* message, const char* expected, const char* file, int line);
#define CHECK_MESSAGE(message, ...) \
    faults::checkMessage(message, faults::messageFor(__VA_ARGS__), __FILE__, __LINE__)

// For scenarios in which only failures are logged: what the logger takes once is not to count.
void makeProcessLogger();

// The folder for the files of this run; removed by the parent.
std::string folder();
std::string writeFile(const std::string& name, const std::string& text);  // gives the full name
std::string readFile(const std::string& name);                            // full name

}  // namespace faults

#endif
