// The parser of control-group lines, compared with a simple splitter. Neither text has a
// terminator; both end at the end of their heap blocks. The lookup of the folder gets the same line
// in a file.
#include <vncommon/discovery.h>

#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/scratch_file.h"

namespace {

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> items(1);
    for (const char c : list) {
        if (c == ',') {
            items.emplace_back();
        } else {
            items.back() += c;
        }
    }
    return items;
}

// Names of the same length are compared like C strings, up to a NUL.
bool sameName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strcmp(a.c_str(), b.c_str()) == 0;
}

int64_t pathOffset(const std::string& line, const std::string& controller) {
    const size_t id = line.find_first_not_of("0123456789");
    if (id == line.npos || line[id] != ':') {
        return -1;
    }
    const size_t end = line.find(':', id + 1);
    if (end == line.npos) {
        return -1;
    }
    for (const std::string& item : split(line.substr(id + 1, end - id - 1))) {
        if (sameName(item, controller)) {
            return static_cast<int64_t>(end + 1);
        }
    }
    return -1;
}

// The controller's folder below a root that does not exist. Null if no line matches.
std::string folder(const std::string& file, const std::string& controller) {
    for (size_t start = 0; start < file.size();) {
        const size_t end = std::min(file.find('\n', start), file.size() - 1) + 1;
        if (pathOffset(file.substr(start, end - start), controller) >= 0) {
            return "/no-such-root/" + controller;
        }
        start = end;
    }
    return "";
}

void checkFolder(const std::string& file, const std::string& controller) {
    static fuzz::MemoryFile self;
    self.fill(file);
    const fuzz::Taken found(
        vn_getCGroupProcessControllerDir("/no-such-root", self.name(), controller.c_str()));
    const std::string expected = folder(file, controller.c_str());
    FUZZ_REQUIRE(expected.empty() ? found.isNull() : found.is(expected));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const std::string controller = input.bytesUpTo(input.byte() % 16);
    const std::string line = input.rest();
    const fuzz::ExactBytes exactController(controller);
    const fuzz::ExactBytes exactLine(line);
    FUZZ_REQUIRE(vn_findProcCGroupPathOffset(exactLine.get(), line.size(), exactController.get(),
                                             controller.size()) == pathOffset(line, controller));
    checkFolder(line, controller);
    return 0;
}
