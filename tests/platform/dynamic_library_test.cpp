// Dynamic libraries. The example is part of the C library, but this program is not linked with it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <vncommon/process.h>

#include <cstdlib>
#include <string>

#include "support/child_checks.h"

namespace {

const char* const library = "libresolv.so.2";
const char* const function = "ns_name_skip";

std::string takeText(char* text) {
    const std::string copy = text != nullptr ? text : "(null)";
    free(text);
    return copy;
}

bool isLoaded(const char* name) {
    void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
        dlclose(handle);
    }
    return handle != nullptr;
}

}  // namespace

VN_CHILD(loadsAndUnloads) {
    CHECK(vn_assertUnloadedLibrary(library) == 1);
    void* handle = nullptr;
    CHECK(vn_loadLibraryUTF8(&handle, library) == nullptr);
    CHECK(handle != nullptr && isLoaded(library));
    void* symbol = nullptr;
    CHECK(vn_findLibrarySymbol(&symbol, handle, function) == nullptr);
    CHECK(symbol != nullptr && symbol == dlsym(handle, function));
    CHECK(vn_unloadLibrary(handle) == nullptr);
    CHECK(!isLoaded(library));
    CHECK(vn_assertUnloadedLibrary(library) == 1);
    return 0;
}

VN_CHILD(assertingKeepsAReference) {
    void* handle = nullptr;
    CHECK(vn_loadLibraryUTF8(&handle, library) == nullptr);
    CHECK(vn_assertUnloadedLibrary(library) == 0);
    CHECK(vn_unloadLibrary(handle) == nullptr);
    CHECK(isLoaded(library));  // vn_assertUnloadedLibrary keeps a reference
    CHECK(vn_unloadLibrary(handle) == nullptr);
    CHECK(!isLoaded(library));
    return 0;
}

TEST(DynamicLibrary, LoadsAndUnloads) {
    expectSuccess("loadsAndUnloads");
}
TEST(DynamicLibrary, AssertingKeepsAReference) {
    expectSuccess("assertingKeepsAReference");
}

TEST(DynamicLibrary, MissingLibraryGivesTheSystemsText) {
    int stored;
    void* handle = &stored;
    const std::string error = takeText(vn_loadLibraryUTF8(&handle, "/nonexistent/lib.so"));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(dlopen("/nonexistent/lib.so", RTLD_NOW), nullptr);
    EXPECT_EQ(error, dlerror());
    EXPECT_NE(error.find("/nonexistent/lib.so"), std::string::npos);
    EXPECT_EQ(vn_assertUnloadedLibrary("/nonexistent/lib.so"), 1);
}

TEST(DynamicLibrary, FileThatIsNoLibraryGivesTheSystemsText) {
    void* handle = nullptr;
    const std::string error = takeText(vn_loadLibraryUTF8(&handle, "/etc/passwd"));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(dlopen("/etc/passwd", RTLD_NOW), nullptr);
    EXPECT_EQ(error, dlerror());
}

// All symbols are bound at once.
TEST(DynamicLibrary, LibraryThatLacksAFunctionIsNotLoaded) {
    void* handle = nullptr;
    const std::string error = takeText(vn_loadLibraryUTF8(&handle, VN_PLUGIN));
    EXPECT_EQ(handle, nullptr);
    EXPECT_NE(error.find("undefined symbol: vnTestMissingFunction"), std::string::npos) << error;
}

TEST(DynamicLibrary, NullPathIsTheProgram) {
    void* handle = nullptr;
    EXPECT_EQ(vn_loadLibraryUTF8(&handle, nullptr), nullptr);
    ASSERT_NE(handle, nullptr);
    void* symbol = nullptr;
    EXPECT_EQ(vn_findLibrarySymbol(&symbol, handle, "strlen"), nullptr);
    EXPECT_NE(symbol, nullptr);
    EXPECT_EQ(vn_unloadLibrary(handle), nullptr);
}

TEST(DynamicLibrary, MissingSymbolGivesTheSystemsText) {
    int stored;
    void* symbol = &stored;
    const std::string error = takeText(vn_findLibrarySymbol(&symbol, nullptr, "no_such_symbol"));
    EXPECT_EQ(symbol, nullptr);
    EXPECT_NE(error.find("undefined symbol: no_such_symbol"), std::string::npos) << error;
}

TEST(DynamicLibrary, NullHandleIsAnUnknownError) {
    EXPECT_EQ(takeText(vn_unloadLibrary(nullptr)), "Unknown error");
}

VN_CHILD(loadsUnderLatin1) {
    void* handle = nullptr;
    char* error = vn_loadLibraryUTF8(&handle, "/nonexistent/caf\xc3\xa9.so");
    CHECK(error != nullptr && handle == nullptr);
    CHECK(std::string(error).find("/nonexistent/caf\xe9.so") != std::string::npos);
    free(error);
    return 0;
}

TEST(DynamicLibrary, NamesPassThroughTheCodePage) {
    const ChildResult child =
        runChild("loadsUnderLatin1", {.environment = {{"LC_ALL", "de_DE.ISO-8859-1"}}});
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}
