// The limits of the process's control groups and of their parents, which the library ignores.
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
    std::vector<size_t> numbers;     // how many numbers the first line of each file begins with
    std::optional<double> (*limit)(const char* dir);
};

// The limit that the library considers: that of the process's own group.
Source ownGroup(const ControlGroups& groups, const Controller& controller);

// The limit that the library ignores: the tightest of the groups above the process's own.
Source parentGroups(const ControlGroups& groups, const Controller& controller);

// The path without repeated slashes.
std::string tidyPath(const std::string& path);

}  // namespace vninfo

#endif
