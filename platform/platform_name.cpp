// The one-line description of the Linux distribution, from the first release file that exists.
#include "platform/machine_description.h"

#include <cstring>

#include "platform/assertion.h"
#include "platform/line_reader.h"
#include "platform/owned_text.h"

namespace vncommon {
namespace {

std::atomic<const char*> fullPlatformName{nullptr};

using Line = char[1024];

bool nextLine(LineReader& file, Line& line) {
    if (!file.next(line)) {
        return false;
    }
    strip_linebreak(line);
    return true;
}

// The value of a line "key=value" with this key; null for another key or an empty value.
const char* valueOf(const char* line, const char* key) {
    const char* equals = strchr(line, '=');
    if (equals == nullptr || equals[1] == '\0') {
        return nullptr;
    }
    const auto keyLength = static_cast<size_t>(equals - line);
    const bool matches = keyLength == strlen(key) && memcmp(line, key, keyLength) == 0;
    return matches ? equals + 1 : nullptr;
}

// Removes NAME's last byte and VERSION's first byte, which are quotes as a rule.
// Compat: the outer quotes stay; callers expect them.
Text fromOsRelease(LineReader& file) {
    Text name;
    Line line;
    while (nextLine(file, line)) {
        if (const char* value = valueOf(line, "NAME")) {
            VN_ASSERT(*value != '\0');
            name.reset(strndup(value, strlen(value) - 1));
        } else if (const char* version = valueOf(line, "VERSION")) {
            return name != nullptr ? join(name.get(), " ", version + 1) : nullptr;
        }
    }
    return nullptr;
}

Text fromLsbRelease(LineReader& file) {
    Line line;
    while (nextLine(file, line)) {
        if (const char* description = valueOf(line, "DISTRIB_DESCRIPTION")) {
            return Text(strdup(description));
        }
    }
    return nullptr;
}

Text fromFirstLine(LineReader& file) {
    Line line;
    return nextLine(file, line) ? Text(strdup(line)) : nullptr;
}

Text fromDebianVersion(LineReader& file) {
    Line line;
    return nextLine(file, line) ? join("Debian ", line) : nullptr;
}

struct ReleaseFile {
    const char* path;
    Text (*describe)(LineReader& file);
};

constexpr ReleaseFile releaseFiles[] = {
    {"/etc/os-release", fromOsRelease},   {"/usr/lib/os-release", fromOsRelease},
    {"/etc/lsb-release", fromLsbRelease}, {"/etc/redhat-release", fromFirstLine},
    {"/etc/SuSE-release", fromFirstLine}, {"/etc/debian_version", fromDebianVersion},
};

}  // namespace

char* describePlatform(const char* root) {
    for (const ReleaseFile& release : releaseFiles) {
        const Text path = join(root, release.path);
        if (path == nullptr) {
            return nullptr;
        }
        LineReader file(path.get());
        if (file.isOpen()) {
            return release.describe(file).release();
        }
    }
    return nullptr;
}

}  // namespace vncommon

using namespace vncommon;

const char* vn_getFullPlatformName(void) {
    const char* known = fullPlatformName.load(std::memory_order_acquire);
    if (known != nullptr) {
        return known;
    }
    return cacheText(fullPlatformName, describePlatform(""), "Unknown Linux platform");
}
