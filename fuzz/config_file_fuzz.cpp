// The configuration file, compared with a model of its format. An input is one byte and the file.
// For some values of the byte the file gets a long comment at its start, so that it crosses the end
// of the reader's first 64 KiB chunk.
#include <vncommon/config_file.h>

#include <map>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/scratch_file.h"

namespace {

using Categories = std::map<std::string, std::vector<std::string>>;

std::string nameOf(std::string header) {
    header.resize(std::min(header.size(), header.find(']')));
    header.resize(header.find_last_not_of(" \t\n\v\f\r") + 1);
    return header.substr(1);
}

std::string entryOf(const std::string& line) {
    std::string entry;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '\\') {
            entry += line.substr(++i, 1);
        } else if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c != '\n' || quote != '\0') {
            entry += c;
        }
    }
    return entry;
}

Categories parse(const std::string& file) {
    Categories categories = {{"", {}}};
    std::string current;
    for (size_t start = 0; start < file.size();) {
        const size_t lineFeed = std::min(file.find('\n', start), file.size() - 1);
        const std::string line = file.substr(start, lineFeed + 1 - start).c_str();  // up to a NUL
        start = lineFeed + 1;
        if (line[0] == '#') {
            continue;
        }
        if (line[0] == '[') {
            current = nameOf(line);
            categories[current];
        } else if (const std::string entry = entryOf(line); !entry.empty()) {
            categories[current].push_back(entry);
        }
    }
    return categories;
}

// Returns the entries that the cursor visits; releases the handle.
std::vector<std::string> walk(VN_ConfigFileCategory* category) {
    std::vector<std::string> entries;
    for (const char* entry = VN_ConfigFileCategory_GetFirstEntry(category); entry != nullptr;
         entry = VN_ConfigFileCategory_GetNextEntry(category)) {
        entries.push_back(entry);
    }
    FUZZ_REQUIRE(VN_ConfigFileCategory_GetEntryCount(category) == entries.size());
    VN_ConfigFileCategory_Release(category);
    return entries;
}

void compare(VN_ConfigFile* config, const Categories& expected) {
    FUZZ_REQUIRE(VN_ConfigFile_GetCategoryCount(config) == expected.size());
    for (const auto& [name, entries] : expected) {
        VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(config, name.c_str());
        FUZZ_REQUIRE(category != nullptr && walk(category) == entries);
    }
    const std::string absent = expected.rbegin()->first + "?";  // after the last name
    FUZZ_REQUIRE(VN_ConfigFile_GetCategory(config, absent.c_str()) == nullptr);
    std::multimap<std::vector<std::string>, bool> left;  // categories not met by the walk
    for (const auto& [name, entries] : expected) {
        left.emplace(entries, true);
    }
    for (VN_ConfigFileCategory* category = VN_ConfigFile_GetFirstCategory(config);
         category != nullptr; category = VN_ConfigFile_GetNextCategory(config)) {
        const auto met = left.find(walk(category));
        FUZZ_REQUIRE(met != left.end());
        left.erase(met);
    }
    FUZZ_REQUIRE(left.empty());
    vn_HashMapIterator_dtor(config->iterator);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    fuzz::Input input(data, size);
    const bool isLong = input.byte() % 16 == 1;
    std::string text = input.rest();
    if (isLong) {
        std::string comment(65536 - 1 - text.size() / 2 % 65000, '#');
        text.insert(0, comment += '\n');
    }
    file.fill(text);
    const char* name = VN_ConfigFile_Load(file.name(), nullptr);
    FUZZ_REQUIRE(name != nullptr && strcmp(name, file.name()) == 0);
    compare(VN_ConfigFile_Get(), parse(text));
    VN_ConfigFile_Unload();
    FUZZ_REQUIRE(!VN_ConfigFile_IsLoaded());
    return 0;
}
