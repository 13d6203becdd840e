// Sequences of string buffer operations, compared with a std::string and a computed capacity. An
// input is an initial capacity and the operations with their arguments.
#include <vncommon/buffers.h>

#include <algorithm>
#include <cstdarg>

#include "fuzz/fuzz.h"
#include "fuzz/scratch_file.h"

namespace {

constexpr uint64_t formatLimit = 10000;
constexpr size_t largestText = 100000;  // above it the buffer is truncated, to keep runs short

// The expected contents. Bytes after the first NUL are lost when the block is replaced.
struct Model {
    std::string text;
    uint64_t capacity = 0;
    uint64_t size = 0;
    // After an over-long vn_strbufAppendVA the size counts bytes that were never written. Until the
    // block is replaced, only the text up to the first NUL is known.
    bool hasGap = false;

    void grow(uint64_t length) {
        const uint64_t need = size + length;
        if (need >= capacity) {
            replaceBlock(need < 5000 ? need * 2 : need + need / 2);
        }
    }
    void append(const std::string& added) {
        text += added;
        size += added.size();
    }
    void skip(uint64_t length) {
        size += length;
        text.resize(size);
        hasGap = true;
    }
    void truncate(uint64_t newSize) {
        if (newSize >= size) {
            return;
        }
        size = newSize;
        text.resize(newSize);
        if (newSize + 20000 < capacity && newSize * 2 < capacity) {
            replaceBlock(std::max<uint64_t>(newSize * 2, 20));
        }
    }
    std::string terminated() const { return text.c_str(); }

  private:
    void replaceBlock(uint64_t newCapacity) {
        capacity = newCapacity;
        hasGap = false;
        text = terminated();
        text.resize(size);
    }
};

std::string escaped(const std::string& text, bool twice) {
    std::string result;
    for (const char c : text) {
        const std::string special = c == '\n'           ? "\\n"
                                    : c == '\r'         ? "\\r"
                                    : c == '"'          ? "\\\""
                                    : c == '\\'         ? (twice ? "\\\\\\\\" : "\\\\")
                                    : c == ';' && twice ? "\\\\;"
                                                        : "";
        result += special.empty() ? std::string(1, c) : special;
    }
    return result;
}

[[gnu::format(printf, 2, 3)]] void appendVA(CStringBuffer* buffer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vn_strbufAppendVA(buffer, format, arguments);
    va_end(arguments);
}

class Run {
  public:
    explicit Run(fuzz::Input& bytes) : input(bytes) {
        const uint64_t capacity = input.byte();
        char* block = vn_strbufInit(&buffer, capacity);
        FUZZ_REQUIRE(block == buffer.data);
        model.capacity = capacity == 0 ? 20 : capacity;
    }
    ~Run() { vn_strbufDestroy(&buffer, 1); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void step() {
        switch (input.byte() % 12) {
            case 0:
                return appendText();
            case 1:
                return appendFixed();
            case 2:
                return appendCharacter();
            case 3:
                return appendFormatted();
            case 4:
                return appendLimited();
            case 5:
                return appendOverlong();
            case 6:
                return appendOwnText();
            case 7:
                return appendEscaped(false);
            case 8:
                return appendEscaped(true);
            case 9:
                return appendFile();
            case 10:
                return appendMuch();
            default:
                return truncate(input.below(32768));
        }
    }

    void check() {
        FUZZ_REQUIRE(vn_strbufGetSize(&buffer) == model.size);
        FUZZ_REQUIRE(buffer.capacity == model.capacity);
        FUZZ_REQUIRE(vn_strbufGetString(&buffer) == buffer.data);
        FUZZ_REQUIRE(model.terminated() == buffer.data);
        if (!model.hasGap) {
            FUZZ_REQUIRE(memcmp(buffer.data, model.text.c_str(), model.size + 1) == 0);
        }
        if (model.size > largestText) {
            truncate(100);
        }
    }

  private:
    void appendText() {
        const bool isNull = input.byte() == 0;
        const std::string text = isNull ? "null" : input.terminatedText();
        const fuzz::ExactText exact(text);
        model.grow(text.size());
        const char* start = vn_strbufAppendString(&buffer, isNull ? nullptr : exact.get());
        FUZZ_REQUIRE(start == buffer.data + model.size);
        model.append(text);
    }

    void appendFixed() {
        const uint64_t length = input.byte();
        std::string text = input.terminatedText();
        const fuzz::ExactText exact(text);
        text.resize(length);
        model.grow(length);
        FUZZ_REQUIRE(vn_strbufAppendStringN(&buffer, exact.get(), length) == buffer.data);
        model.append(text);
    }

    void appendCharacter() {
        const int character = input.byte() - 128;
        model.grow(1);
        vn_strbufAppendChar(&buffer, character);
        model.append({static_cast<char>(character)});
    }

    void appendFormatted() {
        const std::string text = input.terminatedText();
        const auto number = static_cast<int>(input.byte());
        model.grow(text.size() + std::to_string(number).size());
        vn_strbufAppendFormat(&buffer, "%s%d", text.c_str(), number);
        model.append(text + std::to_string(number));
    }

    // Compat: an empty result still adds its whole limit to the size; callers rely on it.
    void appendLimited() {
        const std::string text = input.terminatedText();
        model.grow(formatLimit);
        appendVA(&buffer, "%s", text.c_str());
        model.append(text.empty() ? std::string(formatLimit, '\0') : text);
        if (text.empty() && model.text.size() > formatLimit) {
            model.text[formatLimit] = '\0';
        }
    }

    // A result above the limit adds its full length to the size, but the buffer gets only a part.
    void appendOverlong() {
        const uint64_t length = formatLimit + input.byte();
        model.grow(formatLimit);
        appendVA(&buffer, "%s", std::string(length, 'x').c_str());
        model.append(std::string(formatLimit - 1, 'x'));
        model.skip(length - (formatLimit - 1));
    }

    // A source inside the buffer's own block, or the buffer itself.
    void appendOwnText() {
        const std::string own = model.terminated();
        const size_t offset = input.below(static_cast<uint32_t>(own.size() + 1));
        const bool whole = offset == 0;
        model.grow(own.size() - offset);
        const char* start = whole ? vn_strbufAppendBuf(&buffer, &buffer)
                                  : vn_strbufAppendString(&buffer, buffer.data + offset);
        FUZZ_REQUIRE(start == buffer.data + model.size);
        model.append(own.substr(offset));
    }

    void appendEscaped(bool twice) {
        const std::string text = input.terminatedText();
        const fuzz::ExactText exact(text);
        model.grow(text.size() * (twice ? 4 : 2));
        (twice ? vn_strbufAppendStringEscapeSemiColon : vn_strbufAppendStringEscape)(&buffer,
                                                                                     exact.get());
        model.append(escaped(text, twice));
    }

    void appendFile() {
        static fuzz::MemoryFile file;
        std::string content;
        for (int pieces = input.byte() % 4; pieces >= 0; --pieces) {
            content += input.text();
        }
        file.fill(content);
        FUZZ_REQUIRE(vn_strbufAppendFile(&buffer, file.name()) == nullptr);
        size_t length = 100;
        for (size_t read = 0; length == 100; read += length) {
            model.grow(100);
            length = std::min<size_t>(content.size() - read, 100);
            model.append(content.substr(read, length));
        }
    }

    void appendMuch() {
        const std::string text(input.below(20000), 'm');
        model.grow(text.size());
        vn_strbufAppendString(&buffer, text.c_str());
        model.append(text);
    }

    void truncate(uint64_t size) {
        model.truncate(size);
        vn_strbufTruncate(&buffer, size);
    }

    fuzz::Input& input;
    CStringBuffer buffer;
    Model model;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return fuzz::checkSteps<Run>(data, size, 100);
}
