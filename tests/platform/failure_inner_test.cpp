// The report of failed system calls, also for results that cannot be provoked: the linker redirects
// some calls of the library to the wrappers here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/check_error.h"
#include "support/child_process.h"

namespace {

int strerrorResult = -1;     // result of strerror_r; -1: call the real one
bool snprintfFails = false;  // it returns -5
bool strdupFails = false;
bool mallocFails = false;
size_t lastMallocSize = 0;

int formatOrFail(char* buffer, size_t size, const char* format, va_list arguments) {
    return snprintfFails ? -5 : vsnprintf(buffer, size, format, arguments);
}

}  // namespace

extern "C" {

int __real___xpg_strerror_r(int errnum, char* buffer, size_t size);
int __wrap___xpg_strerror_r(int errnum, char* buffer, size_t size);
int __wrap_snprintf(char* buffer, size_t size, const char* format, ...);
int __wrap___snprintf_chk(char* buffer, size_t size, int flag, size_t room, const char* format,
                          ...);
int __real___vsnprintf_chk(char* buffer, size_t size, int flag, size_t room, const char* format,
                           va_list arguments);
int __wrap___vsnprintf_chk(char* buffer, size_t size, int flag, size_t room, const char* format,
                           va_list arguments);
char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text);
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);

int __wrap___xpg_strerror_r(int errnum, char* buffer, size_t size) {
    return strerrorResult >= 0 ? strerrorResult : __real___xpg_strerror_r(errnum, buffer, size);
}

int __wrap_snprintf(char* buffer, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = formatOrFail(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

// What snprintf becomes with _FORTIFY_SOURCE.
int __wrap___snprintf_chk(char* buffer, size_t size, int, size_t, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = formatOrFail(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

// The same with clang and glibc 2.40 or later.
int __wrap___vsnprintf_chk(char* buffer, size_t size, int flag, size_t room, const char* format,
                           va_list arguments) {
    return snprintfFails ? -5 : __real___vsnprintf_chk(buffer, size, flag, room, format, arguments);
}

char* __wrap_strdup(const char* text) {
    return strdupFails ? nullptr : __real_strdup(text);
}

void* __wrap_malloc(size_t size) {
    lastMallocSize = size;
    return mallocFails ? nullptr : __real_malloc(size);
}
}

namespace {

using testing::MatchesRegex;

std::string reportOf(const std::string& call, const char* errnoText, const char* codeText) {
    return "Fatal error: System call " + call + " failed\n(strerror(errno)=" + errnoText +
           ")\n(strerror(errcode)=" + codeText + ")\n";
}

VN_CHILD(systemCall) {
    errno = ENOENT;
    vncommon::checkError(atoi(arguments[0].c_str()), arguments[1].c_str());
    return 9;
}

ChildResult systemCall(int code, const std::string& call) {
    return runChild("systemCall",
                    {.environment = {{"LC_ALL", "C"}, {"VN_ABORT_ON_OOM", std::nullopt}},
                     .arguments = {std::to_string(code), call}});
}

TEST(SystemCall, ZeroIsNoFailure) {
    const ChildResult child = systemCall(0, "pthread_create");
    EXPECT_EQ(child.exitStatus, 9);
    EXPECT_EQ(child.err, "");
}

TEST(SystemCall, FailureIsReportedAndSurvived) {
    const struct {
        int code;
        const char* call;
        const char* text;
    } cases[] = {{16, "pthread_mutex_destroy", "Device or resource busy"},
                 {11, "pthread_join", "Resource temporarily unavailable"},
                 {12, "pthread_attr_init", "Cannot allocate memory"},
                 {-1, "sem_wait", "An unknown error (-1) occurred"},
                 {1, "pthread_create", "Operation not permitted"},
                 {22, "pthread_create", "Invalid argument"},
                 {11, "pthread_creat", "Resource temporarily unavailable"},
                 {11, "pthread_create2", "Resource temporarily unavailable"},
                 {-11, "pthread_create", "An unknown error (-11) occurred"}};
    for (const auto& [code, call, text] : cases) {
        const ChildResult child = systemCall(code, call);
        EXPECT_EQ(child.exitStatus, 9) << call << code;
        EXPECT_EQ(child.err, reportOf(call, "No such file or directory", text));
    }
}

TEST(SystemCall, NoThreadForLackOfResourcesIsOutOfMemory) {
    const struct {
        int code;
        const char* text;
    } cases[] = {{11, "Resource temporarily unavailable"}, {12, "Cannot allocate memory"}};
    for (const auto& [code, text] : cases) {
        const ChildResult child = systemCall(code, "pthread_create");
        const std::string report = reportOf("pthread_create", "No such file or directory", text);
        EXPECT_EQ(child.exitStatus, 1);
        ASSERT_EQ(child.err.substr(0, report.size()), report);
        EXPECT_THAT(child.err.substr(report.size()),
                    MatchesRegex("This process is out of memory... exiting\n"
                                 "memory used: vm=[0-9]+\\.000000, rss=[0-9]+\\.000000\n"));
    }
}

// ---- Results that the system does not return -------------------------------------------------

std::string strerrorWith(int result, size_t size = 1024) {
    std::string buffer(size, '#');
    strerrorResult = result;
    vn_strerror(buffer.data(), size, 7);
    strerrorResult = -1;
    return buffer.c_str();
}

TEST(StrerrorFallback, DependsOnTheResult) {
    EXPECT_EQ(strerrorWith(EINVAL), "An unknown error (7) occurred");
    EXPECT_EQ(strerrorWith(ERANGE),
              "An error (7) occurred, but its message was too large to display");
    EXPECT_EQ(strerrorWith(77), "Error (7:77) occurred");
}

TEST(StrerrorFallback, NeedsOneByteToSpare) {
    constexpr size_t filled = sizeof "Error (7:77) occurred";
    EXPECT_EQ(strerrorWith(77, filled + 1), "Error (7:77) occurred");
    const ChildResult child =
        runChild("strerrorWith", {.arguments = {"77", std::to_string(filled)}});
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_EQ(child.err, "Fatal error: error message buffer too small\n");
}

VN_CHILD(strerrorWith) {
    strerrorWith(atoi(arguments[0].c_str()), strtoul(arguments[1].c_str(), nullptr, 10));
    return 0;
}

VN_CHILD(strerrorWithoutSnprintf) {
    static char buffer[4096];
    setvbuf(stderr, buffer, atoi(arguments[0].c_str()), sizeof buffer);
    snprintfFails = true;
    strerrorWith(77);
    return 0;
}

TEST(StrerrorFallback, AbortsWhenItCannotBeFormatted) {
    for (const int buffering : {_IONBF, _IOFBF}) {
        const ChildResult child =
            runChild("strerrorWithoutSnprintf", {.arguments = {std::to_string(buffering)}});
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_EQ(child.err, "Fatal error: snprintf unexpectedly failed (-5)\n") << buffering;
    }
}

VN_CHILD(exhausted) {
    static char buffer[4096];
    setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
    strdupFails = mallocFails = true;
    if (arguments[0] == "malloc") {
        (void)vn_malloc(1);
    } else if (arguments[0] == "strdup") {
        (void)vn_strdup("text");
    } else {
        (void)vn_strndup("text", 2);
    }
    return 0;
}

TEST(Allocation, NullEndsTheProcess) {
    for (const char* function : {"malloc", "strdup", "strndup"}) {
        const ChildResult child = runChild("exhausted", {.arguments = {function}});
        EXPECT_EQ(child.signal, SIGABRT) << function;
        EXPECT_EQ(child.err,
                  "Fatal error: malloc or similar returned null - this suggests the process has "
                  "run out of memory\n");
    }
}

TEST(Allocation, StrndupTakesNoMoreThanItNeeds) {
    const struct {
        const char* text;
        size_t maximum;
        size_t block;
    } cases[] = {{"ab", 10, 3}, {"abcdef", 3, 4}, {"ab", 2, 3}, {"ab", 0, 1}, {"", 5, 1}};
    for (const auto& [text, maximum, block] : cases) {
        vn_free(vn_strndup(text, maximum));
        EXPECT_EQ(lastMallocSize, block) << text << " " << maximum;
    }
}

VN_CHILD(outOfMemoryUnformatted) {
    snprintfFails = true;
    vn_outOfMemory();
}

TEST(OutOfMemory, SkipsAMemoryLineThatCannotBeFormatted) {
    const ChildResult child =
        runChild("outOfMemoryUnformatted", {.environment = {{"VN_ABORT_ON_OOM", std::nullopt}}});
    EXPECT_EQ(child.exitStatus, 1);
    EXPECT_EQ(child.err, "This process is out of memory... exiting\n");
}

}  // namespace
