// Loads the library, installs the signal handler and unloads the library. The handler stays
// installed, so its code must still be mapped when a SIGHUP arrives.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/child_process.h"

namespace {

template <typename Function>
Function* symbol(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

TEST(LoggerUnload, HandlerOutlivesTheLibrarysHandle) {
    std::string directory = "/tmp/vn_unload_XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string file = directory + "/log";
    void* library = dlopen(VN_LIBRARY, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    void* logger = symbol<void*()>(library, "FileLogger_ctor")();
    symbol<int(void*, const char*, int, int)>(library, "FileLogger_SetFilename")(
        logger, file.c_str(), 0, 1);
    dlclose(library);
    std::filesystem::remove(file);
    raise(SIGHUP);
    EXPECT_TRUE(std::filesystem::exists(file));
    std::filesystem::remove_all(directory);
}

VN_CHILD(installsWithoutALoggerAndUnloads) {
    void* library = dlopen(VN_LIBRARY, RTLD_NOW);
    if (library == nullptr || symbol<int()>(library, "FileLogger_reinstallSignalHandler")() != 0) {
        return 1;
    }
    dlclose(library);
    raise(SIGHUP);
    return 0;
}

TEST(LoggerUnload, HandlerWithoutALoggerOutlivesIt) {
    const ChildResult child = runChild("installsWithoutALoggerAndUnloads");
    EXPECT_EQ(child.exitStatus, 0) << "ended by signal " << child.signal;
}

}  // namespace
