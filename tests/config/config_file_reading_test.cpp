// Files with a read error. The program's fopen replaces the C library's, for the shared library
// too, and returns streams that fail after some bytes.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vncommon/config_file.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr char failingName[] = "a file that fails";

// The bytes that a stream returns before it fails once, and after that.
std::string readable;
std::string afterFailure;
size_t position;
bool failed;

ssize_t readThenFail(void*, char* buffer, size_t size) {
    const size_t count = std::min(size, readable.size() - position);
    if (count == 0 && !failed) {
        failed = true;
        readable = std::exchange(afterFailure, "");
        position = 0;
        errno = EIO;
        return -1;
    }
    memcpy(buffer, readable.data() + position, count);
    position += count;
    return static_cast<ssize_t>(count);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) FILE* fopen(const char* name, const char* mode) {
    if (strcmp(name, failingName) == 0) {
        position = 0;
        failed = false;
        return fopencookie(nullptr, mode, {readThenFail, nullptr, nullptr, nullptr});
    }
    using Function = FILE* (*)(const char*, const char*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fopen"));
    return real(name, mode);
}

namespace {

using Entries = std::vector<std::string>;

Entries entriesOf(VN_ConfigFile* config, const char* name) {
    Entries entries;
    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, name);
    if (category == nullptr) {
        return {"(no such category)"};
    }
    const char* entry = VN_ConfigFileCategory_GetFirstEntry(category);
    for (; entry != nullptr; entry = VN_ConfigFileCategory_GetNextEntry(category)) {
        entries.push_back(entry);
    }
    VN_ConfigFileCategory_Release(category);
    return entries;
}

TEST(ConfigFileReading, AFailureKeepsTheLinesBefore) {
    readable = "first\n[net]\nport 1\ncut of";
    EXPECT_EQ(VN_ConfigFile_Load(failingName, nullptr), nullptr);
    ASSERT_TRUE(VN_ConfigFile_IsLoaded());
    EXPECT_EQ(VN_ConfigFile_GetCategoryCount(VN_ConfigFile_Get()), 2U);
    EXPECT_EQ(entriesOf(VN_ConfigFile_Get(), ""), Entries{"first"});
    EXPECT_EQ(entriesOf(VN_ConfigFile_Get(), "net"), Entries{"port 1"});
    EXPECT_STREQ(VN_ConfigFile_Load("ignored", nullptr), failingName) << "it counts as loaded";
    VN_ConfigFile_Unload();
}

TEST(ConfigFileReading, AFailureKeepsThePrivateConfiguration) {
    readable = std::string(200'000, 'x') + "\n[a]\ny\n" + std::string(100'000, 'z');
    VN_ConfigFile* config = nullptr;
    EXPECT_EQ(VN_ConfigFile_Load(failingName, &config), nullptr);
    ASSERT_NE(config, nullptr);
    EXPECT_FALSE(VN_ConfigFile_IsLoaded());
    EXPECT_EQ(entriesOf(config, ""), Entries{std::string(200'000, 'x')});
    EXPECT_EQ(entriesOf(config, "a"), Entries{"y"});
    vn_HashMap_dtor(config->categories);
    VN_ConfigFile_Release(config);
}

// A read that was interrupted fails once; the next one could succeed.
TEST(ConfigFileReading, NothingIsReadAfterAFailure) {
    readable = "first\nsecond\n";
    afterFailure = "third\ncut of";
    VN_ConfigFile* config = nullptr;
    EXPECT_EQ(VN_ConfigFile_Load(failingName, &config), nullptr);
    EXPECT_EQ(entriesOf(config, ""), (Entries{"first", "second"}));
    vn_HashMap_dtor(config->categories);
    VN_ConfigFile_Release(config);
}

}  // namespace
