// The library releases at unload what it created at load. This program is not linked with the
// library.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vncommon/process.h>

#include <climits>
#include <cstdint>

namespace {

uint64_t firstNumberOfThisThread(void* library) {
    const auto ask = reinterpret_cast<uint64_t (*)()>(dlsym(library, "vn_getCountedThreadId"));
    return ask != nullptr ? ask() : 0;
}

// More rounds than a process has thread-local slots.
TEST(Unload, FreesItsThreadLocalSlots) {
    for (int round = 0; round < PTHREAD_KEYS_MAX + 10; ++round) {
        void* library = dlopen(VN_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        // A freshly loaded library starts to count again.
        ASSERT_EQ(firstNumberOfThisThread(library), 1U);
        ASSERT_EQ(dlclose(library), 0);
        ASSERT_EQ(dlopen(VN_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    }
}

// The first time stamp installs fork handlers, which must be removed at unload.
TEST(Unload, RemovesItsForkHandlers) {
    for (int round = 0; round < 3; ++round) {
        void* library = dlopen(VN_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        const auto stamp =
            reinterpret_cast<decltype(&vn_timeStampGet)>(dlsym(library, "vn_timeStampGet"));
        ASSERT_NE(stamp, nullptr);
        vn_TimeStampCache cache = {};
        ASSERT_NE(*stamp(&cache), '\0');
        ASSERT_EQ(dlclose(library), 0);
        const pid_t child = fork();
        if (child == 0) {
            _exit(7);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7);
    }
}

}  // namespace
