#include "facts.h"

#include <vncommon/vncommon.h>

#include <cfloat>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "log_threshold.h"

namespace vninfo {

namespace {

struct Free {
    void operator()(char* text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

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

// The process's own group of one controller ("" for version 2), as the library finds it.
class Group {
  public:
    Group(const Facts& facts, const char* controller)
        : dir_(vn_getCGroupProcessControllerDir(facts.controlGroupsRoot.c_str(),
                                                facts.controlGroupsSelf.c_str(), controller)) {}

    const char* dir() const { return dir_.get(); }

    std::vector<Reading> read(std::initializer_list<const char*> names) const {
        std::vector<Reading> readings;
        for (const char* name : names) {
            if (dir_ != nullptr) {
                readings.push_back(
                    {Reading::Kind::file, dir_.get() + std::string(name), line(name)});
            }
        }
        return readings;
    }

  private:
    std::optional<std::string> line(const char* name) const {
        const OwnedText line(readCGroupsFile(dir_.get(), name));
        if (line == nullptr) {
            return std::nullopt;
        }
        strip_linebreak(line.get());
        return line.get();
    }

    OwnedText dir_;
};

template <class Number>
std::optional<double> unless(Number noLimit, Number value) {
    return value == noLimit ? std::nullopt : std::optional(static_cast<double>(value));
}

// The override as the library judges it; /proc/cpuinfo is not read where it holds.
std::vector<Source> machineProcessors() {
    Source override{"override", {readVariable("VN_ASSUME_CPUS")}, std::nullopt};
    const auto& text = override.readings.front().text;
    const double machine = vn_getPhysicalCPUs();
    if (text && static_cast<int>(strtol(text->c_str(), nullptr, 10)) > 0) {
        override.value = machine;
        return {override};
    }
    return {override, Source{"cpuinfo", {}, machine}};
}

Resource processors(const Facts& facts) {
    const Group cpu(facts, "cpu");
    const Group unified(facts, "");
    Resource all{vn_availableCPUs(), machineProcessors()};
    all.sources.push_back({"control-groups-v1",
                           cpu.read({"/cpu.cfs_quota_us", "/cpu.cfs_period_us"}),
                           unless(DBL_MAX, vn_availableCPUsCGroupsV1(cpu.dir()))});
    all.sources.push_back({"control-groups-v2", unified.read({"/cpu.max"}),
                           unless(DBL_MAX, vn_availableCPUsCGroupsV2(unified.dir()))});
    return all;
}

Resource memory(const Facts& facts) {
    const Group group(facts, "memory");
    const Group unified(facts, "");
    const int64_t physical = vn_actualPhysicalMemoryBytes();
    const auto version1 = vn_physicalMemoryCGroupsV1(group.dir(), physical);
    const auto version2 = vn_physicalMemoryCGroupsV2(unified.dir(), physical);
    Resource all{vn_physicalMemory() * bytesPerMebibyte, {}};
    all.sources.push_back({"physical", {}, static_cast<double>(physical)});
    all.sources.push_back(
        {"control-groups-v1", group.read({"/memory.limit_in_bytes"}), unless(INT64_MAX, version1)});
    all.sources.push_back(
        {"control-groups-v2", unified.read({"/memory.max"}), unless(INT64_MAX, version2)});
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
        places.emplace_back(file);
    }
    places.emplace_back(".vantrel.conf");
    auto home = readVariable("HOME").text;
    if (!home) {
        home = readVariable("VANTREL_HOME").text;
    }
    if (home) {
        places.push_back(*home + "/.vantrel.conf");
    }
    return places;
}

Configuration configuration(const char* file) {
    Configuration found;
    found.tried = configurationPlaces(file);
    if (const char* name = VN_ConfigFile_Load(file, nullptr)) {
        found.file = name;
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

Facts gatherFacts(const Questions& questions) {
    Facts facts{};
    facts.cpu = orUnknown(vn_getCPUDetails());
    facts.platform = orUnknown(vn_getFullPlatformName());
    facts.controlGroupsRoot = environmentOr("VN_CGROUPS_ROOT", "/sys/fs/cgroup");
    facts.controlGroupsSelf = environmentOr("VN_CGROUPS_SELF", "/proc/self/cgroup");
    facts.processors = processors(facts);
    facts.processorCount = vn_numberOfCPUs();
    facts.memory = memory(facts);
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
