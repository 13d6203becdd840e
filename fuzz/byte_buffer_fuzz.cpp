// Sequences of byte buffer operations, compared with a std::string and a computed capacity.
#include <vncommon/buffers.h>

#include <algorithm>

#include "fuzz/fuzz.h"

namespace {

constexpr size_t largestContents = 100000;

struct Model {
    std::string bytes;
    uint64_t capacity;

    void grow(uint64_t length) {
        const uint64_t need = bytes.size() + length;
        if (need > capacity) {
            capacity = need < 5000 ? need * 2 : need + need / 2;
        }
    }
    void truncate(uint64_t size) {
        if (size < bytes.size()) {
            bytes.resize(size);
            if (size + 20000 < capacity && size * 2 < capacity) {
                capacity = size * 2;
            }
        }
    }
};

// Bytes of the input or, to force growth, generated ones.
std::string someBytes(fuzz::Input& input) {
    const uint8_t choice = input.byte();
    return choice < 16 ? std::string(input.below(20000), static_cast<char>(choice)) : input.text();
}

void append(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    const std::string added = someBytes(input);
    const fuzz::ExactBytes exact(added);
    model.grow(added.size());
    const uint8_t* start = vn_bytebufAppendBytes(&buffer, exact.get(), added.size());
    FUZZ_REQUIRE(start == buffer.data + model.bytes.size());
    model.bytes += added;
}

void appendText(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    const bool isNull = input.byte() == 0;
    const std::string added = isNull ? "null" : input.terminatedText();
    const fuzz::ExactText exact(added);
    model.grow(added.size());
    const uint8_t* start = vn_bytebufAppendString(&buffer, isNull ? nullptr : exact.get());
    FUZZ_REQUIRE(start == buffer.data + model.bytes.size());
    model.bytes += added;
}

void appendByte(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    const int byte = input.byte() - 128;
    model.grow(1);
    FUZZ_REQUIRE(vn_bytebufAppendByte(&buffer, byte) == model.bytes.size());
    model.bytes += static_cast<char>(byte);
}

void insert(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    const std::string added = someBytes(input);
    const fuzz::ExactBytes exact(added);
    model.grow(added.size());
    vn_bytebufInsertBytesAtStart(&buffer, exact.get(), added.size());
    model.bytes.insert(0, added);
}

// A source inside the buffer's own block.
void appendOwn(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    const size_t offset = input.below(static_cast<uint32_t>(model.bytes.size() + 1));
    const std::string added = model.bytes.substr(offset, input.byte());
    model.grow(added.size());
    vn_bytebufAppendBytes(&buffer, buffer.data + offset, added.size());
    model.bytes += added;
}

void truncate(uint64_t size, CByteBuffer& buffer, Model& model) {
    vn_bytebufTruncate(&buffer, size);
    model.truncate(size);
}

void step(fuzz::Input& input, CByteBuffer& buffer, Model& model) {
    switch (input.byte() % 6) {
        case 0:
            return append(input, buffer, model);
        case 1:
            return appendText(input, buffer, model);
        case 2:
            return appendByte(input, buffer, model);
        case 3:
            return insert(input, buffer, model);
        case 4:
            return appendOwn(input, buffer, model);
        default:
            return truncate(input.below(32768), buffer, model);
    }
}

void check(const CByteBuffer& buffer, const Model& model) {
    FUZZ_REQUIRE(vn_bytebufGetSize(&buffer) == model.bytes.size());
    FUZZ_REQUIRE(buffer.capacity == model.capacity);
    FUZZ_REQUIRE(vn_bytebufGetBytes(&buffer) == buffer.data);
    FUZZ_REQUIRE(model.bytes.empty() ||
                 memcmp(buffer.data, model.bytes.data(), model.bytes.size()) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const uint64_t capacity = input.byte();
    CByteBuffer buffer;
    FUZZ_REQUIRE(vn_bytebufInit(&buffer, capacity) == buffer.data);
    Model model{"", capacity == 0 ? 20 : capacity};
    for (int steps = 0; steps < 100 && !input.isEmpty(); ++steps) {
        step(input, buffer, model);
        check(buffer, model);
        if (model.bytes.size() > largestContents) {
            truncate(0, buffer, model);
        }
    }
    vn_bytebufDestroy(&buffer, 1);
    return 0;
}
