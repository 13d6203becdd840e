#include "facts.h"

#include <sched.h>
#include <unistd.h>
#include <vncommon/vncommon.h>

#include <cfloat>
#include <cstdlib>

#include "control_groups.h"
#include "log_threshold.h"

namespace vninfo {

namespace {

constexpr double bytesPerMebibyte = 1048576;

std::string orUnknown(const char* text) {
    return text != nullptr ? text : "unknown";
}

Reading readVariable(const std::string& name) {
    const char* value = getenv(name.c_str());
    return {Reading::Kind::variable, name,
            value != nullptr ? std::optional<std::string>(value) : std::nullopt};
}

std::string environmentOr(const char* name, const char* otherwise) {
    return readVariable(name).text.value_or(otherwise);
}

template <class Number>
std::optional<double> unless(Number noLimit, Number value) {
    return value == noLimit ? std::nullopt : std::optional(static_cast<double>(value));
}

// Checks the override as the library does. If it is valid, /proc/cpuinfo is not used.
std::vector<Source> machineProcessors() {
    Source override{"override", {readVariable("VN_ASSUME_CPUS")}, std::nullopt, ""};
    const auto& text = override.readings.front().text;
    const double machine = vn_getPhysicalCPUs();
    if (text && static_cast<int>(strtol(text->c_str(), nullptr, 10)) > 0) {
        override.value = machine;
        return {override};
    }
    override.reason = text ? "not a positive number" : "not set";
    return {override, Source{"cpuinfo", {}, machine, ""}};
}

// Nothing if the kernel rejects a set of that size because the machine needs a larger one.
std::optional<double> affinityWithin(size_t processors) {
    cpu_set_t* set = CPU_ALLOC(processors);
    const size_t size = CPU_ALLOC_SIZE(processors);
    std::optional<double> count;
    if (sched_getaffinity(0, size, set) == 0) {
        count = CPU_COUNT_S(size, set);
    }
    CPU_FREE(set);
    return count;
}

// The processors that taskset, cpusets and similar mechanisms allow for this process.
Source affinity() {
    constexpr size_t most = size_t{1} << 20;
    Source source{"affinity", {}, std::nullopt, ""};
    for (size_t processors = 1024; !source.value && processors <= most; processors *= 2) {
        source.value = affinityWithin(processors);
    }
    source.reason = source.value ? "" : "unknown";
    return source;
}

const Controller cpuControllers[] = {
    {"v1",
     "cpu",
     {"/cpu.cfs_quota_us", "/cpu.cfs_period_us"},
     {1, 1},
     [](const char* dir) { return unless(DBL_MAX, vn_availableCPUsCGroupsV1(dir)); }},
    {"v2",
     "",
     {"/cpu.max"},
     {2},
     [](const char* dir) { return unless(DBL_MAX, vn_availableCPUsCGroupsV2(dir)); }},
};

const Controller memoryControllers[] = {
    {"v1",
     "memory",
     {"/memory.limit_in_bytes"},
     {1},
     [](const char* dir) {
         return unless(INT64_MAX, vn_physicalMemoryCGroupsV1(dir, vn_actualPhysicalMemoryBytes()));
     }},
    {"v2",
     "",
     {"/memory.max"},
     {1},
     [](const char* dir) {
         return unless(INT64_MAX, vn_physicalMemoryCGroupsV2(dir, vn_actualPhysicalMemoryBytes()));
     }},
};

void addGroups(Resource& resource, const ControlGroups& groups, const Controller (&both)[2]) {
    for (const Controller& controller : both) {
        resource.sources.push_back(ownGroup(groups, controller));
        resource.notConsidered.push_back(parentGroups(groups, controller));
    }
}

Resource processors(const ControlGroups& groups) {
    Resource all{vn_availableCPUs(), machineProcessors(), {affinity()}};
    addGroups(all, groups, cpuControllers);
    return all;
}

Resource memory(const ControlGroups& groups) {
    const auto physical = static_cast<double>(vn_actualPhysicalMemoryBytes());
    Resource all{vn_physicalMemory() * bytesPerMebibyte, {{"physical", {}, physical, ""}}, {}};
    addGroups(all, groups, memoryControllers);
    return all;
}

CodePage codePage() {
    CodePage page;
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        if (getenv(name) != nullptr) {
            page.variable = name;
            break;
        }
    }
    if (const char* name = vn_getCodepage()) {
        page.name = name;
    }
    return page;
}

std::vector<std::string> configurationPlaces(const char* file) {
    std::vector<std::string> places;
    if (file != nullptr) {
        places.push_back(tidyPath(file));
    }
    places.emplace_back(".vantrel.conf");
    auto home = readVariable("HOME").text;
    if (!home) {
        home = readVariable("VANTREL_HOME").text;
    }
    if (home) {
        places.push_back(tidyPath(*home + "/.vantrel.conf"));
    }
    return places;
}

Configuration configuration(const char* file) {
    Configuration found;
    found.tried = configurationPlaces(file);
    if (const char* name = VN_ConfigFile_Load(file, nullptr)) {
        found.file = tidyPath(name);
    }
    found.loaded = VN_ConfigFile_IsLoaded();
    if (!found.loaded) {
        return found;
    }
    VN_ConfigFile* config = VN_ConfigFile_Get();
    found.categories = VN_ConfigFile_GetCategoryCount(config);
    for (auto* category = VN_ConfigFile_GetFirstCategory(config); category != nullptr;
         category = VN_ConfigFile_GetNextCategory(config)) {
        found.entries += VN_ConfigFileCategory_GetEntryCount(category);
        VN_ConfigFileCategory_Release(category);
    }
    vn_HashMapIterator_dtor(config->iterator);
    VN_ConfigFile_Unload();
    return found;
}

}  // namespace

const Source* Resource::winner() const {
    for (const Source& source : sources) {
        if (source.value == usable) {
            return &source;
        }
    }
    return nullptr;
}

bool Resource::isTighter(const Source& source) const {
    return source.value && *source.value < usable;
}

Facts gatherFacts(const Questions& questions) {
    Facts facts{};
    facts.cpu = orUnknown(vn_getCPUDetails());
    facts.platform = orUnknown(vn_getFullPlatformName());
    const ControlGroups groups{environmentOr("VN_CGROUPS_ROOT", "/sys/fs/cgroup"),
                               environmentOr("VN_CGROUPS_SELF", "/proc/self/cgroup")};
    facts.controlGroupsRoot = tidyPath(groups.root);
    facts.controlGroupsSelf = tidyPath(groups.self);
    facts.processors = processors(groups);
    facts.processorCount = vn_numberOfCPUs();
    facts.onlineProcessors = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    facts.memory = memory(groups);
    facts.virtualBytes = vn_vmSize();
    facts.residentBytes = vn_residentSetSize();
    facts.codePage = codePage();
    facts.configuration = configuration(questions.configFile);
    facts.logLevel = VN_LogLevelToString(VN_GetLogLevel());
    for (const std::string& name : questions.levelVariables) {
        facts.levelVariables.push_back(
            {readVariable(name), VN_LogLevelToString(logThreshold(name.c_str()))});
    }
    return facts;
}

}  // namespace vninfo
