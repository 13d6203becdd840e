// The text of events.
#include <vncommon/event_writer.h>
#include <vncommon/failure.h>

#include "values.h"

namespace {

std::string randomText(Random& random) {
    std::string text(random.below(12), ' ');
    for (char& c : text) {
        constexpr char escaped[] = {'"', '\\', '\t', '\n', '\r', ','};
        c = random.below(8) == 0 ? escaped[random.below(std::size(escaped))]
                                 : static_cast<char>(random.between(32, 126));
    }
    return text;
}

// Adds one value that is not a child; returns its description.
std::string addPlain(VN_EventWriter* writer, Random& random) {
    const std::string text = randomText(random);
    const uint64_t bits = random.shorter();
    const double x = randomDouble(random);
    switch (random.below(7)) {
        case 0:
            VN_EventWriter_addInt(writer, static_cast<int64_t>(bits));
            return "i" + std::to_string(static_cast<int64_t>(bits));
        case 1:
            VN_EventWriter_addString(writer, text.c_str());
            return "s" + hexOfBytes(text);
        case 2:
            VN_EventWriter_addChar(writer, static_cast<int>(1 + bits % 255));
            return "c" + hex(1 + bits % 255, 2);
        case 3:
            VN_EventWriter_addFloat(writer, x);
            return "f" + hex(toBits(x));
        case 4:
            VN_EventWriter_addDecimal(writer, bits);
            return "d" + hex(bits);
        case 5:
            VN_EventWriter_addBoolean(writer, static_cast<int>(bits & 0x3ffU));
            return "b" + std::to_string(bits & 0x3ffU);
        default:
            VN_EventWriter_addUnformatted(writer, text.c_str());
            return "u" + hexOfBytes(text);
    }
}

// Adds a child of the kind; returns its description.
std::string addSequence(VN_EventWriter* writer, Random& random) {
    VN_EventWriter* child = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    std::string description = "[";
    for (uint64_t left = random.below(4); left > 0; --left) {
        description += " " + addPlain(child, random);
    }
    VN_EventWriter_addRefValue(writer, child);
    return description + " ]";
}

std::string addDictionary(VN_EventWriter* writer, Random& random) {
    VN_EventWriter* child = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
    std::string description = "{";
    for (uint64_t left = random.below(4); left > 0; --left) {
        const auto key = static_cast<int64_t>(random.next());
        const double x = randomDouble(random);
        VN_EventWriter_addDictValue(child, VN_EventKind_Integer, VN_EventPayload_ofInt(key),
                                    VN_EventKind_Float, VN_EventPayload_ofFloat(x));
        description += " i" + std::to_string(key) + " f" + hex(toBits(x));
    }
    VN_EventWriter_addRefValue(writer, child);
    return description + " }";
}

std::string addWrapper(VN_EventWriter* writer, Random& random) {
    const auto value = static_cast<int64_t>(random.next());
    if (random.below(2) == 0) {
        VN_EventWriter_addAny(writer, VN_EventKind_Integer, VN_EventPayload_ofInt(value), nullptr);
        return "any" + std::to_string(value);
    }
    VN_EventWriter_addOptional(writer, VN_EventKind_Integer, VN_EventPayload_ofInt(value));
    return "optional" + std::to_string(value);
}

std::string addValue(VN_EventWriter* writer, Random& random) {
    switch (random.below(12)) {
        case 0:
            return addSequence(writer, random);
        case 1:
            return addDictionary(writer, random);
        case 2:
            return addWrapper(writer, random);
        default:
            return addPlain(writer, random);
    }
}

void events(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        VN_EventWriter* event = VN_EventWriter_ctor(VN_EventKind_Event, "Tick");
        std::string description;
        for (uint64_t left = random.below(6); left > 0; --left) {
            description += (description.empty() ? "" : " ") + addValue(event, random);
        }
        char* text = VN_EventWriter_toString(event);
        records.add(description, hexOfBytes(text));
        vn_free(text);
        VN_EventWriter_dtor(event);
    }
}

}  // namespace

std::vector<Group> eventGroups() {
    return {{"event_text", events}};
}
