// Discovery through the public interface: on this machine, and on control-group trees that the
// tests write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <vncommon/discovery.h>

#include "support/child_process.h"
#include "support/temporary_folder.h"

namespace {

constexpr double unlimitedCpus = DBL_MAX;
constexpr int64_t unlimitedBytes = INT64_MAX;
constexpr int64_t gib = int64_t{1} << 30;

struct Free {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, Free>;

std::string textOrNull(const Text& text) {
    return text != nullptr ? text.get() : "<null>";
}

// ---- One line of the list of groups ----------------------------------------------------------

int64_t offsetIn(const std::string& line, const std::string& controller) {
    // Blocks of exactly the texts' sizes: a sanitizer reports a read past the end.
    const std::unique_ptr<char[]> exactLine(new char[line.size()]);
    const std::unique_ptr<char[]> exactController(new char[controller.size()]);
    memcpy(exactLine.get(), line.data(), line.size());
    memcpy(exactController.get(), controller.data(), controller.size());
    return vn_findProcCGroupPathOffset(exactLine.get(), line.size(), exactController.get(),
                                       controller.size());
}

TEST(PathOffset, IsAfterTheListThatHoldsTheController) {
    const struct {
        const char* line;
        const char* controller;
        int64_t offset;
    } cases[] = {
        {"4:cpu,cpuacct:/x\n", "cpu", 14},
        {"4:cpuacct,cpu:/x\n", "cpu", 14},
        {"4:cpu:/x", "cpu", 6},
        {"4:a,cpu,b:/x", "cpu", 10},
        {"12:memory:/y\n", "memory", 10},
        {":cpu:/x", "cpu", 5},     // the digits may be absent
        {"4:cpu:", "cpu", 6},      // the path may be empty
        {"4:cpu:/a:b", "cpu", 6},  // colons belong to the path
        {"4:cpuacct:/x", "cpu", -1},
        {"4:cpuset:/x", "cpu", -1},
        {"4:cpuacct,cpuset:/x", "cpu", -1},
        {"4:acpu:/x", "cpu", -1},
        {"4:cp:/x", "cpu", -1},
        {"4:cpu", "cpu", -1},  // no colon after the list
        {"4:cpu,", "cpu", -1},
        {"4:cpu\n", "cpu", -1},
        {"4:", "cpu", -1},
        {"4", "cpu", -1},
        {"", "cpu", -1},
        {"\n", "cpu", -1},
        {"4x:cpu:/x", "cpu", -1},
        {"-4:cpu:/x", "cpu", -1},
        {" 4:cpu:/x", "cpu", -1},
        {"x", "cpu", -1},
        {"4:a:/cpu:/x", "cpu", -1},  // the path is not searched
        {"4::/x", "cpu", -1},
        {"0::/a\n", "", 3},
        {"0::", "", 3},
        {"::/a", "", 2},
        {"0:cpu:/a", "", -1},
        {"0:", "", -1},
        {"0", "", -1},
        {"", "", -1},
        {"0:cpu,:/a", "", 7},  // an empty item is an item
        {"0:,cpu:/a", "", 7},
        {"0:a,,b:/a", "", 7},
        {"0:name=systemd:/a", "name=systemd", 15},
    };
    for (const auto& [line, controller, offset] : cases) {
        EXPECT_EQ(offsetIn(line, controller), offset) << line << " for '" << controller << "'";
    }
}

TEST(PathOffset, LooksNoFurtherThanTheGivenLengths) {
    EXPECT_EQ(vn_findProcCGroupPathOffset("4:cpu:/x", 5, "cpu", 3), -1);
    EXPECT_EQ(vn_findProcCGroupPathOffset("4:cpu:/x", 6, "cpu", 3), 6);
    EXPECT_EQ(vn_findProcCGroupPathOffset("4:cpu:/x", 8, "cpuset", 3), 6);
    EXPECT_EQ(vn_findProcCGroupPathOffset("4:cpu:/x", 0, "cpu", 3), -1);
    EXPECT_EQ(vn_findProcCGroupPathOffset("4::/x", 5, "cpu", 0), 3);
}

// The expected result, found by splitting the line at its colons and commas.
int64_t modelOffset(const std::string& line, const std::string& controller) {
    const size_t firstColon = line.find(':');
    if (firstColon == std::string::npos || line.find_first_not_of("0123456789") != firstColon) {
        return -1;
    }
    const size_t secondColon = line.find(':', firstColon + 1);
    if (secondColon == std::string::npos) {
        return -1;
    }
    const std::string list = "," + line.substr(firstColon + 1, secondColon - firstColon - 1) + ",";
    return list.find("," + controller + ",") == std::string::npos
               ? -1
               : static_cast<int64_t>(secondColon + 1);
}

TEST(PathOffset, AgreesWithAModelOnRandomLines) {
    std::mt19937 random(20240611);
    const char* const pieces[] = {"0", "12", ":", ":", ",", "cpu", "cp", "memory", "/", "a", "\n"};
    const char* const controllers[] = {"", "cpu", "cp", "memory", "a"};
    int found = 0;
    for (int round = 0; round < 200000; ++round) {
        std::string line;
        for (size_t count = random() % 9; count > 0; --count) {
            line += pieces[random() % std::size(pieces)];
        }
        const std::string controller = controllers[random() % std::size(controllers)];
        const int64_t expected = modelOffset(line, controller);
        found += expected >= 0;
        ASSERT_EQ(offsetIn(line, controller), expected) << line << " for '" << controller << "'";
    }
    EXPECT_GT(found, 1000);
}

// ---- Directories and files of a group --------------------------------------------------------

std::string groupDir(const TemporaryFolder& root, const std::string& list,
                     const std::string& controller) {
    const std::string selfFile = root.write("self", list);
    const Text dir(vn_getCGroupProcessControllerDir(root.path().c_str(), selfFile.c_str(),
                                                    controller.c_str()));
    return textOrNull(dir);
}

TEST(GroupDir, IsTheListedOneIfItCanBeSeen) {
    const TemporaryFolder root;
    root.write("cpu/x/y/file", "");
    root.write("memory/z/file", "");
    root.write("a/b/file", "");
    const std::string list = "5:memory:/z\n4:cpu,cpuacct:/x/y\n0::/a/b\n";
    EXPECT_EQ(groupDir(root, list, "cpu"), root / "cpu/x/y");
    EXPECT_EQ(groupDir(root, list, "memory"), root / "memory/z");
    EXPECT_EQ(groupDir(root, list, ""), root / "/a/b");  // with the double slash
}

TEST(GroupDir, IsTheControllersOwnOtherwise) {
    const TemporaryFolder root;
    EXPECT_EQ(groupDir(root, "4:cpu:/unseen\n0::/unseen\n", "cpu"), root / "cpu");
    EXPECT_EQ(groupDir(root, "4:cpu:/unseen\n0::/unseen\n", ""), root / "");
}

TEST(GroupDir, ComesFromTheFirstFittingLine) {
    const TemporaryFolder root;
    root.write("cpu/first/file", "");
    root.write("cpu/second/file", "");
    EXPECT_EQ(groupDir(root, "bad line\n\n3:cpuset:/none\n4:cpu:/first\n5:cpu:/second\n", "cpu"),
              root / "cpu/first");
    // The first matching line decides, even if its directory does not exist.
    EXPECT_EQ(groupDir(root, "4:cpu:/unseen\n5:cpu:/second\n", "cpu"), root / "cpu");
}

TEST(GroupDir, TakesTheLastLineWithoutALineFeed) {
    const TemporaryFolder root;
    root.write("cpu/x/file", "");
    EXPECT_EQ(groupDir(root, "0::/\n4:cpu:/x", "cpu"), root / "cpu/x");
}

TEST(GroupDir, TakesLongLines) {
    const TemporaryFolder root;
    const std::string component(200, 'd');
    std::string path;
    for (int i = 0; i < 10; ++i) {
        path += "/" + component;
    }
    root.write("cpu" + path + "/file", "");
    EXPECT_EQ(groupDir(root, "4:" + std::string(5000, 'c') + ",cpu:" + path + "\n", "cpu"),
              root / ("cpu" + path));
}

TEST(GroupDir, IsNullWhenNothingIsListed) {
    const TemporaryFolder root;
    EXPECT_EQ(groupDir(root, "4:cpuset:/x\n0::/a\n", "cpu"), "<null>");
    EXPECT_EQ(groupDir(root, "4:cpuset:/x\n", ""), "<null>");
    EXPECT_EQ(groupDir(root, "", "cpu"), "<null>");
    const Text dir(
        vn_getCGroupProcessControllerDir(root.path().c_str(), (root / "missing").c_str(), "cpu"));
    EXPECT_EQ(dir, nullptr);
}

TEST(GroupFile, GivesTheFirstLineAsItIs) {
    const TemporaryFolder root;
    root.write("two", "first\nsecond\n");
    root.write("one", "only");
    root.write("blank", "\n");
    root.write("empty", "");
    root.write("long", std::string(100000, 'x') + "\n");
    const auto firstLine = [&](const char* name) {
        return textOrNull(Text(readCGroupsFile(root.path().c_str(), name)));
    };
    EXPECT_EQ(firstLine("/two"), "first\n");
    EXPECT_EQ(firstLine("/one"), "only");
    EXPECT_EQ(firstLine("/blank"), "\n");
    EXPECT_EQ(firstLine("/long"), std::string(100000, 'x') + "\n");
    EXPECT_EQ(firstLine("/empty"), "<null>");
    EXPECT_EQ(firstLine("/missing"), "<null>");
    EXPECT_EQ(firstLine("/"), "<null>");    // a folder has no line
    EXPECT_EQ(firstLine("two"), "<null>");  // the caller's name must begin with a slash
}

// ---- Quotas ----------------------------------------------------------------------------------

double version1Cpus(const char* quota, const char* period) {
    const TemporaryFolder dir;
    if (quota != nullptr) {
        dir.write("cpu.cfs_quota_us", quota);
    }
    if (period != nullptr) {
        dir.write("cpu.cfs_period_us", period);
    }
    return vn_availableCPUsCGroupsV1(dir.path().c_str());
}

TEST(CpuQuota, Version1IsQuotaByPeriod) {
    EXPECT_EQ(version1Cpus("50000\n", "100000\n"), 0.5);
    EXPECT_EQ(version1Cpus("25000\n", "100000\n"), 0.25);
    EXPECT_EQ(version1Cpus("250000", "100000"), 2.5);
    EXPECT_EQ(version1Cpus("100000 \n", " \t100000\n"), 1.0);
    EXPECT_EQ(version1Cpus("1.5\nrest", "3\n"), 0.5);
    EXPECT_EQ(version1Cpus("100000us\n", "50000us\n"), 2.0);
    EXPECT_EQ(version1Cpus("1\n", "3\n"), 1.0 / 3.0);
}

TEST(CpuQuota, Version1IsNoLimitOtherwise) {
    const struct {
        const char* quota;
        const char* period;
    } cases[] = {{"-1\n", "100000\n"},    {"0\n", "100000\n"},    {"garbage\n", "100000\n"},
                 {"max\n", "100000\n"},   {"", "100000\n"},       {"\n", "100000\n"},
                 {nullptr, "100000\n"},   {"nan\n", "100000\n"},  {"50000\n", nullptr},
                 {"50000\n", ""},         {"50000\n", "\n"},      {"50000\n", "0\n"},
                 {"50000\n", "-100000"},  {"50000\n", "garbage"}, {"50000\n", "nan"},
                 {"\n50000\n", "100000"}, {nullptr, nullptr}};
    for (const auto& [quota, period] : cases) {
        EXPECT_EQ(version1Cpus(quota, period), unlimitedCpus)
            << (quota != nullptr ? quota : "none") << (period != nullptr ? period : "none");
    }
    EXPECT_EQ(vn_availableCPUsCGroupsV1("/nonexistent"), unlimitedCpus);
    EXPECT_EQ(vn_availableCPUsCGroupsV1(nullptr), unlimitedCpus);
}

double version2Cpus(const char* text) {
    const TemporaryFolder dir;
    dir.write("cpu.max", text);
    return vn_availableCPUsCGroupsV2(dir.path().c_str());
}

TEST(CpuQuota, Version2IsQuotaByPeriod) {
    EXPECT_EQ(version2Cpus("150000 100000\n"), 1.5);
    EXPECT_EQ(version2Cpus("25000 100000\n"), 0.25);
    EXPECT_EQ(version2Cpus("200000\t100000 7\n"), 2.0);
    EXPECT_EQ(version2Cpus("1 3"), 1.0 / 3.0);
}

TEST(CpuQuota, Version2IsNoLimitOtherwise) {
    for (const char* text : {"max 100000\n", "max\n", "", "\n", "150000\n", "150000 max\n",
                             "150000 0\n", "0 100000\n", "-1 100000\n", "100000 -1\n", "-1 -1\n",
                             "garbage\n", "150000\n100000\n", "nan 100000\n", "100000 nan\n"}) {
        EXPECT_EQ(version2Cpus(text), unlimitedCpus) << text;
    }
    EXPECT_EQ(vn_availableCPUsCGroupsV2("/nonexistent"), unlimitedCpus);
    EXPECT_EQ(vn_availableCPUsCGroupsV2(nullptr), unlimitedCpus);
}

// ---- Memory limits ---------------------------------------------------------------------------

int64_t version1Bytes(const char* text, int64_t physical) {
    const TemporaryFolder dir;
    dir.write("memory.limit_in_bytes", text);
    return vn_physicalMemoryCGroupsV1(dir.path().c_str(), physical);
}

TEST(MemoryLimit, Version1IsAnyValueBelowTheMachines) {
    EXPECT_EQ(version1Bytes("536870912\n", gib), gib / 2);
    EXPECT_EQ(version1Bytes("1073741823\n", gib), gib - 1);
    EXPECT_EQ(version1Bytes("1073741824\n", gib), unlimitedBytes);
    EXPECT_EQ(version1Bytes("9223372036854771712\n", gib), unlimitedBytes);
    EXPECT_EQ(version1Bytes("99999999999999999999\n", gib), unlimitedBytes);
    EXPECT_EQ(version1Bytes("0\n", gib), 0);
    EXPECT_EQ(version1Bytes("-1\n", gib), -1);
    EXPECT_EQ(version1Bytes("0\n", 0), unlimitedBytes);
    EXPECT_EQ(version1Bytes("1\n", 0), unlimitedBytes);
}

TEST(MemoryLimit, Version1WithoutANumberIsNothing) {
    EXPECT_EQ(version1Bytes("max\n", gib), 0);
    EXPECT_EQ(version1Bytes("garbage", gib), 0);
}

TEST(MemoryLimit, Version1WithoutALineIsNoLimit) {
    EXPECT_EQ(version1Bytes("", gib), unlimitedBytes);
    EXPECT_EQ(version1Bytes("\n", gib), unlimitedBytes);
    EXPECT_EQ(version1Bytes("  \n1\n", gib), unlimitedBytes);
    EXPECT_EQ(vn_physicalMemoryCGroupsV1("/nonexistent", gib), unlimitedBytes);
    EXPECT_EQ(vn_physicalMemoryCGroupsV1(nullptr, gib), unlimitedBytes);
}

int64_t version2Bytes(const char* text, int64_t physical) {
    const TemporaryFolder dir;
    dir.write("memory.max", text);
    return vn_physicalMemoryCGroupsV2(dir.path().c_str(), physical);
}

TEST(MemoryLimit, Version2IsAPositiveValueBelowTheMachines) {
    EXPECT_EQ(version2Bytes("536870912\n", gib), gib / 2);
    EXPECT_EQ(version2Bytes("1\n", gib), 1);
    EXPECT_EQ(version2Bytes("1073741823", gib), gib - 1);
    for (const char* text : {"max\n", "0\n", "-1\n", "-5\n", "", "\n", "garbage\n", "1073741824\n",
                             "99999999999999999999\n"}) {
        EXPECT_EQ(version2Bytes(text, gib), unlimitedBytes) << text;
    }
    EXPECT_EQ(vn_physicalMemoryCGroupsV2("/nonexistent", gib), unlimitedBytes);
    EXPECT_EQ(vn_physicalMemoryCGroupsV2(nullptr, gib), unlimitedBytes);
}

// ---- All results, in fresh processes ---------------------------------------------------------

VN_CHILD(discover) {
    printf("%d %.17g %d %.17g", vn_getPhysicalCPUs(), vn_availableCPUs(), vn_numberOfCPUs(),
           vn_physicalMemory());
    return 0;
}

struct Discovered {
    int physicalCpus = -1;
    double availableCpus = -1;
    int numberOfCpus = -1;
    double memory = -1;
};

using Environment = std::map<std::string, std::optional<std::string>>;

Discovered discover(Environment environment) {
    environment.insert({{"VN_ASSUME_CPUS", std::nullopt},
                        {"VN_CGROUPS_ROOT", std::nullopt},
                        {"VN_CGROUPS_SELF", std::nullopt}});
    const ChildResult child = runChild("discover", {.environment = environment});
    Discovered found;
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(sscanf(child.out.c_str(), "%d %lf %d %lf", &found.physicalCpus, &found.availableCpus,
                     &found.numberOfCpus, &found.memory),
              4);
    return found;
}

// A control-group tree; discover() returns the result for a process in it and 8 processors.
class Tree {
  public:
    explicit Tree(const std::string& list) { root.write("self", list); }

    Tree& with(const std::string& name, const std::string& text) {
        root.write(name, text);
        return *this;
    }

    Discovered discover() const {
        return ::discover({{"VN_ASSUME_CPUS", "8"},
                           {"VN_CGROUPS_ROOT", root.path()},
                           {"VN_CGROUPS_SELF", root / "self"}});
    }

  private:
    TemporaryFolder root;
};

double machineMebibytes() {
    return static_cast<double>(vn_actualPhysicalMemoryBytes()) / 1048576;
}

TEST(Discovery, Version2) {
    const Discovered found = Tree("0::/a\n")
                                 .with("a/cpu.max", "150000 100000\n")
                                 .with("a/memory.max", "134217728\n")
                                 .discover();
    EXPECT_EQ(found.physicalCpus, 8);
    EXPECT_EQ(found.availableCpus, 1.5);
    EXPECT_EQ(found.numberOfCpus, 2);
    EXPECT_EQ(found.memory, 128.0);
}

TEST(Discovery, Version2WithoutLimits) {
    const Discovered found =
        Tree("0::/a\n").with("a/cpu.max", "max 100000\n").with("a/memory.max", "max\n").discover();
    EXPECT_EQ(found.availableCpus, 8.0);
    EXPECT_EQ(found.numberOfCpus, 8);
    EXPECT_EQ(found.memory, machineMebibytes());
}

TEST(Discovery, Version1) {
    const Discovered found = Tree("5:memory:/m\n4:cpu,cpuacct:/x\n")
                                 .with("cpu/x/cpu.cfs_quota_us", "50000\n")
                                 .with("cpu/x/cpu.cfs_period_us", "100000\n")
                                 .with("memory/m/memory.limit_in_bytes", "134217729\n")
                                 .discover();
    EXPECT_EQ(found.availableCpus, 0.5);
    EXPECT_EQ(found.numberOfCpus, 1);
    EXPECT_EQ(found.memory, 134217729 / 1048576.0);  // not rounded
}

TEST(Discovery, Version1WithoutLimits) {
    const Discovered found = Tree("5:memory:/m\n4:cpuacct,cpu:/x\n")
                                 .with("cpu/x/cpu.cfs_quota_us", "-1\n")
                                 .with("cpu/x/cpu.cfs_period_us", "100000\n")
                                 .with("memory/m/memory.limit_in_bytes", "9223372036854771712\n")
                                 .discover();
    EXPECT_EQ(found.availableCpus, 8.0);
    EXPECT_EQ(found.memory, machineMebibytes());
}

TEST(Discovery, HybridTakesTheSmallerLimit) {
    for (const bool version1IsSmaller : {false, true}) {
        const Discovered found =
            Tree("5:memory:/m\n4:cpu:/x\n0::/a\n")
                .with("cpu/x/cpu.cfs_quota_us", version1IsSmaller ? "300000\n" : "400000\n")
                .with("cpu/x/cpu.cfs_period_us", "100000\n")
                .with("a/cpu.max", version1IsSmaller ? "400000 100000\n" : "300000 100000\n")
                .with("memory/m/memory.limit_in_bytes",
                      version1IsSmaller ? "67108864\n" : "134217728\n")
                .with("a/memory.max", version1IsSmaller ? "134217728\n" : "67108864\n")
                .discover();
        EXPECT_EQ(found.availableCpus, 3.0);
        EXPECT_EQ(found.memory, 64.0);
    }
}

TEST(Discovery, QuotasBeyondTheMachineDoNotCount) {
    EXPECT_EQ(Tree("0::/a\n").with("a/cpu.max", "900000 100000\n").discover().availableCpus, 8.0);
    // A quota of inf / inf is NaN; it does not count either.
    EXPECT_EQ(Tree("0::/a\n").with("a/cpu.max", "inf inf\n").discover().availableCpus, 8.0);
}

TEST(Discovery, UnseenGroupsAreReadAtTheControllersRoot) {
    const Discovered found = Tree("5:memory:/unseen\n4:cpu:/unseen\n0::/unseen\n")
                                 .with("cpu/cpu.cfs_quota_us", "250000\n")
                                 .with("cpu/cpu.cfs_period_us", "100000\n")
                                 .with("cpu.max", "201000 100000\n")
                                 .with("memory/memory.limit_in_bytes", "134217728\n")
                                 .with("memory.max", "67108864\n")
                                 .discover();
    EXPECT_EQ(found.availableCpus, 2.01);
    EXPECT_EQ(found.numberOfCpus, 3);
    EXPECT_EQ(found.memory, 64.0);
}

TEST(Discovery, UnlistedControllersAreNotLimited) {
    const Discovered found = Tree("3:cpuset:/x\n")
                                 .with("cpu/cpu.cfs_quota_us", "50000\n")
                                 .with("cpu/cpu.cfs_period_us", "100000\n")
                                 .with("cpu.max", "50000 100000\n")
                                 .with("memory.max", "1048576\n")
                                 .discover();
    EXPECT_EQ(found.availableCpus, 8.0);
    EXPECT_EQ(found.memory, machineMebibytes());
}

TEST(Discovery, Version1MemoryOfGarbageIsNothing) {
    EXPECT_EQ(Tree("5:memory:/\n").with("memory/memory.limit_in_bytes", "max\n").discover().memory,
              0.0);
}

TEST(Discovery, SeesAChangedQuota) {
    const TemporaryFolder root;
    root.write("self", "0::/a\n");
    root.write("a/memory.max", "1048576\n");
    setenv("VN_CGROUPS_ROOT", root.path().c_str(), 1);
    setenv("VN_CGROUPS_SELF", (root / "self").c_str(), 1);
    EXPECT_EQ(vn_physicalMemory(), 1.0);
    root.write("a/memory.max", "2097152\n");
    root.write("a/cpu.max", "10 100\n");
    EXPECT_EQ(vn_physicalMemory(), 2.0);
    EXPECT_EQ(vn_availableCPUs(), 0.1);
    EXPECT_EQ(vn_numberOfCPUs(), 1);
    root.write("a/cpu.max", "25 100\n");
    EXPECT_EQ(vn_availableCPUs(), 0.25);
    unsetenv("VN_CGROUPS_ROOT");
    unsetenv("VN_CGROUPS_SELF");
}

TEST(AssumedCpus, ReplaceTheMachinesWhenPositiveIn32Bits) {
    const int machine = discover({}).physicalCpus;
    const struct {
        const char* text;
        int expected;
    } cases[] = {{"3", 3},
                 {" +17 processors", 17},
                 {"4294967297", 1},  // cut to 32 bits
                 {"-4294967295", 1},
                 {"2147483648", machine},  // negative in 32 bits
                 {"4294967296", machine},  // 0 in 32 bits
                 {"99999999999999999999", machine},
                 {"0", machine},
                 {"-2", machine},
                 {"-1", machine},
                 {"many", machine},
                 {"", machine},
                 {"0x10", machine}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(discover({{"VN_ASSUME_CPUS", text}}).physicalCpus, expected) << text;
    }
}

VN_CHILD(assumeAgain) {
    const int first = vn_getPhysicalCPUs();
    setenv("VN_ASSUME_CPUS", "5", 1);
    printf("%d %d", first, vn_getPhysicalCPUs());
    return 0;
}

TEST(AssumedCpus, AreReadOnce) {
    EXPECT_EQ(runChild("assumeAgain", {.environment = {{"VN_ASSUME_CPUS", "6"}}}).out, "6 6");
}

// ---- This machine ----------------------------------------------------------------------------

TEST(Machine, HasTheProcessorsThatTheKernelLists) {
    std::ifstream cpuinfo("/proc/cpuinfo");
    int expected = 0;
    for (std::string line; std::getline(cpuinfo, line);) {
        expected += line.starts_with("processor");
    }
    EXPECT_EQ(discover({}).physicalCpus, expected);
    EXPECT_GT(expected, 0);
}

TEST(Machine, HasTheMemoryThatTheKernelLists) {
    std::ifstream meminfo("/proc/meminfo");
    std::string label;
    int64_t kibibytes = 0;
    meminfo >> label >> kibibytes;
    ASSERT_EQ(label, "MemTotal:");
    EXPECT_NEAR(static_cast<double>(vn_actualPhysicalMemoryBytes()),
                static_cast<double>(kibibytes) * 1024, 64.0 * 1024 * 1024);
    const double memory = discover({}).memory;
    EXPECT_GT(memory, 0);
    EXPECT_LE(memory, machineMebibytes());
}

TEST(Machine, IsLimitedLikeItsControlGroup) {
    const Discovered found = discover({});
    EXPECT_GT(found.availableCpus, 0);
    EXPECT_LE(found.availableCpus, found.physicalCpus);
    EXPECT_EQ(found.numberOfCpus, static_cast<int>(std::ceil(found.availableCpus)));
    const Discovered named =
        discover({{"VN_CGROUPS_ROOT", "/sys/fs/cgroup"}, {"VN_CGROUPS_SELF", "/proc/self/cgroup"}});
    EXPECT_EQ(named.availableCpus, found.availableCpus);
    EXPECT_EQ(named.memory, found.memory);
}

TEST(ProcessSize, FollowsTheMemoryInUse) {
    constexpr size_t size = size_t{64} << 20;
    const double vmBefore = vn_vmSize();
    const double rssBefore = vn_residentSetSize();
    EXPECT_GT(rssBefore, 0);
    EXPECT_GE(vmBefore, rssBefore);
    EXPECT_EQ(std::fmod(vmBefore, 1024), 0);
    EXPECT_EQ(std::fmod(rssBefore, static_cast<double>(sysconf(_SC_PAGESIZE))), 0);
    void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    EXPECT_GE(vn_vmSize() - vmBefore, static_cast<double>(size) / 2);
    memset(block, 1, size);
    EXPECT_GE(vn_residentSetSize() - rssBefore, static_cast<double>(size) / 2);
    munmap(block, size);
}

VN_CHILD(discoverFromThreads) {
    std::vector<std::thread> threads;
    static int counts[4];
    for (int& count : counts) {
        threads.emplace_back([&count] { count = vn_getPhysicalCPUs(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const int count : counts) {
        if (count != vn_getPhysicalCPUs()) {
            return 1;
        }
    }
    return 0;
}

TEST(Machine, IsTheSameForRacingFirstCalls) {
    EXPECT_EQ(runChild("discoverFromThreads").exitStatus, 0);
}

}  // namespace
