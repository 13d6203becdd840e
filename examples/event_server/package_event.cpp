#include "package_event.h"

#include <cstdlib>

#include <vncommon/event_writer.h>
#include <vncommon/strings.h>

namespace {

enum Kind : uint32_t { String = 1, Sequence = 6, Dictionary = 7, Event = 8, Nothing = 10 };

const std::string& valueOf(const PackageRecord& record, const char* key) {
    static const std::string none;
    const std::string* value = record.find(key);
    return value != nullptr ? *value : none;
}

void* payload(const std::string& text) {
    return const_cast<char*>(text.c_str());
}

// The package names of a dependency list: "a (>= 1), b | c" gives a, b | c.
void addDependencies(VN_EventWriter* sequence, const std::string& list) {
    size_t begin = 0;
    while (begin < list.size()) {
        size_t end = list.find(',', begin);
        end = end == std::string::npos ? list.size() : end;
        std::string name = list.substr(begin, end - begin);
        const size_t version = name.find('(');
        name = version == std::string::npos ? name : name.substr(0, version);
        vn_rtrim(name.data());
        const size_t start = name.find_first_not_of(' ');
        if (start != std::string::npos) {
            VN_EventWriter_addString(sequence, name.c_str() + start);
        }
        begin = end + 1;
    }
}

bool hasItsOwnField(const std::string& key) {
    for (const char* known : {"Package", "Version", "Installed-Size", "Essential", "Depends",
                              "Homepage", "Description"}) {
        if (key == known) {
            return true;
        }
    }
    return false;
}

void addOtherFields(VN_EventWriter* dictionary, const PackageRecord& record) {
    for (const auto& [key, value] : record.fields) {
        if (!hasItsOwnField(key)) {
            VN_EventWriter_addDictValue(dictionary, String, payload(key), String, payload(value));
        }
    }
}

bool parseSize(const PackageRecord& record, int64_t& size, std::string& error) {
    const std::string& text = valueOf(record, "Installed-Size");
    char* end = nullptr;
    int32_t code = 0;
    size = text.empty() ? 0 : vn_char8ToInt64(text.c_str(), &end, &code);
    if (!text.empty() && (code != 0 || *end != '\0')) {
        error = "Installed-Size is not a number: " + text;
        return false;
    }
    return true;
}

}  // namespace

bool renderPackageEvent(const PackageRecord& record, std::string& text, std::string& error) {
    int64_t size = 0;
    if (record.find("Package") == nullptr) {
        error = "Package is missing";
        return false;
    }
    if (!parseSize(record, size, error)) {
        return false;
    }
    VN_EventWriter* event = VN_EventWriter_ctor(Event, "package");
    VN_EventWriter_addString(event, valueOf(record, "Package").c_str());
    VN_EventWriter_addString(event, valueOf(record, "Version").c_str());
    VN_EventWriter_addInt(event, size);
    VN_EventWriter_addFloat(event, static_cast<double>(size) / 1024.0);
    VN_EventWriter_addBoolean(event, vn_parseToBool(valueOf(record, "Essential").c_str()));

    VN_EventWriter* dependencies = VN_EventWriter_ctor(Sequence, nullptr);
    addDependencies(dependencies, valueOf(record, "Depends"));
    VN_EventWriter_addRefValue(event, dependencies);

    VN_EventWriter* others = VN_EventWriter_ctor(Dictionary, nullptr);
    addOtherFields(others, record);
    VN_EventWriter_addRefValue(event, others);

    const std::string* homepage = record.find("Homepage");
    if (homepage != nullptr) {
        VN_EventWriter_addOptional(event, String, payload(*homepage));
    } else {
        VN_EventWriter_addOptional(event, Nothing, nullptr);
    }
    VN_EventWriter_addString(event, valueOf(record, "Description").c_str());

    char* rendered = VN_EventWriter_toString(event);
    text = rendered;
    free(rendered);
    VN_EventWriter_dtor(event);
    return true;
}
