// The limits of the process's control groups, and of their parents, which the library leaves out.
#ifndef VNINFO_CONTROL_GROUPS_H
#define VNINFO_CONTROL_GROUPS_H

#include "facts.h"

namespace vninfo {

struct ControlGroups {
    std::string root;
    std::string self;
};

// One controller of one version, as the library reads it.
struct Controller {
    const char* version;             // "v1" or "v2"
    const char* name;                // "" for version 2
    std::vector<const char*> files;  // each with its leading slash
    std::vector<size_t> numbers;     // how many the first line of each file has to begin with
    std::optional<double> (*limit)(const char* dir);
};

// What the library considers: the process's own group.
Source ownGroup(const ControlGroups& groups, const Controller& controller);

// What it does not: the tightest limit of the groups above it.
Source parentGroups(const ControlGroups& groups, const Controller& controller);

// Without doubled slashes.
std::string tidyPath(const std::string& path);

}  // namespace vninfo

#endif
