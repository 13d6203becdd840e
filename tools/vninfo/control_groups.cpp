#include "control_groups.h"

#include <sys/stat.h>
#include <vncommon/vncommon.h>

#include <cstdlib>
#include <memory>

namespace vninfo {

namespace {

struct Free {
    void operator()(char* text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

bool isFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The directory of the process's group, found as in the library; empty when there is none.
std::string ownDirectory(const ControlGroups& groups, const char* controller) {
    const OwnedText dir(
        vn_getCGroupProcessControllerDir(groups.root.c_str(), groups.self.c_str(), controller));
    const std::string path = dir != nullptr ? tidyPath(dir.get()) : "";
    return isFolder(path) ? path : "";
}

std::optional<std::string> firstLine(const std::string& dir, const char* file) {
    const OwnedText line(readCGroupsFile(dir.c_str(), file));
    if (line == nullptr) {
        return std::nullopt;
    }
    strip_linebreak(line.get());
    return line.get();
}

std::vector<Reading> readFiles(const Controller& controller, const std::string& dir) {
    std::vector<Reading> readings;
    for (const char* file : controller.files) {
        readings.push_back({Reading::Kind::file, tidyPath(dir + file), firstLine(dir, file)});
    }
    return readings;
}

enum class Verdict { limits, limitsNothing, isNoNumber };

// Checks that the text begins with this many numbers. "max", which version 2 of control groups
// writes, and numbers that are not above 0 set no limit.
Verdict judge(const std::optional<std::string>& text, size_t numbers) {
    if (!text || text->rfind("max", 0) == 0) {
        return Verdict::limitsNothing;
    }
    const char* at = text->c_str();
    for (; numbers > 0; --numbers) {
        char* end = nullptr;
        const double number = strtod(at, &end);
        if (end == at) {
            return Verdict::isNoNumber;
        }
        if (!(number > 0)) {
            return Verdict::limitsNothing;
        }
        at = end;
    }
    return Verdict::limits;
}

const char* whyNoLimit(const Controller& controller, const std::vector<Reading>& readings) {
    for (size_t i = 0; i < readings.size(); ++i) {
        const Verdict verdict = judge(readings[i].text, controller.numbers[i]);
        if (verdict != Verdict::limits) {
            return verdict == Verdict::isNoNumber ? "not a number" : "no limit";
        }
    }
    return "no limit";
}

Source readGroup(const Controller& controller, const std::string& dir) {
    Source source{"", readFiles(controller, dir), controller.limit(dir.c_str()), ""};
    if (!source.value) {
        source.reason = whyNoLimit(controller, source.readings);
    }
    return source;
}

// The parent folders of dir, from the nearest to top, which contains all groups of the controller.
std::vector<std::string> parents(const std::string& top, std::string dir) {
    std::vector<std::string> found;
    while (dir.size() > top.size() && dir.rfind(top, 0) == 0 && dir.find("/..") == dir.npos) {
        dir.resize(dir.rfind('/'));
        found.push_back(dir);
    }
    return found;
}

bool isTighter(const Source& one, const Source& other) {
    return one.value && (!other.value || *one.value < *other.value);
}

}  // namespace

Source ownGroup(const ControlGroups& groups, const Controller& controller) {
    const std::string dir = ownDirectory(groups, controller.name);
    Source source =
        dir.empty() ? Source{"", {}, std::nullopt, "no such group"} : readGroup(controller, dir);
    source.name = std::string("control-groups-") + controller.version;
    return source;
}

Source parentGroups(const ControlGroups& groups, const Controller& controller) {
    std::string top = tidyPath(groups.root + "/" + controller.name);
    if (top.back() == '/') {
        top.pop_back();
    }
    std::string own = ownDirectory(groups, controller.name);
    if (!own.empty() && own.back() == '/') {
        own.pop_back();
    }
    Source tightest{"", {}, std::nullopt, "no such group"};
    for (const std::string& dir : parents(top, own)) {
        const Source source = readGroup(controller, dir);
        tightest.reason = tightest.value ? "" : source.reason;
        if (isTighter(source, tightest)) {
            tightest = source;
        }
    }
    tightest.name = std::string("parent-groups-") + controller.version;
    return tightest;
}

std::string tidyPath(const std::string& path) {
    std::string tidy;
    for (const char byte : path) {
        if (byte != '/' || tidy.empty() || tidy.back() != '/') {
            tidy += byte;
        }
    }
    return tidy;
}

}  // namespace vninfo
