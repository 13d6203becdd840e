// Discovery, CPU and platform name, process helpers.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cfloat>
#include <cstring>

#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

// A control-group tree that limits the process to one and a half processors and 64 MiB.
void limitByControlGroups() {
    const std::string root = folder() + "/cgroup";
    writeFile("cgroup/group/cpu.max", "150000 100000\n");
    writeFile("cgroup/group/memory.max", "67108864\n");
    const std::string self = writeFile("self", "0::/group\n");
    setenv("VN_CGROUPS_ROOT", root.c_str(), 1);
    setenv("VN_CGROUPS_SELF", self.c_str(), 1);
}

// An unreadable limit is ignored; the failure is not cached.
void discover() {
    limitByControlGroups();
    const int physical = inject(vn_getPhysicalCPUs);
    CHECK(physical >= 1 || failed("open") || failed("read"));
    const double cpus = inject(vn_availableCPUs);
    CHECK(cpus == 1.5 || cpus == 1 || everFailed());
    const double memory = inject(vn_physicalMemory);
    CHECK(memory == 64 || failed());
    const int64_t bytes = inject(vn_actualPhysicalMemoryBytes);
    CHECK(failed() ? bytes == 0 : bytes > (64 << 20));
    const double size = inject(vn_vmSize);
    CHECK(failed("open") || failed("read") ? size >= 0 : size > 1e6);
    const double resident = inject(vn_residentSetSize);
    CHECK(failed() || resident > 1e5);
    if (!failed("read")) {
        CHECK(vn_physicalMemory() == 64);
    }
}

void readControlGroups() {
    limitByControlGroups();
    const std::string root = folder() + "/cgroup";
    const std::string self = folder() + "/self";
    char* dir =
        inject([&] { return vn_getCGroupProcessControllerDir(root.c_str(), self.c_str(), ""); });
    const bool unseen = failed("stat") && !failed("malloc");
    CHECK(equal(dir, (root + "//group").c_str()) || (unseen && equal(dir, (root + "/").c_str())) ||
          (failed() && dir == nullptr));
    free(dir);
    const std::string group = root + "/group";
    char* line = inject([&] { return readCGroupsFile(group.c_str(), "/cpu.max"); });
    CHECK(equal(line, "150000 100000\n") || (failed() && line == nullptr));
    free(line);
    const double cpus = inject([&] { return vn_availableCPUsCGroupsV2(group.c_str()); });
    CHECK(cpus == 1.5 || (failed() && cpus == DBL_MAX));
    const int64_t limit =
        inject([&] { return vn_physicalMemoryCGroupsV2(group.c_str(), 1 << 30); });
    CHECK(limit == (64 << 20) || (failed() && limit == INT64_MAX));
}

// The first matching line decides, even if there is no memory for it.
void findGroupListedTwice() {
    const std::string root = folder() + "/cgroup";
    writeFile("cgroup/cpu/first/file", "");
    writeFile("cgroup/cpu/second/file", "");
    const std::string self = writeFile("self", "4:cpu:/first\n5:cpu:/second\n");
    char* dir =
        inject([&] { return vn_getCGroupProcessControllerDir(root.c_str(), self.c_str(), "cpu"); });
    CHECK(equal(dir, (root + "/cpu/first").c_str()) ||
          (failed("stat") && equal(dir, (root + "/cpu").c_str())) || (failed() && dir == nullptr));
    free(dir);
}

void namePlatform() {
    const char* name = inject(vn_getFullPlatformName);
    CHECK(name != nullptr && name[0] != '\0');
    CHECK(!equal(name, "Unknown Linux platform") || failed());
    CHECK(vn_getFullPlatformName() == name);
}

void nameCpu() {
    const char* cpu = inject(vn_getCPUDetails);
    CHECK(failed("open") ? equal(cpu, "Unknown CPU") : strstr(cpu, ": ") != nullptr);
    CHECK(vn_getCPUDetails() == cpu);
}

void nameUser() {
    char* name = inject(vn_getUTF8UserName);
    CHECK(name != nullptr || failed("strdup"));
    if (failed("sysconf") && name != nullptr) {
        CHECK(equal(name, "unknown"));
    } else if (failed("getpwuid_r") && name != nullptr) {
        CHECK(equal(name, std::to_string(geteuid()).c_str()));
    }
    free(name);
    errno = 0;
    char* directory = inject(vn_getUTF8CurrentDirectory);
    CHECK(equal(directory, folder().c_str()) ||
          (failed() && directory == nullptr && errno == (failed("getcwd") ? EACCES : ENOMEM)));
    free(directory);
}

void copyEnvironment() {
    char* none[] = {nullptr};
    char first[] = "A=1";
    char second[] = "B=2";
    char third[] = "no equals";
    char* few[] = {first, second, third, nullptr};
    char** before = environ;
    environ = few;
    char** copy = inject(vn_getEnvironUTF8);
    environ = before;
    CHECK(copy != nullptr || failed());
    for (size_t i = 0; copy != nullptr && i < 4; ++i) {
        CHECK(equal(copy[i], few[i]) || (failed() && equal(copy[i], "Unknown")));
    }
    vn_freeEnvironUTF8(copy);
    environ = none;
    copy = inject(vn_getEnvironUTF8);
    environ = before;
    CHECK(failed() ? copy == nullptr : copy[0] == nullptr);
    vn_freeEnvironUTF8(copy);
}

bool isMessageOf(const char* message, std::initializer_list<int> errors) {
    for (const int error : errors) {
        if (equal(message, strerrordesc_np(error))) {
            return true;
        }
    }
    return false;
}

void useFiles() {
    const std::string name = writeFile("a file", "text");
    int fd = 7;
    char* message = inject([&] { return vn_openFileUTF8(&fd, name.c_str(), O_RDWR | O_APPEND); });
    CHECK((message == nullptr) == (fd >= 0));
    CHECK(message == nullptr ? !failed("open")
                             : fd == -1 && isMessageOf(message, {EACCES, EINTR, EMFILE, ENOMEM}));
    free(message);
    FILE* stream = inject([&] { return vn_openStreamUTF8(name.c_str(), "r"); });
    CHECK((stream != nullptr) == !failed("fopen") || failed("malloc"));
    CHECK(stream != nullptr ||
          isMessageOf(strerrordesc_np(errno), {EACCES, EINTR, EMFILE, ENOMEM}));
    if (stream != nullptr) {
        fclose(stream);
    }
    struct stat status;
    const int result = inject([&] { return vn_statUTF8(name.c_str(), &status); });
    CHECK(result == 0 ? status.st_size == 4 : failed() && (errno == EACCES || errno == ENOMEM));
    if (fd >= 0) {
        inject([&] { vn_writeToConsoleUTF8(fd, " more"); });
        const std::string written = readFile(name);
        CHECK(written == "text more" ||
              (failed() && (written == "text" || written == "text m" || written == "text mo")));
        close(fd);
    }
}

// A failed call never returns a handle, and always a message.
void useLibraries() {
    void* handle = nullptr;
    char* message = inject([&] { return vn_loadLibraryUTF8(&handle, VN_LIBRARY); });
    CHECK((message == nullptr) == (handle != nullptr) || (failed("strdup") && handle == nullptr));
    CHECK(message == nullptr || failed());
    free(message);
    void* expected = reinterpret_cast<void*>(vn_unloadLibrary);
    void* symbol = nullptr;
    if (handle != nullptr) {
        message = inject([&] { return vn_findLibrarySymbol(&symbol, handle, "vn_unloadLibrary"); });
        CHECK(symbol == expected || (failed() && symbol == nullptr));
        CHECK((message == nullptr) == (symbol != nullptr) || failed("strdup"));
        free(message);
        message = inject([&] { return vn_unloadLibrary(handle); });
        CHECK((message != nullptr) == failed("dlclose") || failed("strdup"));
        free(message);
    }
    const int unloaded = inject([] { return vn_assertUnloadedLibrary(VN_LIBRARY); });
    CHECK((unloaded == 1) == failed("dlopen") || (failed() && unloaded == 1));
    const int missing = inject([] { return vn_assertUnloadedLibrary("/no/such/library.so"); });
    CHECK(missing == 1);
}

void askTheSystem() {
    double in = -1;
    double out = -1;
    const int result = inject([&] { return vn_get_os_statistics(&in, &out); });
    CHECK(result == 0 ? in >= 0 && out >= 0 : (failed() && in == -1 && out == -1));
    const int64_t time = inject(vn_sys_time);
    CHECK(failed("gettimeofday") ? time == 0 : time > 1'600'000'000'000);
    vn_TimeStampCache cache;
    vn_timeStampInit(&cache);
    const char* text = inject([&] { return vn_timeStampGet(&cache); });
    CHECK(strlen(text) == 23 && text[4] == '-' && text[19] == '.');
    const std::string name = writeFile("trace", "");
    const int fd = open(name.c_str(), O_WRONLY);
    inject([fd] { vn_stackTrace(fd); });
    close(fd);
    CHECK(readFile(name).find("vn_stackTrace") != std::string::npos || failed());
}

}  // namespace

std::vector<Scenario> platformScenarios() {
    return {
        {"discovery",
         discover,
         Memory::all,
         {"open", "read", "stat", "fopen", "__getdelim", "malloc", "sysconf", "fclose"}},
        {"controlGroups",
         readControlGroups,
         Memory::all,
         {"stat", "fopen", "__getdelim", "malloc", "strdup", "fclose"}},
        {"groupListedTwice",
         findGroupListedTwice,
         Memory::all,
         {"stat", "fopen", "__getdelim", "malloc", "strdup", "fclose"}},
        {"platformName", namePlatform, Memory::all, {"malloc", "open", "read"}},
        {.name = "cpuDetails",
         .run = nameCpu,
         .memory = Memory::all,
         .mustFail = {"strdup", "open", "read"},
         .onStandardError = {"FAIL: "}},
        {"user", nameUser, Memory::own, {"sysconf", "malloc", "getpwuid_r", "getcwd"}},
        {"environment", copyEnvironment, Memory::all, {"malloc"}},
        {"files", useFiles, Memory::all, {"open", "fopen", "stat", "write", "malloc"}},
        {"libraries", useLibraries, Memory::all, {"dlopen", "dlsym", "dlclose", "malloc"}},
        {"system",
         askTheSystem,
         Memory::all,
         {"fopen", "fgets", "gettimeofday", "clock_gettime", "localtime_r"}},
    };
}

}  // namespace faults
