// The two text helpers, and the descriptions of this machine.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <vncommon/platform.h>

#include "support/child_process.h"

namespace {

TEST(FindColon, GivesWhatFollowsTheFirstColonAndOneByte) {
    EXPECT_STREQ(find_colon("vendor_id\t: GenuineIntel\n"), "GenuineIntel\n");
    EXPECT_STREQ(find_colon("a: b: c"), "b: c");
    EXPECT_STREQ(find_colon("a:xb"), "b");  // the byte after the colon is skipped, whatever it is
    EXPECT_STREQ(find_colon(": x"), "x");
    EXPECT_STREQ(find_colon("::x"), "x");
}

TEST(FindColon, NeverGoesBeyondTheTerminator) {
    // What follows the terminator must not be found.
    for (const char* line : {"", "no colon", "ends with:", "and one: ", "line feed:\n"}) {
        std::string text = line;
        const size_t length = text.size();
        text.append(1, '\0').append(": beyond");
        EXPECT_EQ(find_colon(text.data()), text.data() + length) << line;
    }
}

TEST(StripLinebreak, CutsAtTheFirstLineFeed) {
    const struct {
        const char* text;
        const char* expected;
    } cases[] = {{"line\n", "line"}, {"a\nb\n", "a"}, {"\n", ""},
                 {"none", "none"},   {"", ""},        {"cr\r\n", "cr\r"}};
    for (const auto& [text, expected] : cases) {
        std::string buffer = text;
        buffer.append(1, '\0').append("\n");  // after the terminator: not read
        EXPECT_EQ(strip_linebreak(buffer.data()), strlen(expected));
        EXPECT_STREQ(buffer.c_str(), expected);
        EXPECT_EQ(buffer.back(), '\n');
    }
}

// ---- This machine ----------------------------------------------------------------------------

// The first value of each label of /proc/cpuinfo.
std::map<std::string, std::string> firstCpuinfoBlock() {
    std::map<std::string, std::string> block;
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line) && !line.empty();) {
        const size_t colon = line.find(':');
        const std::string label = line.substr(0, line.find_first_of("\t:"));
        block.emplace(label, line.size() > colon + 2 ? line.substr(colon + 2) : "");
    }
    return block;
}

TEST(CpuDetails, DescribeThisMachine) {
    const std::string details = vn_getCPUDetails();
    auto block = firstCpuinfoBlock();
    if (block.contains("vendor_id")) {
        EXPECT_EQ(details, "vendor " + block["vendor_id"] + " family " + block["cpu family"] +
                               " model " + block["model"] + " stepping " + block["stepping"] +
                               ": " + block["model name"]);
    } else if (block.contains("CPU part")) {
        EXPECT_EQ(details, "implementer code " + block["CPU implementer"] + " achitecture " +
                               block["CPU architecture"] + " part code " + block["CPU part"] +
                               ": (null)");
    }
    EXPECT_NE(details, "");
    EXPECT_EQ(vn_getCPUDetails(), vn_getCPUDetails());  // the same pointer
}

TEST(PlatformName, DescribesThisMachine) {
    const std::string name = vn_getFullPlatformName();
    std::ifstream release("/etc/os-release");
    std::map<std::string, std::string> values;
    for (std::string line; std::getline(release, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) {
            values.emplace(line.substr(0, equals), line.substr(equals + 1));
        }
    }
    if (values["NAME"].size() > 2 && values["VERSION"].size() > 2) {
        const std::string quotedName = values["NAME"];
        EXPECT_EQ(name,
                  quotedName.substr(0, quotedName.size() - 1) + " " + values["VERSION"].substr(1));
    }
    EXPECT_NE(name, "");
    EXPECT_EQ(vn_getFullPlatformName(), vn_getFullPlatformName());
}

VN_CHILD(describeFromThreads) {
    static const char* texts[4][2];
    std::vector<std::thread> threads;
    for (auto& own : texts) {
        threads.emplace_back([&own] {
            own[0] = vn_getCPUDetails();
            own[1] = vn_getFullPlatformName();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& own : texts) {
        if (own[0] != vn_getCPUDetails() || own[1] != vn_getFullPlatformName()) {
            return 1;
        }
    }
    return 0;
}

TEST(Descriptions, AreOneTextForRacingFirstCalls) {
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(runChild("describeFromThreads").exitStatus, 0);
    }
}

}  // namespace
