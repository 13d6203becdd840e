// Runs part of a test in a fresh process. The test program starts itself again, so the child has
// the library load, environment, signals and first calls of a new program.
//
//     VN_CHILD(printsAndExits) { puts("hello"); return 3; }
//
//     TEST(Example, Child) {
//         const ChildResult child = runChild("printsAndExits", {.environment = {{"HOME", "/x"}}});
//         EXPECT_EQ(child.exitStatus, 3);
//     }
#ifndef VN_TESTS_SUPPORT_CHILD_PROCESS_H
#define VN_TESTS_SUPPORT_CHILD_PROCESS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

struct ChildOptions {
    // Variables to set; an absent value unsets the variable. The rest is inherited.
    std::map<std::string, std::optional<std::string>> environment = {};
    std::vector<std::string> arguments = {};  // passed to the child's body
    std::string workingDirectory = {};        // empty: the parent's
    int timeoutSeconds = 600;                 // after it the child is killed: signal is SIGKILL
};

struct ChildResult {
    int exitStatus = -1;  // -1 when a signal ended the child
    int signal = 0;       // 0 when it exited
    std::string out;      // everything on standard output
    std::string err;      // everything on standard error
};

using ChildArguments = std::vector<std::string>;
using ChildBody = int (*)(const ChildArguments& arguments);

bool registerChild(const char* name, ChildBody body);

// For main(): if this process is a child, runs its body, sets status and returns true.
bool runAsChild(int argc, char** argv, int& status);
ChildResult runChild(const std::string& name, const ChildOptions& options = {});

#define VN_CHILD(name)                                            \
    static int vnChild_##name(const ChildArguments& arguments);   \
    [[maybe_unused]] static const bool vnChildRegistered_##name = \
        registerChild(#name, vnChild_##name);                     \
    static int vnChild_##name([[maybe_unused]] const ChildArguments& arguments)

#endif
