// The readers of the release files and of the processor description, compared with models that work
// on lists of lines. An input is a number that selects the file, and the file's contents.
#include "platform/machine_description.h"

#include <vncommon/platform.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <optional>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/scratch_file.h"

namespace {

constexpr size_t longestPiece = 1023;

// The file's lines as its readers get them: in pieces of a limited length, each cut at a NUL,
// without the line feed.
std::vector<std::string> linesOf(const std::string& file) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < file.size();) {
        const size_t lineFeed = std::min(file.find('\n', start), file.size() - 1);
        const size_t length = std::min(lineFeed + 1 - start, longestPiece);
        std::string line = file.substr(start, length).c_str();
        line.resize(std::min(line.size(), line.find('\n')));
        lines.push_back(line);
        start += length;
    }
    return lines;
}

std::optional<std::string> value(const std::string& line, const std::string& key) {
    if (line.compare(0, key.size() + 1, key + "=") != 0 || line.size() == key.size() + 1) {
        return std::nullopt;
    }
    return line.substr(key.size() + 1);
}

using Description = std::optional<std::string>;

Description describeOs(const std::vector<std::string>& lines) {
    Description name;
    for (const std::string& line : lines) {
        if (const auto text = value(line, "NAME")) {
            name = text->substr(0, text->size() - 1);
        } else if (const auto version = value(line, "VERSION")) {
            return name ? Description(*name + " " + version->substr(1)) : std::nullopt;
        }
    }
    return std::nullopt;
}

Description describeLsb(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (const auto text = value(line, "DISTRIB_DESCRIPTION")) {
            return text;
        }
    }
    return std::nullopt;
}

Description firstLine(const std::vector<std::string>& lines) {
    return lines.empty() ? Description() : lines[0];
}

Description describeDebian(const std::vector<std::string>& lines) {
    return lines.empty() ? Description() : "Debian " + lines[0];
}

struct Release {
    const char* file;
    Description (*describe)(const std::vector<std::string>&);
};

constexpr Release releases[] = {
    {"/etc/os-release", describeOs},   {"/usr/lib/os-release", describeOs},
    {"/etc/lsb-release", describeLsb}, {"/etc/redhat-release", firstLine},
    {"/etc/SuSE-release", firstLine},  {"/etc/debian_version", describeDebian},
};

// A machine with one release file.
class Machine {
  public:
    explicit Machine(const Release& file) : release(file) { root.show(contents, release.file); }

    void check(const std::string& file) {
        contents.fill(file);
        const fuzz::Taken found(vncommon::describePlatform(root.name().c_str()));
        const Description expected = release.describe(linesOf(file));
        FUZZ_REQUIRE(expected ? found.is(*expected) : found.isNull());
    }

  private:
    const Release& release;
    fuzz::MemoryFile contents;
    fuzz::ScratchFolder root;
};

struct CpuLine {
    const char* start;
    int slot;  // vendor, family, model, stepping, model name
    const char* label;
    bool isLast;
};

constexpr CpuLine cpuLines[] = {
    {"vendor_id", 0, "vendor", false},    {"CPU imple", 0, "implementer code", false},
    {"cpu family", 1, " family ", false}, {"CPU archit", 1, " achitecture ", false},
    {"model name", 4, "", false},         {"model", 2, " model ", false},
    {"revis", 2, " revision ", false},    {"CPU part", 3, " part code ", true},
    {"stepping", 3, " stepping ", true},
};

// The text that starts two bytes after the first colon; may be empty.
std::string behindColon(const std::string& line) {
    const size_t colon = line.find(':');
    return colon == line.npos || colon + 2 > line.size() ? "" : line.substr(colon + 2);
}

std::string describeCpu(const std::vector<std::string>& lines) {
    std::string parts[5] = {"", "", "", "", "(null)"};
    std::string labels[5];
    for (const std::string& line : lines) {
        const auto found =
            std::find_if(std::begin(cpuLines), std::end(cpuLines),
                         [&](const CpuLine& rule) { return line.rfind(rule.start, 0) == 0; });
        if (found == std::end(cpuLines)) {
            continue;
        }
        parts[found->slot] = behindColon(line);
        labels[found->slot] = found->label;
        if (found->isLast) {
            break;
        }
    }
    const std::string text = labels[0] + " " + parts[0] + labels[1] + parts[1] + labels[2] +
                             parts[2] + labels[3] + parts[3] + ": " + parts[4];
    return text.substr(0, longestPiece);
}

void checkCpu(const std::string& file) {
    static fuzz::MemoryFile cpuinfo;
    cpuinfo.fill(file);
    FUZZ_REQUIRE(fuzz::Taken(vncommon::describeCpu(cpuinfo.name())).is(describeCpu(linesOf(file))));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::deque<Machine> machines(std::begin(releases), std::end(releases));
    fuzz::Input input(data, size);
    const size_t choice = input.byte() % (machines.size() + 1);
    const std::string file = input.rest();
    if (choice == machines.size()) {
        checkCpu(file);
    } else {
        machines[choice].check(file);
    }
    return 0;
}
