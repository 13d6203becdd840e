// Assertions of the configuration: handles without their contents.
#include <gtest/gtest.h>

#include <vncommon/config_file.h>

#include "support/failed_assertion.h"

namespace {

VN_CHILD(countsWithoutCategories) {
    VN_ConfigFile config{};
    return static_cast<int>(VN_ConfigFile_GetCategoryCount(&config));
}

VN_CHILD(readsWithoutEntries) {
    VN_ConfigFileCategory category{};
    return VN_ConfigFileCategory_GetFirstEntry(&category) == nullptr ? 9 : 8;
}

TEST(ConfigAssertions, CatchHandlesWithoutContents) {
    expectFailedAssertion("countsWithoutCategories", "isValid(config)");
    expectFailedAssertion("readsWithoutEntries", "isValid(category)");
}

}  // namespace
