#include "package_event.h"

#include <cstdlib>

#include "control_characters.h"

namespace {

void* payload(const char* text) {
    return const_cast<char*>(text);
}

VN_EventWriter* dependencies(const Record& record) {
    VN_EventWriter* sequence = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    for (const char* name : record.dependencies) {
        VN_EventWriter_addString(sequence, name);
    }
    return sequence;
}

VN_EventWriter* otherFields(const Record& record) {
    VN_EventWriter* dictionary = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
    for (const auto& [key, value] : record.others) {
        VN_EventWriter_addDictValue(dictionary, VN_EventKind_String, payload(key),
                                    VN_EventKind_String, payload(value));
    }
    return dictionary;
}

}  // namespace

VN_EventWriter* buildPackageEvent(const Record& record) {
    VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "package");
    VN_EventWriter_addString(event, record.name);
    VN_EventWriter_addString(event, record.version);
    VN_EventWriter_addInt(event, record.size);
    VN_EventWriter_addFloat(event, record.sizeMib);
    VN_EventWriter_addBoolean(event, record.essential ? 1 : 0);
    VN_EventWriter_addRefValue(event, dependencies(record));
    VN_EventWriter_addRefValue(event, otherFields(record));
    if (record.homepage != nullptr) {
        VN_EventWriter_addOptional(event, VN_EventKind_String, payload(record.homepage));
    } else {
        VN_EventWriter_addOptional(event, VN_EventKind_Wrapper, nullptr);
    }
    VN_EventWriter_addString(event, record.description);
    return event;
}

std::string renderOnOneLine(const VN_EventWriter* event) {
    char* text = VN_EventWriter_toString(event);
    std::string line = withoutControls(text);
    free(text);
    return line;
}
