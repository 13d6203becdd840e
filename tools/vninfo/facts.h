// What the library detects on the machine and in the environment, collected once and then reported
// as text or as JSON.
#ifndef VNINFO_FACTS_H
#define VNINFO_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vninfo {

// A file or an environment variable that was read for a source.
struct Reading {
    enum class Kind { file, variable };
    Kind kind;
    std::string name;
    std::optional<std::string> text;  // first line, or value; nothing when there is none
};

// One source of a limit on processors or memory.
struct Source {
    std::string name;
    std::vector<Reading> readings;
    std::optional<double> value;  // nothing: this source sets no limit
    std::string reason;           // why there is no value; empty when there is one
};

struct Resource {
    double usable;
    std::vector<Source> sources;
    std::vector<Source> notConsidered;  // by the library
    const Source* winner() const;       // the first source with the value usable; may be null
    bool isTighter(const Source& source) const;  // whether it would lower usable
};

struct CodePage {
    std::optional<std::string> name;      // nothing: ICU's default converter
    std::optional<std::string> variable;  // the environment variable that was used
};

struct Configuration {
    std::vector<std::string> tried;   // in this order
    std::optional<std::string> file;  // the one that was loaded
    bool loaded = false;  // true without a file: a file was opened, but reading it failed
    uint32_t categories = 0;
    uint32_t entries = 0;
};

struct LevelVariable {
    Reading variable;
    std::string level;  // the threshold of lines that name this variable
};

struct Facts {
    std::string cpu;
    std::string platform;
    std::string controlGroupsRoot;
    std::string controlGroupsSelf;
    Resource processors;  // in processors
    int processorCount;
    int onlineProcessors;  // of the machine, as the kernel counts them
    Resource memory;       // in bytes
    double virtualBytes;
    double residentBytes;
    CodePage codePage;
    Configuration configuration;
    std::string logLevel;
    std::vector<LevelVariable> levelVariables;
};

struct Questions {
    const char* configFile = nullptr;
    std::vector<std::string> levelVariables;
};

Facts gatherFacts(const Questions& questions);

void printText(const Facts& facts);
void printJson(const Facts& facts);

}  // namespace vninfo

#endif
