// The version is the same in the preprocessor, the library, the build and CHANGELOG.md.
#include <gtest/gtest.h>
#include <vncommon/version.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

TEST(Version, IsThatOfTheLoadedLibrary) {
    EXPECT_STREQ(vn_version(), VN_VERSION_STRING);
}

TEST(Version, IsThatOfTheBuild) {
    EXPECT_STREQ(VN_VERSION_STRING, VN_TEST_PROJECT_VERSION);
}

TEST(Version, StringAndNumberHoldTheThreeParts) {
    EXPECT_EQ(std::to_string(VN_VERSION_MAJOR) + "." + std::to_string(VN_VERSION_MINOR) + "." +
                  std::to_string(VN_VERSION_PATCH),
              VN_VERSION_STRING);
    EXPECT_EQ(VN_VERSION_NUMBER_OF(1, 2, 3), 10203);
    EXPECT_EQ(VN_VERSION_NUMBER,
              VN_VERSION_NUMBER_OF(VN_VERSION_MAJOR, VN_VERSION_MINOR, VN_VERSION_PATCH));
}

#if !VN_VERSION_AT_LEAST(1, 1, 0) || VN_VERSION_AT_LEAST(2, 0, 0)
#error "VN_VERSION_AT_LEAST is wrong in the preprocessor"
#endif

TEST(Version, AtLeastComparesAllParts) {
    EXPECT_TRUE(VN_VERSION_AT_LEAST(VN_VERSION_MAJOR, VN_VERSION_MINOR, VN_VERSION_PATCH));
    EXPECT_FALSE(VN_VERSION_AT_LEAST(VN_VERSION_MAJOR, VN_VERSION_MINOR, VN_VERSION_PATCH + 1));
    EXPECT_FALSE(VN_VERSION_AT_LEAST(VN_VERSION_MAJOR, VN_VERSION_MINOR + 1, 0));
    EXPECT_FALSE(VN_VERSION_AT_LEAST(VN_VERSION_MAJOR + 1, 0, 0));
    EXPECT_TRUE(VN_VERSION_AT_LEAST(VN_VERSION_MAJOR - 1, 99, 99));
}

TEST(Version, IsTheNewestOfTheChanges) {
    std::ifstream changes(VN_TEST_CHANGELOG);
    std::string line;
    while (std::getline(changes, line) && line.rfind("## ", 0) != 0) {
    }
    char version[16];
    int day;
    ASSERT_EQ(sscanf(line.c_str(), "## %15[0-9.], %*4d-%*2d-%2d", version, &day), 2) << line;
    EXPECT_STREQ(version, VN_VERSION_STRING);
}

}  // namespace
