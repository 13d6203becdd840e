// Compares the results of a fixed list of calls with the committed manifest: the same bits must
// come out of every build, whatever the compiler, its flags, the processor and the newlib release.
//
//     bits_test MANIFEST       compares; status 1 when a group differs
//     bits_test --print        prints a manifest
//     bits_test --dump GROUP   prints the group's calls: arguments, a tab, the result
#include <cinttypes>
#include <fstream>
#include <string>

#include "groups.h"

namespace {

std::vector<Group> allGroups() {
    std::vector<Group> all;
    for (const auto& groups :
         {mathematicsGroups(), numberGroups(), stringGroups(), unicodeGroups(), eventGroups()}) {
        all.insert(all.end(), groups.begin(), groups.end());
    }
    return all;
}

std::string lineOf(const Group& group, FILE* dump) {
    Records records(dump);
    Random random(fnv(group.name));
    group.run(records, random);
    char line[100];
    snprintf(line, sizeof line, "%s %d %016" PRIx64, group.name.c_str(), records.count(),
             records.hash());
    return line;
}

int print() {
    for (const Group& group : allGroups()) {
        puts(lineOf(group, nullptr).c_str());
    }
    return 0;
}

int dump(const std::string& name) {
    for (const Group& group : allGroups()) {
        if (group.name == name) {
            lineOf(group, stdout);
            return 0;
        }
    }
    fprintf(stderr, "bits_test: there is no group %s\n", name.c_str());
    return 2;
}

int compare(const char* manifest) {
    std::ifstream file(manifest);
    std::vector<std::string> wanted;
    for (std::string line; std::getline(file, line);) {
        wanted.push_back(line);
    }
    const std::vector<Group> groups = allGroups();
    size_t wrong = wanted.size() == groups.size() ? 0 : 1;
    for (size_t i = 0; i < groups.size(); ++i) {
        const std::string line = lineOf(groups[i], nullptr);
        const std::string committed = i < wanted.size() ? wanted[i] : "nothing";
        if (line != committed) {
            printf("%s, but the manifest has %s\n", line.c_str(), committed.c_str());
            ++wrong;
        }
    }
    printf("%zu groups, %zu in the manifest, %zu wrong\n", groups.size(), wanted.size(), wrong);
    return wrong == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (argc == 2 && first == "--print") {
        return print();
    }
    if (argc == 3 && first == "--dump") {
        return dump(argv[2]);
    }
    if (argc == 2) {
        return compare(argv[1]);
    }
    fprintf(stderr, "Usage: bits_test MANIFEST | --print | --dump GROUP\n");
    return 2;
}
