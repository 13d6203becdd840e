// The process's logger is created while a library is being loaded.
#include <vncommon/log.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "support/child_process.h"
#include "support/pause_at_fork.h"

namespace {

std::atomic<bool> inConstructor{false};
std::atomic<bool> mayLog{false};

}  // namespace

// The plugin's constructor calls this, with the dynamic linker's lock held.
extern "C" __attribute__((visibility("default"))) void pluginIsLoading() {
    if (inConstructor) {
        return;
    }
    inConstructor = true;
    while (!mayLog) {
        std::this_thread::yield();
    }
    VN_LogInfo("plugin");
}

namespace {

// The main thread and the plugin's constructor both write the first line of the process.
VN_CHILD(logsFirstBesideAPlugin) {
    std::thread loads([] {
        if (dlopen(VN_PLUGIN, RTLD_NOW) == nullptr) {
            puts(dlerror());
            inConstructor = true;
        }
    });
    while (!inConstructor) {
        std::this_thread::yield();
    }
    std::thread releases([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        mayLog = true;
    });
    VN_LogInfo("main");
    releases.join();
    loads.join();
    return 0;
}

TEST(Loading, FirstLineOfAPluginBesideTheFirstLineOfMain) {
    const ChildResult child = runChild("logsFirstBesideAPlugin");
    EXPECT_EQ(child.signal, 0) << "hangs";
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    EXPECT_NE(child.err.find("] - plugin\n"), std::string::npos) << child.err;
    EXPECT_NE(child.err.find("] - main\n"), std::string::npos) << child.err;
    EXPECT_EQ(child.out, "");
}

// Forked children write their first line while a thread of the parent loads and unloads a library.
VN_CHILD(forksWhileAPluginIsLoaded) {
    inConstructor = true;
    std::atomic<bool> done{false};
    PauseAtFork pause(1);
    std::thread loads([&] {
        while (!done) {
            pause.here();
            dlclose(dlopen(VN_PLUGIN, RTLD_NOW));
        }
    });
    int bad = 0;
    for (int i = 0; i < 300 && bad == 0; ++i) {
        const pid_t child = pause.fork();
        if (child == 0) {
            alarm(300);
            VN_LogInfo("child");
            syscall(SYS_exit_group, 0);  // exit() could hang on a lock that dlclose() held
        }
        int status;
        waitpid(child, &status, 0);
        bad += !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    }
    done = true;
    loads.join();
    return bad == 0 ? 0 : 1;
}

TEST(Loading, FirstLineOfAChildWhileTheParentLoadsALibrary) {
    const ChildResult child = runChild("forksWhileAPluginIsLoaded");
    EXPECT_EQ(child.signal, 0) << "hangs";
    EXPECT_EQ(child.exitStatus, 0) << child.err.substr(0, 300);
}

}  // namespace
