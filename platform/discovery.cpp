// Processor and memory discovery from /proc and the control-group tree.
#include "platform/discovery_sources.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/assertion.h"
#include "platform/float_environment.h"
#include "platform/line_reader.h"
#include "platform/owned_text.h"

namespace vncommon {
namespace {

constexpr double unlimitedCpus = DBL_MAX;
constexpr int64_t unlimitedBytes = INT64_MAX;
constexpr double mebibytesPerByte = 0x1p-20;

std::atomic<int> numCpus{unknownCpus};

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

bool exists(const char* path) {
    struct stat ignored;
    return stat(path, &ignored) == 0;
}

const char* environmentOr(const char* variable, const char* otherwise) {
    const char* value = getenv(variable);
    return value != nullptr ? value : otherwise;
}

Text ownControllerDir(const char* controller) {
    return Text(vn_getCGroupProcessControllerDir(
        environmentOr("VN_CGROUPS_ROOT", "/sys/fs/cgroup"),
        environmentOr("VN_CGROUPS_SELF", "/proc/self/cgroup"), controller));
}

// VN_ASSUME_CPUS converted to a 32-bit integer; 0 when it is unset or not positive.
int assumedCpus() {
    const char* text = getenv("VN_ASSUME_CPUS");
    const int count = text == nullptr ? 0 : static_cast<int>(strtol(text, nullptr, 10));
    return count > 0 ? count : 0;
}

double quotient(double quota, double period) {
    return quota > 0 && period > 0 ? quota / period : unlimitedCpus;
}

// Raises "inexact" where the compiler inlines ceil().
[[gnu::noinline]] int roundedUp(double cpus) {
    return static_cast<int>(std::ceil(cpus));
}

Text readLimit(const char* dir, const char* name) {
    return Text(dir == nullptr ? nullptr : readCGroupsFile(dir, name));
}

// The number at the start of a controller file; 0 when there is none.
double readNumber(const char* dir, const char* name) {
    double number = 0;
    if (const Text line = readLimit(dir, name)) {
        sscanf(line.get(), "%lf", &number);
    }
    return number;
}

[[gnu::noinline]] double cpusOfVersion1(const char* dir) {
    const double quota = readNumber(dir, "/cpu.cfs_quota_us");  // -1: no quota
    return quota > 0 ? quotient(quota, readNumber(dir, "/cpu.cfs_period_us")) : unlimitedCpus;
}

[[gnu::noinline]] double cpusOfVersion2(const char* dir) {
    const Text line = readLimit(dir, "/cpu.max");
    double quota;
    double period;
    if (line == nullptr || sscanf(line.get(), "%lf %lf", &quota, &period) != 2) {
        return unlimitedCpus;
    }
    return quotient(quota, period);
}

// Whether the comma-separated list holds the controller.
bool listHolds(std::string_view list, std::string_view controller) {
    for (;;) {
        const size_t comma = list.find(',');
        if (list.substr(0, comma) == controller) {
            return true;
        }
        if (comma == std::string_view::npos) {
            return false;
        }
        list.remove_prefix(comma + 1);
    }
}

// The path in the first line of selfFile that lists the controller, up to the end of the line.
// Null when no line does, or without memory for the path.
Text findGroupPath(const char* selfFile, const char* controller) {
    const File file(fopen(selfFile, "re"));
    if (file == nullptr) {
        return nullptr;
    }
    char* line = nullptr;
    size_t capacity = 0;
    int64_t offset = -1;
    ssize_t length;
    while (offset < 0 && (length = getline(&line, &capacity, file.get())) >= 0) {
        offset = vn_findProcCGroupPathOffset(line, static_cast<size_t>(length), controller,
                                             strlen(controller));
    }
    VN_ASSERT(offset < 0 || offset <= length);
    Text path(offset < 0 ? nullptr : strdup(line + offset));
    free(line);
    return path;
}

void stripTrailingLineFeeds(char* text) {
    text[std::string_view(text).find_last_not_of('\n') + 1] = '\0';
}

}  // namespace

int physicalCpus(std::atomic<int>& cache, const char* cpuinfoFile) {
    const int known = cache.load(std::memory_order_relaxed);
    if (known != unknownCpus) {
        return known;
    }
    int count = assumedCpus();
    if (count == 0) {
        LineReader cpuinfo(cpuinfoFile);
        if (!cpuinfo.isOpen()) {
            return 0;  // not cached: a later call may succeed
        }
        char line[1024];
        while (cpuinfo.next(line)) {
            count += std::string_view(line).starts_with("processor") ? 1 : 0;
        }
    }
    VN_ASSERT(count >= 0);
    cache.store(count, std::memory_order_relaxed);
    return count;
}

double vmSize(const char* statusFile) {
    constexpr char label[] = "VmSize:";
    LineReader status(statusFile);
    char line[256];
    while (status.next(line)) {
        if (std::string_view(line).starts_with(label)) {
            const char* digits = line + sizeof label - 1;
            digits += strcspn(digits, "0123456789");
            const auto kibibytes = static_cast<uint64_t>(strtoll(digits, nullptr, 10));
            return static_cast<double>(static_cast<int64_t>(kibibytes << 10));
        }
    }
    return 0.0;
}

double residentSetSize(const char* statmFile) {
    LineReader statm(statmFile);
    char field[256];
    if (!statm.nextField(field) || !statm.nextField(field)) {
        return 0.0;
    }
    char* end;
    const long pages = strtol(field, &end, 10);
    return end == field ? 0.0
                        : static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

}  // namespace vncommon

using namespace vncommon;

int vn_getPhysicalCPUs(void) {
    return physicalCpus(numCpus, "/proc/cpuinfo");
}

double vn_availableCPUs(void) {
    double available = vn_getPhysicalCPUs();
    const double version1 = vn_availableCPUsCGroupsV1(ownControllerDir("cpu").get());
    const double version2 = vn_availableCPUsCGroupsV2(ownControllerDir("").get());
    available = version1 < available ? version1 : available;
    VN_ASSERT(available >= 0);
    return version2 < available ? version2 : available;
}

int vn_numberOfCPUs(void) {
    return inDefaultFloatMode<roundedUp>(vn_availableCPUs());
}

double vn_availableCPUsCGroupsV1(const char* dir) {
    return inDefaultFloatMode<cpusOfVersion1>(dir);
}

double vn_availableCPUsCGroupsV2(const char* dir) {
    return inDefaultFloatMode<cpusOfVersion2>(dir);
}

double vn_physicalMemory(void) {
    const int64_t physical = vn_actualPhysicalMemoryBytes();
    const int64_t version1 = vn_physicalMemoryCGroupsV1(ownControllerDir("memory").get(), physical);
    const int64_t version2 = vn_physicalMemoryCGroupsV2(ownControllerDir("").get(), physical);
    const int64_t bytes = std::min(std::min(version1, version2), physical);
    VN_ASSERT(bytes <= physical);
    return static_cast<double>(bytes) * mebibytesPerByte;
}

int64_t vn_actualPhysicalMemoryBytes(void) {
    const int64_t pages = sysconf(_SC_PHYS_PAGES);
    const int64_t pageSize = sysconf(_SC_PAGESIZE);
    return pages == -1 || pageSize == -1 ? 0 : pages * pageSize;
}

int64_t vn_physicalMemoryCGroupsV1(const char* dir, int64_t physicalBytes) {
    const Text line = readLimit(dir, "/memory.limit_in_bytes");
    int64_t limit = 0;  // Compat: a line without a number is a limit of 0; callers rely on it
    if (line == nullptr || sscanf(line.get(), "%ld", &limit) == EOF) {
        return unlimitedBytes;
    }
    // Without a limit the kernel shows a number larger than any memory size.
    return limit >= physicalBytes ? unlimitedBytes : limit;
}

int64_t vn_physicalMemoryCGroupsV2(const char* dir, int64_t physicalBytes) {
    const Text line = readLimit(dir, "/memory.max");
    int64_t limit = -1;  // kept when there is no number, as in "max"
    if (line != nullptr) {
        sscanf(line.get(), "%ld", &limit);
    }
    return limit > 0 && limit < physicalBytes ? limit : unlimitedBytes;
}

double vn_vmSize(void) {
    return vmSize("/proc/self/status");
}

double vn_residentSetSize(void) {
    return residentSetSize("/proc/self/statm");
}

char* vn_getCGroupProcessControllerDir(const char* root, const char* selfFile,
                                       const char* controller) {
    const Text path = findGroupPath(selfFile, controller);
    if (path == nullptr) {
        return nullptr;
    }
    Text dir = join(root, "/", controller, path.get());
    if (dir != nullptr) {
        stripTrailingLineFeeds(dir.get());
        if (!exists(dir.get())) {
            dir = join(root, "/", controller);
        }
    }
    return dir.release();
}

int64_t vn_findProcCGroupPathOffset(const char* line, size_t length, const char* controller,
                                    size_t controllerLength) {
    const std::string_view text(line, length);
    const size_t afterNumber = text.find_first_not_of("0123456789");
    if (afterNumber == std::string_view::npos || text[afterNumber] != ':') {
        return -1;
    }
    const size_t list = afterNumber + 1;
    const size_t listEnd = text.find(':', list);
    const bool found = listEnd != std::string_view::npos &&
                       listHolds(text.substr(list, listEnd - list), {controller, controllerLength});
    return found ? static_cast<int64_t>(listEnd + 1) : -1;
}

char* readCGroupsFile(const char* dir, const char* name) {
    const Text path = join(dir, name);
    if (path == nullptr || !exists(path.get())) {
        return nullptr;
    }
    const File file(fopen(path.get(), "re"));
    char* line = nullptr;
    size_t capacity = 0;
    if (file == nullptr || getline(&line, &capacity, file.get()) < 0) {
        free(line);
        return nullptr;
    }
    return line;
}
