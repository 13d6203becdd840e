// The configuration file.
#include <cstring>

#include <vncommon/vncommon.h>

#include "faults/scenarios.h"

namespace faults {

namespace {

std::string entriesOf(VN_ConfigFile* config, const char* category) {
    std::string entries;
    VN_ConfigFileCategory* handle =
        inject([&] { return VN_ConfigFile_GetCategory(config, category); });
    if (handle == nullptr) {
        return "(none)";
    }
    const char* entry = VN_ConfigFileCategory_GetFirstEntry(handle);
    for (; entry != nullptr; entry = VN_ConfigFileCategory_GetNextEntry(handle)) {
        entries += std::string(entry, strnlen(entry, 5)) + ";";
    }
    VN_ConfigFileCategory_Release(handle);
    return entries;
}

// The last line is longer than a reading buffer.
std::string configuration() {
    return "before\n[one]\nfirst\n'second'\n[two]\n" + std::string(100'000, 'x') + "\n";
}

void loadConfiguration() {
    const std::string name = writeFile("chosen.conf", configuration());
    const std::string other = writeFile(".vantrel.conf", "[other]\nentry\n");
    const char* loaded = inject([&] { return VN_ConfigFile_Load(name.c_str(), nullptr); });
    const bool chosen = loaded != nullptr && name == loaded;
    if (loaded == nullptr) {
        CHECK(failed("fopen") || failed("fread") || failed("malloc"));
        CHECK(VN_ConfigFile_IsLoaded() == !failed("fopen"));
    } else {
        CHECK(chosen || (failed() && equal(loaded, ".vantrel.conf")));
    }
    if (VN_ConfigFile_Get() != nullptr) {
        const std::string entries = entriesOf(VN_ConfigFile_Get(), "one");
        CHECK(entries == (chosen ? "first;secon;" : "(none)") || (everFailed() && !chosen));
        VN_ConfigFile* config = VN_ConfigFile_Get();
        VN_ConfigFileCategory* handle =
            inject([&] { return VN_ConfigFile_GetFirstCategory(config); });
        while (handle != nullptr) {
            VN_ConfigFileCategory_Release(handle);
            handle = inject([&] { return VN_ConfigFile_GetNextCategory(config); });
        }
        vn_HashMapIterator_dtor(config->iterator);
    }
    VN_ConfigFile_Unload();
    CHECK(!VN_ConfigFile_IsLoaded());
    // The files are read only.
    CHECK(readFile(name) == configuration() && readFile(other) == "[other]\nentry\n");
}

}  // namespace

std::vector<Scenario> configurationScenarios() {
    return {{"configuration",
             loadConfiguration,
             Memory::checked,
             {"fopen", "fread", "fclose", "malloc", "realloc", "strdup"}}};
}

}  // namespace faults
