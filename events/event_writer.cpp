// Event writer, building: writers, their values, and their destruction. event_text.cpp renders.
//
// A writer owns its name, two Vectors and the values in them; a value owns its text (kinds 1 and
// 9) or its child writer (6, 7 and 8). Every value and every writer is a separate heap block. A
// text that we copied, a name included, is stored after its owner in the same block.
#include <vncommon/event_writer.h>

#include <cstdlib>
#include <cstring>
#include <iterator>

#include "events/event_values.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

bool holdsText(uint32_t kind) {
    return kind == VN_EventKind_String || kind == VN_EventKind_Unformatted;
}

bool holdsWriter(uint32_t kind) {
    return kind == VN_EventKind_Sequence || kind == VN_EventKind_Dictionary ||
           kind == VN_EventKind_Event;
}

[[maybe_unused]] bool isValid(const VN_EventWriter* writer) {
    return writer->keys != nullptr && writer->values != nullptr && writer->toString != nullptr;
}

// In builds with assertions, a writer that waits for its destruction has no operation toString. So
// a child that was added twice is recognised.
void markEnded([[maybe_unused]] VN_EventWriter* writer) {
#if defined(VN_ASSERTIONS)
    writer->toString = nullptr;
#endif
}

Vector* valuesOf(VN_EventWriter* writer) {
    VN_ASSERT(isValid(writer));
    return writer->values;
}

// Allocates a block for an owner, followed by room for a text of this length, which is already
// terminated: allocation is most of the cost of a value, and this needs one instead of two.
template <typename Owner>
Owner* allocateWithRoom(size_t length, char*& room) {
    auto* owner = static_cast<Owner*>(malloc(sizeof(Owner) + length + 1));
    room = reinterpret_cast<char*>(owner + 1);
    room[length] = '\0';
    return owner;
}

// The same with a copy of the text; null stays null.
template <typename Owner>
Owner* allocateWithText(const char* text, size_t length, char*& copy) {
    if (text == nullptr) {
        copy = nullptr;
        return static_cast<Owner*>(malloc(sizeof(Owner)));
    }
    auto* owner = allocateWithRoom<Owner>(length, copy);
    memcpy(copy, text, length);
    return owner;
}

size_t lengthOf(const char* text) {
    return text != nullptr ? strlen(text) : 0;
}

// Frees a text that is not in its owner's block, because the caller has replaced ours.
template <typename Owner>
void releaseText(const Owner* owner, void* text) {
    if (text != owner + 1) {
        free(text);
    }
}

void append(Vector* vector, VN_EventValue* value, uint32_t kind, void* payload) {
    value->payload = payload;
    value->kind = kind;
    vn_Vector_add(vector, value);
}

void append(Vector* vector, uint32_t kind, void* payload) {
    append(vector, static_cast<VN_EventValue*>(malloc(sizeof(VN_EventValue))), kind, payload);
}

void appendText(Vector* vector, uint32_t kind, const char* text) {
    char* copy;
    auto* value = allocateWithText<VN_EventValue>(text, lengthOf(text), copy);
    append(vector, value, kind, copy);
}

// Adds a payload in the form that the generic adds take.
void appendCopy(Vector* vector, uint32_t kind, void* payload) {
    if (holdsText(kind)) {
        appendText(vector, kind, static_cast<const char*>(payload));
    } else {
        append(vector, kind, payload);
    }
}

Vector* newValues() {
    return vn_Vector_ctor(nullptr, nullptr, nullptr, 0, 1);
}

constexpr VN_EventWriter operations = {
    .kind = 0,
    .name = nullptr,
    .keys = nullptr,
    .values = nullptr,
    .addInt = VN_EventWriter_addInt,
    .addString = VN_EventWriter_addString,
    .addChar = VN_EventWriter_addChar,
    .addFloat = VN_EventWriter_addFloat,
    .addDecimal = VN_EventWriter_addDecimal,
    .addBoolean = VN_EventWriter_addBoolean,
    .addRefValue = VN_EventWriter_addRefValue,
    .addValue = VN_EventWriter_addValue,
    .addDictValue = VN_EventWriter_addDictValue,
    .addAny = VN_EventWriter_addAny,
    .addOptional = VN_EventWriter_addOptional,
    .toString = VN_EventWriter_toString,
    .addUnformatted = VN_EventWriter_addUnformatted,
    .addAnyType = VN_EventWriter_addAnyType,
};

VN_EventWriter* appendWrapper(VN_EventWriter* writer, const char* name) {
    VN_EventWriter* wrapper = VN_EventWriter_ctor(VN_EventKind_Wrapper, name);
    append(valuesOf(writer), VN_EventKind_Event, wrapper);
    return wrapper;
}

// The name of an event in an `any`; null if the name from the caller is used instead. An optional's
// own name does not include the type of its value.
const char* ownTypeName(const VN_EventWriter* event) {
    constexpr char optional[] = "optional";
    if (event == nullptr || event->name == nullptr ||
        strncmp(event->name, optional, sizeof optional - 1) == 0) {
        return nullptr;
    }
    return event->name;
}

const char* typeNameInAny(uint32_t kind, const void* payload, const char* callers) {
    static constexpr const char* names[] = {"integer", "string",  "string",  "float",   "decimal",
                                            "boolean", "invalid", "invalid", "invalid", "string"};
    if (kind == VN_EventKind_Event) {
        const char* own = ownTypeName(static_cast<const VN_EventWriter*>(payload));
        return own != nullptr ? own : callers;
    }
    if (holdsWriter(kind)) {
        return callers;
    }
    return kind < std::size(names) ? names[kind] : "invalid";
}

// Frees the values of a writer. Their child writers are added to the list of writers to destroy.
// The list is linked through the name fields, because each child's name is freed first.
void releaseValues(Vector* values, VN_EventWriter*& waiting) {
    for (uint32_t i = 0; i < values->size; ++i) {
        auto* value = static_cast<VN_EventValue*>(values->data[i]);
        if (value != nullptr && holdsWriter(value->kind) && value->payload != nullptr) {
            auto* child = static_cast<VN_EventWriter*>(value->payload);
            VN_ASSERT(isValid(child));
            markEnded(child);
            releaseText(child, child->name);
            child->name = reinterpret_cast<char*>(waiting);
            waiting = child;
        } else if (value != nullptr && holdsText(value->kind)) {
            releaseText(value, value->payload);
        }
        free(value);
    }
    vn_Vector_dtor(values);
}

}  // namespace

VN_EventWriter* newWriter(uint32_t kind, const char* name, size_t length) {
    char* ownName;
    auto* writer = allocateWithText<VN_EventWriter>(name, length, ownName);
    *writer = operations;
    writer->kind = kind;
    writer->name = ownName;
    writer->keys = newValues();
    writer->values = newValues();
    VN_ASSERT(isValid(writer));
    return writer;
}

void appendValue(Vector* vector, const VN_EventValue& value) {
    VN_ASSERT(!holdsText(value.kind));
    append(vector, value.kind, value.payload);
}

char* appendRoom(Vector* vector, uint32_t kind, size_t length) {
    VN_ASSERT(holdsText(kind));
    char* room;
    auto* value = allocateWithRoom<VN_EventValue>(length, room);
    append(vector, value, kind, room);
    return room;
}

}  // namespace vncommon

using namespace vncommon;

VN_EventWriter* VN_EventWriter_ctor(uint32_t kind, const char* name) {
    return newWriter(kind, name, lengthOf(name));
}

void VN_EventWriter_dtor(VN_EventWriter* writer) {
    if (writer == nullptr) {
        return;
    }
    VN_ASSERT(isValid(writer));
    markEnded(writer);
    releaseText(writer, writer->name);
    writer->name = nullptr;
    VN_EventWriter* waiting = writer;
    while (waiting != nullptr) {
        VN_EventWriter* next = waiting;
        waiting = reinterpret_cast<VN_EventWriter*>(next->name);
        releaseValues(next->keys, waiting);
        releaseValues(next->values, waiting);
        free(next);
    }
}

void VN_EventWriter_addInt(VN_EventWriter* writer, int64_t value) {
    append(valuesOf(writer), VN_EventKind_Integer, VN_EventPayload_ofInt(value));
}

void VN_EventWriter_addString(VN_EventWriter* writer, const char* text) {
    appendText(valuesOf(writer), VN_EventKind_String, text);
}

void VN_EventWriter_addChar(VN_EventWriter* writer, int character) {
    append(valuesOf(writer), VN_EventKind_Character,
           VN_EventPayload_ofInt(static_cast<unsigned char>(character)));
}

void VN_EventWriter_addFloat(VN_EventWriter* writer, double value) {
    append(valuesOf(writer), VN_EventKind_Float, VN_EventPayload_ofFloat(value));
}

void VN_EventWriter_addDecimal(VN_EventWriter* writer, uint64_t value) {
    append(valuesOf(writer), VN_EventKind_Decimal,
           VN_EventPayload_ofInt(static_cast<int64_t>(value)));
}

void VN_EventWriter_addBoolean(VN_EventWriter* writer, int value) {
    append(valuesOf(writer), VN_EventKind_Boolean,
           VN_EventPayload_ofInt(static_cast<unsigned char>(value)));
}

void VN_EventWriter_addUnformatted(VN_EventWriter* writer, const char* text) {
    appendText(valuesOf(writer), VN_EventKind_Unformatted, text);
}

void VN_EventWriter_addAnyType(VN_EventWriter* writer, const char* text) {
    VN_EventWriter_addUnformatted(writer, text);
}

void VN_EventWriter_addRefValue(VN_EventWriter* writer, VN_EventWriter* child) {
    if (child != nullptr) {
        VN_ASSERT(child != writer && isValid(child));
        append(valuesOf(writer), child->kind, child);
    }
}

void VN_EventWriter_addValue(VN_EventWriter* writer, uint32_t kind, void* payload) {
    appendCopy(valuesOf(writer), kind, payload);
}

void VN_EventWriter_addDictValue(VN_EventWriter* writer, uint32_t keyKind, void* keyPayload,
                                 uint32_t valueKind, void* valuePayload) {
    VN_ASSERT(isValid(writer));
    appendCopy(writer->keys, keyKind, keyPayload);
    appendCopy(writer->values, valueKind, valuePayload);
}

void VN_EventWriter_addAny(VN_EventWriter* writer, uint32_t kind, void* payload,
                           const char* typeName) {
    VN_EventWriter* wrapper = appendWrapper(writer, "any");
    if (kind != VN_EventKind_Wrapper) {
        VN_EventWriter_addUnformatted(wrapper, typeNameInAny(kind, payload, typeName));
        appendCopy(valuesOf(wrapper), kind, payload);
    }
}

void VN_EventWriter_addOptional(VN_EventWriter* writer, uint32_t kind, void* payload) {
    VN_EventWriter* wrapper = appendWrapper(writer, "optional");
    if (kind != VN_EventKind_Wrapper) {
        appendCopy(valuesOf(wrapper), kind, payload);
    }
}

bool VN_EventWriterIsReferenceType(const VN_EventValue* value) {
    return holdsWriter(value->kind);
}
