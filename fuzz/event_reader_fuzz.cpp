// VN_EventReader against its promise: what is accepted renders as the same bytes, and reads again
// to a tree of the same kinds. The first three bytes select the limits.
#include <vncommon/event_reader.h>

#include <string>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

std::string rendered(VN_EventWriter* writer) {
    const VN_EventValue value = {writer, writer->kind};
    const uint32_t length = VN_EventWriter_strlen(&value, value.kind);
    std::string text(length + 1, '\0');
    int position = 0;
    VN_EventWriter_buildString(&value, value.kind, text.data(), &position,
                               static_cast<int>(length));
    FUZZ_REQUIRE(static_cast<uint32_t>(position) == length);
    text.resize(length);
    return text;
}

void collect(const Vector& values, std::vector<const VN_EventWriter*>& children,
             std::string& kinds) {
    for (uint32_t i = 0; i < values.size; ++i) {
        const auto& value = *static_cast<const VN_EventValue*>(values.data[i]);
        kinds += static_cast<char>('0' + value.kind);
        if (VN_EventWriterIsReferenceType(&value)) {
            children.push_back(static_cast<const VN_EventWriter*>(value.payload));
        }
    }
}

// The kinds of all values, writer after writer.
std::string kindsOf(const VN_EventWriter* outermost) {
    std::vector<const VN_EventWriter*> waiting = {outermost};
    std::string kinds;
    while (!waiting.empty()) {
        const VN_EventWriter* writer = waiting.back();
        waiting.pop_back();
        kinds += '(';
        collect(*writer->keys, waiting, kinds);
        collect(*writer->values, waiting, kinds);
    }
    return kinds;
}

void checkTree(VN_EventReader& reader, VN_EventWriter* writer, const std::string& text) {
    FUZZ_REQUIRE(reader.error == nullptr && reader.position == text.size());
    const std::string again = rendered(writer);
    FUZZ_REQUIRE(again == text);
    VN_EventWriter* second = VN_EventReader_read(&reader, again.data(), again.size());
    FUZZ_REQUIRE(second != nullptr);
    FUZZ_REQUIRE(kindsOf(second) == kindsOf(writer));
    VN_EventWriter_dtor(second);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    VN_EventReader reader;
    VN_EventReader_init(&reader);
    reader.maxDepth = input.byte();
    reader.maxSize = input.below(4096);
    const std::string text = input.rest();
    const fuzz::ExactBytes exact(text);
    VN_EventWriter* writer = VN_EventReader_read(&reader, exact.get(), text.size());
    if (writer != nullptr) {
        checkTree(reader, writer, text);
    } else {
        FUZZ_REQUIRE(reader.error != nullptr && reader.position <= text.size());
    }
    VN_EventWriter_dtor(writer);
    return 0;
}
