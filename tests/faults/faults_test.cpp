// Fault injection: every fallible call of a scenario fails twice, alone and together with all calls
// after it. Each run is a new process.
//
// A run ends in one of these ways, and in no other:
//  - A checked allocation failed: the message of vn_checkMemory, then abort().
//  - pthread_create found no resources: the out-of-memory lines, then _exit(1).
//  - The process survives everything else. The calls return what their header says (the scenario
//    checks this). Standard error has the reports of failed threading calls and nothing unexpected.
//    No new descriptor stays open, and no more heap blocks are left than without a failure.
//
// Out of contract, so not tried: allocations that the library does not check.
//
//     Vector, HashMap, event writer    all their memory
//     configuration, loggers,          the Vectors and HashMaps in them; their other allocations
//     timestamp sets                   are checked
//
// All other calls of these families do fail here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <dirent.h>
#include <unistd.h>

#include "faults/scenarios.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace faults {

namespace {

constexpr char folderVariable[] = "VN_FAULTS_FOLDER";
constexpr char outOfMemory[] =
    "Fatal error: malloc or similar returned null - this suggests the process has run out of "
    "memory\n";
bool checksHold = true;  // in the child

std::vector<Scenario> allScenarios() {
    std::vector<Scenario> all;
    for (const auto list : {runtimeScenarios, containerScenarios, textScenarios, platformScenarios,
                            configurationScenarios, loggingScenarios, eventScenarios}) {
        for (const Scenario& scenario : list()) {
            all.push_back(scenario);
        }
    }
    return all;
}

// ---- In the child ----

std::vector<std::string> openDescriptors() {
    std::vector<std::string> descriptors;
    DIR* list = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(list)) {
        if (atoi(entry->d_name) != dirfd(list)) {
            descriptors.push_back(entry->d_name);
        }
    }
    closedir(list);
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
}

VN_CHILD(runScenario) {
    const std::vector<Scenario> scenarios = allScenarios();
    const auto scenario =
        std::find_if(scenarios.begin(), scenarios.end(),
                     [&arguments](const Scenario& one) { return one.name == arguments[0]; });
    const std::vector<std::string> before = openDescriptors();
    const int64_t liveBefore = liveBlocks();
    scenario->run();
    const int64_t left = liveBlocks() - liveBefore;
    CHECK(openDescriptors() == before);
    printf("left %ld\ncounted %lu\n", static_cast<long>(left),
           static_cast<unsigned long>(countedCalls()));
    fflush(stdout);
    return checksHold ? 0 : 3;
}

// ---- In the parent ----

struct Fault {
    std::string call;
    std::string caller;
};

struct Outcome {
    ChildResult child;
    std::vector<Fault> faults;
    std::optional<long> left;  // absent if the scenario did not finish
};

Outcome runOnce(const Scenario& scenario, const Plan& plan) {
    const TemporaryFolder files;
    std::ostringstream text;
    text << static_cast<int>(plan.variant) << ' ' << plan.onwards << ' ' << plan.n << ' '
         << static_cast<int>(scenario.memory) << ' ' << scenario.fromLoad;
    ChildOptions options;
    options.environment = scenario.environment;
    options.environment[planVariable] = text.str();
    options.environment[folderVariable] = files.path();
    options.arguments = {scenario.name};
    options.workingDirectory = files.path();
    Outcome run{runChild("runScenario", options), {}, {}};
    std::istringstream lines(run.child.out);
    std::string word;
    while (lines >> word) {
        if (word == "fault") {
            Fault fault;
            lines >> fault.call >> fault.caller;
            run.faults.push_back(fault);
        } else if (word == "left") {
            long left;
            lines >> left;
            run.left = left;
        }
    }
    return run;
}

bool isOneOf(const std::string& text, const std::vector<std::string>& list) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

bool isHeapCall(const std::string& call) {
    return isOneOf(call, {"malloc", "calloc", "realloc", "memalign", "aligned_alloc",
                          "posix_memalign", "strdup"});
}

bool isThreadingCall(const std::string& call) {
    return call.rfind("pthread_", 0) == 0 || call.rfind("sem_", 0) == 0;
}

// Whether the library reports the failure: not for calls that may fail normally, or whose result it
// ignores.
bool isReported(const Scenario& scenario, const Plan& plan, const std::string& call) {
    return isThreadingCall(call) && plan.variant != Variant::interrupted &&
           !isOneOf(call, scenario.silent) &&
           !isOneOf(call, {"pthread_cond_timedwait", "pthread_mutex_trylock", "sem_trywait",
                           "pthread_sigmask"});
}

// Whether the process must end: the library checks this allocation.
bool endsTheProcess(const Fault& fault) {
    return isHeapCall(fault.call) && isOneOf(fault.caller, {"vn_malloc", "vn_realloc", "vn_strdup",
                                                            "vn_strndup", "vn_createThread"});
}

// Whether the process may end: it does if a logger needs the converted name.
bool mayEndTheProcess(const Fault& fault) {
    return isHeapCall(fault.call) && isOneOf(fault.caller, {"vn_CstrToUTF8", "vn_UTF8ToCstr"});
}

bool holdsAny(const std::string& text, const std::vector<std::string>& parts) {
    return std::any_of(parts.begin(), parts.end(), [&text](const std::string& part) {
        return text.find(part) != std::string::npos;
    });
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void expectReports(const Scenario& scenario, const Plan& plan, const Outcome& run) {
    const std::string& err = run.child.err;
    std::vector<std::string> expected = {"(strerror(errno)=", "(strerror(errcode)="};
    for (const Fault& fault : run.faults) {
        const std::string report = "Fatal error: System call " + fault.call + " failed";
        if (isReported(scenario, plan, fault.call)) {
            EXPECT_NE(err.find(report + "\n"), std::string::npos) << report << " is missing";
            expected.push_back(report);
        }
        // glibc: a mutex that is unlocked without having been locked counts as in use.
        if (fault.call == "pthread_mutex_lock") {
            expected.push_back("System call pthread_mutex_destroy failed");
        }
    }
    expected.insert(expected.end(), scenario.onStandardError.begin(),
                    scenario.onStandardError.end());
    std::istringstream lines(err);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(holdsAny(line, expected)) << "unexpected on standard error: " << line;
    }
}

constexpr char noThread[] = "Fatal error: System call pthread_create failed\n";

// pthread_create also fails by itself when its own allocation fails. Then only the message shows
// it.
bool couldNotMakeThread(const Plan& plan, const Outcome& run) {
    const auto isThread = [](const Fault& fault) { return fault.call == "pthread_create"; };
    return (plan.variant == Variant::usual || plan.variant == Variant::noMemory) &&
           (std::any_of(run.faults.begin(), run.faults.end(), isThread) ||
            run.child.err.find(noThread) != std::string::npos);
}

void expectEnd(const Scenario& scenario, const Plan& plan, const Outcome& run, long leftUntouched) {
    const ChildResult& child = run.child;
    ASSERT_NE(child.signal, SIGKILL) << "it hangs";
    const auto end = std::find_if(run.faults.begin(), run.faults.end(), endsTheProcess);
    if (end != run.faults.end()) {
        EXPECT_EQ(end + 1, run.faults.end()) << "went on without memory";
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_TRUE(endsWith(child.err, outOfMemory)) << child.err;
        return;
    }
    if (child.signal == SIGABRT && !run.faults.empty() && mayEndTheProcess(run.faults.back())) {
        EXPECT_TRUE(endsWith(child.err, outOfMemory)) << child.err;
        return;
    }
    if (couldNotMakeThread(plan, run)) {
        EXPECT_EQ(child.exitStatus, 1);
        EXPECT_NE(child.err.find(noThread), std::string::npos);
        EXPECT_TRUE(run.faults.back().call == "write" ||
                    child.err.find("This process is out of memory... exiting\n") !=
                        std::string::npos);
        return;
    }
    EXPECT_EQ(child.signal, 0);
    EXPECT_EQ(child.exitStatus, scenario.exitStatus) << child.err;
    expectReports(scenario, plan, run);
    if (scenario.exitStatus == 0) {
        ASSERT_TRUE(run.left) << "did not come to its end";
        EXPECT_LE(*run.left, leftUntouched + scenario.mayKeep) << "heap blocks were lost";
    }
}

std::string describe(const Plan& plan, const Outcome& run) {
    constexpr const char* names[] = {"usual",   "interrupted", "noDescriptor",
                                     "partial", "refused",     "noMemory"};
    std::ostringstream text;
    text << names[static_cast<int>(plan.variant)] << (plan.onwards ? " from the " : " only the ")
         << plan.n << "th call:";
    for (const Fault& fault : run.faults) {
        text << ' ' << fault.call << " in " << fault.caller;
    }
    return text.str();
}

// Whether a combination of variant and repetition is tested.
bool isTried(const Plan& plan) {
    switch (plan.variant) {
        case Variant::usual:
        case Variant::noDescriptor:
            return true;
        case Variant::noMemory:  // a single failure is part of the usual variant
            return plan.onwards;
        default:
            return !plan.onwards;
    }
}

class Faults : public testing::TestWithParam<Scenario> {};

TEST_P(Faults, EndAsPromised) {
    const Scenario& scenario = GetParam();
    const Outcome untouched = runOnce(scenario, {});
    ASSERT_TRUE(untouched.faults.empty());
    ASSERT_NO_FATAL_FAILURE(expectEnd(scenario, {}, untouched, untouched.left.value_or(0)));

    std::vector<std::string> failed;
    size_t points = 0;
    for (int variant = 0; variant < variants; ++variant) {
        for (const bool onwards : {false, true}) {
            Plan plan{static_cast<Variant>(variant), onwards};
            while (isTried(plan)) {
                plan.n += plan.n == 0 ? 1 : static_cast<uint64_t>(scenario.step);
                const Outcome run = runOnce(scenario, plan);
                SCOPED_TRACE(describe(plan, run));
                expectEnd(scenario, plan, run, untouched.left.value_or(0));
                if (run.faults.empty()) {
                    break;  // the scenario has fewer calls
                }
                failed.push_back(run.faults.front().call);
                ++points;
            }
        }
    }
    printf("%-24s %4zu injection points\n", scenario.name.c_str(), points);
    for (const std::string& call : scenario.mustFail) {
        EXPECT_TRUE(isOneOf(call, failed)) << call << " was never called";
    }
}

INSTANTIATE_TEST_SUITE_P(, Faults, testing::ValuesIn(allScenarios()),
                         [](const auto& one) { return one.param.name; });

}  // namespace

// ---- For the scenarios ----

void PrintTo(const Scenario& scenario, std::ostream* to) {
    *to << scenario.name;
}

void check(bool holds, const char* what, const char* file, int line) {
    if (!holds) {
        fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
        checksHold = false;
    }
}

bool equal(const char* text, const char* expected) {
    return text == nullptr || expected == nullptr ? text == expected : strcmp(text, expected) == 0;
}

const char* messageFor(const std::vector<Message>& messages) {
    for (const Message& message : messages) {
        if (failed(message.call)) {
            return message.text;
        }
    }
    return nullptr;
}

void checkMessage(char* message, const char* expected, const char* file, int line) {
    const std::string what = std::string("\"") + (message != nullptr ? message : "(null)") +
                             "\" instead of \"" + (expected != nullptr ? expected : "(null)") +
                             "\"";
    check(equal(message, expected), what.c_str(), file, line);
    free(message);
}

std::string folder() {
    return getenv(folderVariable);
}

std::string writeFile(const std::string& name, const std::string& text) {
    const std::filesystem::path file = folder() + "/" + name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file.string();
}

std::string readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace faults
