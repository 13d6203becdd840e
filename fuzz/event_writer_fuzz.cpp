// Renders a tree that the input describes, and compares the text with that of a simple renderer.
// Values are added in turn by the exported functions, the writer's function table and the generic
// adds.
#include <vncommon/event_writer.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/oracles.h"

namespace {

constexpr int deepest = 12;
constexpr int mostChildren = 40;

// A value's text. A value with a null child has no text but still counts in the length.
struct Text {
    std::string written;
    size_t unwritten = 0;

    Text& operator+=(const Text& other) {
        written += other.written;
        unwritten += other.unwritten;
        return *this;
    }
};

// A value as the generic adds take it.
struct Value {
    uint32_t kind;
    void* payload = nullptr;
    std::string content;  // of kinds 1 and 9, which the payload points to
    Text text;
    std::string name;  // of the child, for kind 8
    bool hasName = false;
};

std::string quoted(const std::string& content) {
    if (content.find_first_of("\\\"") == content.npos) {
        return '"' + content + '"';
    }
    std::string text = "\"";
    for (const char c : content) {
        switch (c) {
            case '\\':
            case '"':
                text += {'\\', c};
                break;
            case '\t':
                text += "\\t";
                break;
            case '\n':
                text += "\\n";
                break;
            default:
                text += c;
        }
    }
    return text + '"';
}

void* asWord(uint64_t bits) {
    return VN_EventPayload_ofInt(static_cast<int64_t>(bits));
}

class Tree {
  public:
    explicit Tree(fuzz::Input& bytes) : input(bytes) {}

    // A new writer and its text. An event may have no name; then it has no text.
    Value container(uint32_t kind, int depth) {
        Value value{kind, nullptr, "", {}, "", false};
        value.hasName = input.byte() % 8 != 7;
        value.name = value.hasName ? input.terminatedText() : "";
        VN_EventWriter* writer =
            VN_EventWriter_ctor(kind, value.hasName ? value.name.c_str() : nullptr);
        value.payload = writer;
        Text inside;
        for (int i = input.byte() % mostChildren; i > 0 && !input.isEmpty(); --i) {
            inside += {isFirst(writer) ? "" : ",", 0};
            inside +=
                kind == VN_EventKind_Dictionary ? addEntry(writer, depth) : addField(writer, depth);
        }
        value.text = enclose(value, inside);
        return value;
    }

  private:
    static bool isFirst(const VN_EventWriter* writer) {
        return vn_Vector_size(writer->values) == 0;
    }

    static Text enclose(const Value& value, const Text& inside) {
        static constexpr const char* brackets[] = {"[]", "{}", "()"};
        if (value.kind == VN_EventKind_Event && !value.hasName) {
            return {};
        }
        const char* pair = brackets[value.kind - VN_EventKind_Sequence];
        const std::string name = value.kind == VN_EventKind_Event ? value.name : "";
        return {name + pair[0] + inside.written + pair[1], inside.unwritten};
    }

    Value scalar(uint32_t kind, uint64_t bits, const std::string& text) {
        return {kind, asWord(bits), "", {text, 0}, "", false};
    }

    // A text payload points into the value itself: use it before the value moves.
    Value textual(uint32_t kind) {
        const std::string content = input.terminatedText();
        return {kind,    nullptr,
                content, {kind == VN_EventKind_String ? quoted(content) : content, 0},
                "",      false};
    }

    Value nullChild(uint32_t kind) {
        const std::string text = kind == VN_EventKind_Sequence     ? "["
                                 : kind == VN_EventKind_Dictionary ? "{"
                                                                   : "";
        return {kind, nullptr, "", {text, text.size()}, "", false};
    }

    Value any(int depth) {
        const uint32_t kind = input.byte() % 12;
        switch (kind) {
            case VN_EventKind_Integer: {
                const uint64_t bits = input.word();
                return scalar(kind, bits, std::to_string(static_cast<int64_t>(bits)));
            }
            case VN_EventKind_String:
            case VN_EventKind_Unformatted:
                return textual(kind);
            case VN_EventKind_Character: {
                const uint8_t byte = std::max<uint8_t>(input.byte(), 1);
                return scalar(kind, byte, {'"', static_cast<char>(byte), '"'});
            }
            case VN_EventKind_Float: {
                const uint64_t bits = input.word();
                double number;
                memcpy(&number, &bits, sizeof number);
                return scalar(kind, bits, fuzz::shortestText(number));
            }
            case VN_EventKind_Decimal: {
                const uint64_t bits = input.word();
                return scalar(kind, bits, fuzz::decimalText(bits));
            }
            case VN_EventKind_Boolean: {
                const uint64_t bits = input.below(65536);
                return scalar(kind, bits, (bits & 0xFF) != 0 ? "true" : "false");
            }
            case VN_EventKind_Sequence:
            case VN_EventKind_Dictionary:
            case VN_EventKind_Event:
                return depth > 0 && input.byte() != 0 ? container(kind, depth - 1)
                                                      : nullChild(kind);
            default:
                return scalar(kind, input.word(), "");
        }
    }

    // The payload word of a value that stays where it is.
    static void* word(Value& value) {
        const bool isText =
            value.kind == VN_EventKind_String || value.kind == VN_EventKind_Unformatted;
        return isText ? value.content.data() : value.payload;
    }

    Text addEntry(VN_EventWriter* writer, int depth) {
        Value key = any(depth);
        Value value = any(depth);
        (input.byte() % 2 == 0 ? VN_EventWriter_addDictValue : writer->addDictValue)(
            writer, key.kind, word(key), value.kind, word(value));
        Text text = key.text;
        text += {":", 0};
        text += value.text;
        return text;
    }

    Text addField(VN_EventWriter* writer, int depth) {
        const uint8_t way = input.byte();
        Value value = any(depth);
        switch (way % 4) {
            case 0:
                return addAny(writer, value);
            case 1:
                return addOptional(writer, value);
            case 2:
                if (addByKind(writer, value)) {
                    return value.text;
                }
                break;
            default:
                break;
        }
        (way < 128 ? VN_EventWriter_addValue : writer->addValue)(writer, value.kind, word(value));
        return value.text;
    }

    Text addAny(VN_EventWriter* writer, Value& value) {
        const std::string given = input.terminatedText();
        (given.empty() ? VN_EventWriter_addAny : writer->addAny)(writer, value.kind, word(value),
                                                                 given.c_str());
        if (value.kind == VN_EventKind_Wrapper) {
            return {"any()", 0};
        }
        Text text{"any(" + typeName(value, given) + ",", 0};
        text += value.text;
        text += {")", 0};
        return text;
    }

    static std::string typeName(const Value& value, const std::string& given) {
        switch (value.kind) {
            case VN_EventKind_Integer:
                return "integer";
            case VN_EventKind_Float:
                return "float";
            case VN_EventKind_Decimal:
                return "decimal";
            case VN_EventKind_Boolean:
                return "boolean";
            case VN_EventKind_String:
            case VN_EventKind_Character:
            case VN_EventKind_Unformatted:
                return "string";
            case VN_EventKind_Sequence:
            case VN_EventKind_Dictionary:
                return given;
            case VN_EventKind_Event:
                return value.hasName && value.name.compare(0, 8, "optional") != 0 ? value.name
                                                                                  : given;
            default:
                return "invalid";
        }
    }

    Text addOptional(VN_EventWriter* writer, Value& value) {
        (input.byte() % 2 == 0 ? VN_EventWriter_addOptional : writer->addOptional)(
            writer, value.kind, word(value));
        if (value.kind == VN_EventKind_Wrapper) {
            return {"optional()", 0};
        }
        Text text{"optional(", 0};
        text += value.text;
        text += {")", 0};
        return text;
    }

    // The add function of the value's kind; false for kinds without one.
    bool addByKind(VN_EventWriter* writer, Value& value) {
        const auto bits = reinterpret_cast<uintptr_t>(value.payload);
        double number;
        memcpy(&number, &bits, sizeof number);
        switch (value.kind) {
            case VN_EventKind_Integer:
                VN_EventWriter_addInt(writer, static_cast<int64_t>(bits));
                return true;
            case VN_EventKind_String:
                writer->addString(writer, fuzz::ExactText(value.content).get());
                return true;
            case VN_EventKind_Character:
                VN_EventWriter_addChar(writer, static_cast<int>(bits));
                return true;
            case VN_EventKind_Float:
                writer->addFloat(writer, number);
                return true;
            case VN_EventKind_Decimal:
                VN_EventWriter_addDecimal(writer, bits);
                return true;
            case VN_EventKind_Boolean:
                writer->addBoolean(writer, static_cast<int>(bits));
                return true;
            case VN_EventKind_Unformatted:
                (bits % 2 == 0 ? VN_EventWriter_addAnyType : writer->addUnformatted)(
                    writer, value.content.c_str());
                return true;
            case VN_EventKind_Sequence:
            case VN_EventKind_Dictionary:
            case VN_EventKind_Event:
                if (value.payload != nullptr) {
                    writer->addRefValue(writer, static_cast<VN_EventWriter*>(value.payload));
                    return true;
                }
                return false;
            default:
                return false;
        }
    }

    fuzz::Input& input;
};

// Measures the text and writes it into a buffer of exactly that size.
void checkPasses(const Value& tree) {
    const VN_EventValue value = {tree.payload, tree.kind};
    const size_t length = tree.text.written.size() + tree.text.unwritten;
    FUZZ_REQUIRE(VN_EventWriter_strlen(&value, tree.kind) == length);
    const std::unique_ptr<char[]> buffer(new char[length + 1]);
    int position = 0;
    VN_EventWriter_buildString(&value, tree.kind, buffer.get(), &position,
                               static_cast<int>(length));
    FUZZ_REQUIRE(static_cast<size_t>(position) == tree.text.written.size());
    FUZZ_REQUIRE(memcmp(buffer.get(), tree.text.written.data(), tree.text.written.size()) == 0);
    FUZZ_REQUIRE(fuzz::Taken(valueToString(&value)).is(tree.text.written));
}

// Writes with a smaller limit: no byte may be written past the size that the header requires.
void checkLimit(const Value& tree, uint32_t limit) {
    constexpr size_t longestName = 255;
    const VN_EventValue value = {tree.payload, tree.kind};
    const std::unique_ptr<char[]> buffer(new char[limit + 2 * longestName + 1]);
    int position = 0;
    VN_EventWriter_buildString(&value, tree.kind, buffer.get(), &position, static_cast<int>(limit));
    FUZZ_REQUIRE(static_cast<size_t>(position) <= tree.text.written.size());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const uint32_t limit = input.below(1024);
    const uint32_t kind = VN_EventKind_Sequence + input.byte() % 3;
    const Value tree = Tree(input).container(kind, deepest);
    auto* writer = static_cast<VN_EventWriter*>(tree.payload);
    FUZZ_REQUIRE(fuzz::Taken(VN_EventWriter_toString(writer)).is(tree.text.written));
    FUZZ_REQUIRE(fuzz::Taken(writer->toString(writer)).is(tree.text.written));
    checkPasses(tree);
    checkLimit(tree, limit);
    VN_EventWriter_dtor(writer);
    return 0;
}
