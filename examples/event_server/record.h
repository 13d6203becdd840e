// One record as the server understands it. Texts are NUL-terminated UTF-8 and belong to the line
// that was parsed.
#ifndef VN_EXAMPLES_RECORD_H
#define VN_EXAMPLES_RECORD_H

#include <cstdint>
#include <utility>
#include <vector>

struct Record {
    const char* name = nullptr;
    const char* version = "";
    int64_t size = 0;      // KiB
    double sizeMib = 0.0;  // computed from size if the line has none
    bool essential = false;
    std::vector<const char*> dependencies;
    std::vector<std::pair<const char*, const char*>> others;  // in the order of the line
    const char* homepage = nullptr;                           // null when there is none
    const char* description = "";
};

#endif
