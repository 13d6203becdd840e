// The readers of numbers from the kernel: counts, sizes and control-group files. An input is a
// number that selects the file, and the file's contents.
#include "platform/discovery_sources.h"

#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/scratch_file.h"

namespace {

__extension__ using Wide = __int128;

constexpr int64_t physical = INT64_C(64) << 30;

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Lines with their line feeds, in pieces of a limited length, each up to a NUL.
std::vector<std::string> piecesOf(const std::string& file, size_t longest) {
    std::vector<std::string> pieces;
    for (size_t start = 0; start < file.size();) {
        const size_t lineFeed = std::min(file.find('\n', start), file.size() - 1);
        const size_t length = std::min(lineFeed + 1 - start, longest);
        pieces.push_back(file.substr(start, length).c_str());
        start += length;
    }
    return pieces;
}

// The signed number at the start of text, cut to what 64 bits hold; false if there is none.
bool readNumber(const std::string& text, int64_t& number) {
    size_t position = 0;
    while (position < text.size() && isBlank(text[position])) {
        ++position;
    }
    const char sign = position < text.size() ? text[position] : '\0';
    position += sign == '-' || sign == '+';
    const size_t start = position;
    Wide value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
        value = std::min<Wide>(value * 10 + (text[position] - '0'), Wide{1} << 64);
    }
    value = sign == '-' ? -value : value;
    number = static_cast<int64_t>(std::max<Wide>(std::min<Wide>(value, INT64_MAX), INT64_MIN));
    return position > start;
}

void checkCount(const char* name, const std::string& file) {
    std::atomic<int> cache{vncommon::unknownCpus};
    int expected = 0;
    for (const std::string& piece : piecesOf(file, 1023)) {
        expected += piece.rfind("processor", 0) == 0;
    }
    FUZZ_REQUIRE(vncommon::physicalCpus(cache, name) == expected);
    FUZZ_REQUIRE(cache == expected);
}

void checkVirtualSize(const char* name, const std::string& file) {
    double expected = 0;
    for (const std::string& piece : piecesOf(file, 255)) {
        if (piece.rfind("VmSize:", 0) == 0) {
            const size_t digits = piece.find_first_of("0123456789");
            int64_t kibibytes = 0;
            readNumber(digits == piece.npos ? "" : piece.substr(digits), kibibytes);
            expected =
                static_cast<double>(static_cast<int64_t>(static_cast<uint64_t>(kibibytes) * 1024));
            break;
        }
    }
    FUZZ_REQUIRE(vncommon::vmSize(name) == expected);
}

// The next word from start on; leading blanks are skipped. start is moved to the word's end.
std::string nextField(const std::string& file, size_t& start) {
    const auto from =
        std::find_if_not(file.begin() + static_cast<ptrdiff_t>(start), file.end(), isBlank);
    const auto to = std::find_if(from, file.end(), isBlank);
    start = static_cast<size_t>(to - file.begin());
    return std::string(from, to);
}

void checkResidentSet(const char* name, const std::string& file) {
    size_t start = 0;
    nextField(file, start);
    int64_t pages = 0;
    const bool found = readNumber(nextField(file, start).substr(0, 255), pages);
    const double expected =
        found ? static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) : 0;
    FUZZ_REQUIRE(vncommon::residentSetSize(name) == expected);
}

// The folder of a control group, of both versions.
struct Group {
    Group() {
        folder.show(limit, "/memory.limit_in_bytes");
        folder.show(limit, "/memory.max");
        folder.show(both, "/cpu.max");
        folder.show(quota, "/cpu.cfs_quota_us");
        folder.show(period, "/cpu.cfs_period_us");
    }
    fuzz::MemoryFile limit;
    fuzz::MemoryFile both;
    fuzz::MemoryFile quota;
    fuzz::MemoryFile period;
    fuzz::ScratchFolder folder;
};

Group& group() {
    static Group only;
    return only;
}

// The first line with its line feed, cut at a NUL.
std::string firstLine(const std::string& file) {
    return file.substr(0, file.find('\n') == file.npos ? file.npos : file.find('\n') + 1).c_str();
}

void checkMemory(const std::string& file, bool isVersion2) {
    const char* dir = group().folder.name().c_str();
    const char* name = isVersion2 ? "/memory.max" : "/memory.limit_in_bytes";
    group().limit.fill(file);
    const std::string line = firstLine(file);
    const fuzz::Taken read(readCGroupsFile(dir, name));
    FUZZ_REQUIRE(file.empty() ? read.isNull() : read.is(line));
    int64_t limit = 0;
    const bool found = readNumber(line, limit);
    const bool isNothing = line.find_first_not_of(" \t\n\v\f\r") == line.npos;
    if (isVersion2) {
        const bool counts = found && limit > 0 && limit < physical;
        FUZZ_REQUIRE(vn_physicalMemoryCGroupsV2(dir, physical) == (counts ? limit : INT64_MAX));
    } else {
        const bool counts = !isNothing && limit < physical;
        FUZZ_REQUIRE(vn_physicalMemoryCGroupsV1(dir, physical) ==
                     (counts ? (found ? limit : 0) : INT64_MAX));
    }
}

// Numbers in the kernel's format are compared. For others, only checks that a share is above 0.
void checkProcessors(const std::string& file) {
    const char* dir = group().folder.name().c_str();
    const size_t middle = file.find(' ');
    const std::string quotaText = file.substr(0, middle);
    const std::string periodText = middle == file.npos ? "" : file.substr(middle + 1);
    group().both.fill(file);
    group().quota.fill(quotaText);
    group().period.fill(periodText);
    const double version1 = vn_availableCPUsCGroupsV1(dir);
    const double version2 = vn_availableCPUsCGroupsV2(dir);
    FUZZ_REQUIRE(!(version1 < 0) && !(version2 < 0));
    const auto isPlain = [](const std::string& text) {
        return !text.empty() && text.size() < 16 &&
               text.find_first_not_of("0123456789") == text.npos;
    };
    if (isPlain(quotaText) && isPlain(periodText)) {
        const double quota = static_cast<double>(atoll(quotaText.c_str()));
        const double period = static_cast<double>(atoll(periodText.c_str()));
        const double expected = quota > 0 && period > 0 ? quota / period : DBL_MAX;
        FUZZ_REQUIRE(version1 == expected && version2 == expected);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile memory;
    fuzz::Input input(data, size);
    const uint8_t choice = input.byte() % 6;
    const std::string file = input.rest();
    memory.fill(file);
    switch (choice) {
        case 0:
            checkCount(memory.name(), file);
            break;
        case 1:
            checkVirtualSize(memory.name(), file);
            break;
        case 2:
            checkResidentSet(memory.name(), file);
            break;
        case 3:
            checkMemory(file, false);
            break;
        case 4:
            checkMemory(file, true);
            break;
        default:
            checkProcessors(file);
            break;
    }
    return 0;
}
