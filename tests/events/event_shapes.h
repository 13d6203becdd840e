// Reads event text and describes the tree, for the tests of the event reader.
#ifndef VN_TESTS_EVENTS_EVENT_SHAPES_H
#define VN_TESTS_EVENTS_EVENT_SHAPES_H

#include <gtest/gtest.h>
#include <vncommon/event_reader.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace events {

struct Destroy {
    void operator()(VN_EventWriter* writer) const { VN_EventWriter_dtor(writer); }
};
using Writer = std::unique_ptr<VN_EventWriter, Destroy>;

inline VN_EventReader newReader() {
    VN_EventReader reader;
    VN_EventReader_init(&reader);
    return reader;
}

// Reads from a heap block that ends with the text, so that AddressSanitizer reports every read past
// the end.
inline Writer read(const std::string& text, VN_EventReader& reader) {
    const std::unique_ptr<char[]> copy(new char[text.size()]);
    memcpy(copy.get(), text.data(), text.size());
    Writer writer(VN_EventReader_read(&reader, copy.get(), text.size()));
    EXPECT_EQ(writer == nullptr, reader.error != nullptr);
    return writer;
}

inline Writer read(const std::string& text) {
    VN_EventReader reader = newReader();
    return read(text, reader);
}

// Renders with the interface that also shows a zero byte.
inline std::string rendered(const Writer& writer) {
    const VN_EventValue value = {writer.get(), writer->kind};
    std::string text(VN_EventWriter_strlen(&value, value.kind) + 1, '\0');
    int length = 0;
    VN_EventWriter_buildString(&value, value.kind, text.data(), &length,
                               static_cast<int>(text.size() - 1));
    text.resize(static_cast<size_t>(length));
    return text;
}

// What a tree holds: a letter for each kind, with the payload.

inline std::string hexadecimal(char letter, uint64_t bits) {
    char text[32];
    snprintf(text, sizeof text, "%c%lx", letter, static_cast<unsigned long>(bits));
    return text;
}

inline std::string shape(const VN_EventWriter* writer);

inline std::string shape(const VN_EventValue& value) {
    const auto bits = reinterpret_cast<uint64_t>(value.payload);
    const auto* text = static_cast<const char*>(value.payload);
    switch (value.kind) {
        case VN_EventKind_Integer:
            return "i" + std::to_string(static_cast<int64_t>(bits));
        case VN_EventKind_String:
            return std::string("s<") + text + ">";
        case VN_EventKind_Character:
            return hexadecimal('c', bits);
        case VN_EventKind_Float:
            return hexadecimal('f', bits);
        case VN_EventKind_Decimal:
            return hexadecimal('d', bits);
        case VN_EventKind_Boolean:
            return bits != 0 ? "yes" : "no";
        case VN_EventKind_Unformatted:
            return std::string("u<") + text + ">";
        default:
            return shape(static_cast<const VN_EventWriter*>(value.payload));
    }
}

inline std::string shape(const Vector& values, uint32_t index) {
    return shape(*static_cast<const VN_EventValue*>(vn_Vector_get(&values, index)));
}

inline std::string shape(const VN_EventWriter* writer) {
    const Vector& keys = *writer->keys;
    const Vector& values = *writer->values;
    const bool isDictionary = writer->kind == VN_EventKind_Dictionary;
    EXPECT_EQ(keys.size, isDictionary ? values.size : 0);
    EXPECT_EQ(writer->name != nullptr, writer->kind == VN_EventKind_Event);
    std::string text = std::to_string(writer->kind);
    text += writer->name != nullptr ? writer->name : "";
    text += '(';
    for (uint32_t i = 0; i < values.size; ++i) {
        text += i > 0 ? " " : "";
        text += isDictionary ? shape(keys, i) + "=" : "";
        text += shape(values, i);
    }
    return text + ')';
}

// The shape of what is read, or the error.
inline std::string shapeOf(const std::string& text) {
    VN_EventReader reader = newReader();
    const Writer writer = read(text, reader);
    if (writer == nullptr) {
        return std::string(reader.error) + " at " + std::to_string(reader.position);
    }
    EXPECT_EQ(reader.position, text.size());
    EXPECT_EQ(rendered(writer), text);
    return shape(writer.get());
}

}  // namespace events

#endif
