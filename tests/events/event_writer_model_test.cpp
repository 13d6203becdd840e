// Compares the event writer with a model. Builds random trees through the interface, and at the
// same time the list of the pieces of their text. The model writes each piece with snprintf, so it
// also predicts the text under a tight limit.
#include <gtest/gtest.h>
#include <vncommon/event_writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

struct Piece {
    enum Kind { single, formatted, decimal, name, unformatted } kind;
    std::string text;
};

struct Model {
    std::vector<Piece> pieces;
    size_t unwritten = 0;  // bytes that count in the length but are not in the text

    void add(Piece::Kind kind, const std::string& text) { pieces.push_back({kind, text}); }
    void add(const Model& other) {
        pieces.insert(pieces.end(), other.pieces.begin(), other.pieces.end());
        unwritten += other.unwritten;
    }
    std::string text() const {
        std::string whole;
        for (const Piece& piece : pieces) {
            whole += piece.text;
        }
        return whole;
    }
};

// Writes one piece at a position, under a limit.
void writePiece(const Piece& piece, char* buffer, int& position, int limit) {
    const auto length = static_cast<int>(piece.text.size());
    const auto format = [&](int budget) {
        snprintf(buffer + position, static_cast<size_t>(std::max(budget, 0)), "%s",
                 piece.text.c_str());
        position += length;
    };
    switch (piece.kind) {
        case Piece::single:
            if (position < limit) {
                buffer[position++] = piece.text[0];
            }
            break;
        case Piece::formatted:
            format(limit - position + 1);
            break;
        case Piece::decimal:
            format(limit - position + 1 + length);
            break;
        case Piece::unformatted:
            if (position < limit) {
                format(limit - position);
            }
            break;
        case Piece::name:
            if (position <= limit + length) {
                memcpy(buffer + position, piece.text.data(), piece.text.size());
                position += length;
            }
            break;
    }
}

// A value as the generic adds take it, and its model.
struct Value {
    uint32_t kind;
    void* payload;
    std::string text;  // target of the payload for kinds 1 and 9
    Model model;
};

class RandomTrees {
  public:
    explicit RandomTrees(uint32_t seed) : random(seed) {}

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    Value container(int depth) {
        switch (below(3)) {
            case 0:
                return sequence(depth);
            case 1:
                return dictionary(depth);
            default:
                return event(depth);
        }
    }

  private:
    Value value(int depth) {
        switch (below(depth > 0 ? 12 : 8)) {
            case 0:
                return integer();
            case 1:
            case 2:
                return string();
            case 3:
                return character();
            case 4:
                return number();
            case 5:
                return decimal();
            case 6:
                return boolean();
            case 7:
                return below(3) == 0 ? odd() : unformatted();
            default:
                return container(depth - 1);
        }
    }

    Value integer() {
        const auto number = static_cast<int64_t>(bits()) >> below(64);
        char text[32];
        snprintf(text, sizeof text, "%ld", static_cast<long>(number));
        return scalar(VN_EventKind_Integer, static_cast<uint64_t>(number), text);
    }

    Value string() {
        const std::string content = randomText();
        Value result = {VN_EventKind_String, nullptr, content, {}};
        if (content.find_first_of("\"\\") == content.npos) {
            result.model.add(Piece::formatted, '"' + content + '"');
            return result;
        }
        result.model.add(Piece::single, "\"");
        for (const char c : content) {
            if (strchr("\"\\\t\n", c) != nullptr) {
                result.model.add(Piece::single, "\\");
            }
            result.model.add(Piece::single, {c == '\t' ? 't' : c == '\n' ? 'n' : c});
        }
        result.model.add(Piece::single, "\"");
        return result;
    }

    Value character() {
        const auto c = static_cast<char>(1 + below(255));
        return scalar(VN_EventKind_Character, static_cast<unsigned char>(c) | (bits() << 8),
                      std::string{'"', c, '"'});
    }

    Value number() {
        static const std::pair<double, const char*> samples[] = {
            {0, "0"},          {-0.0, "-0"},       {.25, ".25"},
            {-1.5, "-1.5"},    {1e6, "1e+06"},     {123456.75, "123456.75"},
            {1e300, "1e+300"}, {5e-324, "5e-324"}, {2.0 / 3, ".6666666666666666"}};
        const auto& [value, text] = samples[below(std::size(samples))];
        uint64_t word;
        memcpy(&word, &value, sizeof word);
        return scalar(VN_EventKind_Float, word, text);
    }

    Value decimal() {
        const uint64_t coefficient = bits() >> (11 + below(50));
        const int exponent = static_cast<int>(below(300)) - 150;
        const bool negative = below(2) == 0;
        char text[64];
        snprintf(text, sizeof text, "%c%luE%+d", negative ? '-' : '+', coefficient, exponent);
        Value result = {VN_EventKind_Decimal, nullptr, "", {}};
        result.payload = asWord(uint64_t{negative} << 63 |
                                static_cast<uint64_t>(exponent + 398) << 53 | coefficient);
        result.model.add(Piece::decimal, text);
        return result;
    }

    Value boolean() {
        const uint64_t word = below(2) == 0 ? bits() << 8 : bits() | 1;
        return scalar(VN_EventKind_Boolean, word, (word & 0xFF) != 0 ? "true" : "false");
    }

    Value unformatted() {
        Value result = {VN_EventKind_Unformatted, nullptr, randomText(), {}};
        result.model.add(Piece::unformatted, result.text);
        return result;
    }

    // A value of an unknown kind, or a null child, which has only an opening bracket or no text.
    Value odd() {
        Value result = {10 + below(3), nullptr, "", {}};
        if (below(2) == 0) {
            result.kind = VN_EventKind_Sequence + below(3);
            if (result.kind != VN_EventKind_Event) {
                result.model.add(Piece::single, result.kind == VN_EventKind_Sequence ? "[" : "{");
                result.model.unwritten = 1;
            }
        }
        return result;
    }

    Value sequence(int depth) {
        VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
        Value result = {VN_EventKind_Sequence, writer, "", {}};
        result.model.add(Piece::single, "[");
        result.model.add(list(writer, depth));
        result.model.add(Piece::single, "]");
        return result;
    }

    Value event(int depth) {
        static const char* const names[] = {"E", "optional<x>", "", "a::long::event::name",
                                            nullptr};
        const char* name = names[below(std::size(names))];
        VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Event, name);
        const Model fields = list(writer, depth);
        return {VN_EventKind_Event, writer, "", name == nullptr ? Model() : named(name, fields)};
    }

    static Model named(const std::string& name, const Model& fields) {
        Model model;
        model.add(Piece::name, name);
        model.add(Piece::single, "(");
        model.add(fields);
        model.add(Piece::single, ")");
        return model;
    }

    // A value that is added without a key gets the next key: keys and values are counted
    // separately.
    Value dictionary(int depth) {
        VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
        std::vector<Model> keys;
        std::vector<Model> values;
        for (uint32_t count = below(6); count > 0; --count) {
            if (below(8) == 0) {
                values.push_back(addTo(writer, depth));
                continue;
            }
            Value key = value(below(4) == 0 ? depth : 0);
            Value entry = value(depth);
            keys.push_back(key.model);
            values.push_back(entry.model);
            VN_EventWriter_addDictValue(writer, key.kind, payloadOf(key), entry.kind,
                                        payloadOf(entry));
        }
        Value result = {VN_EventKind_Dictionary, writer, "", {}};
        result.model.add(Piece::single, "{");
        for (size_t i = 0; i < values.size(); ++i) {
            if (i > 0) {
                result.model.add(Piece::single, ",");
            }
            result.model.add(i < keys.size() ? keys[i] : Model());
            result.model.add(Piece::single, ":");
            result.model.add(values[i]);
        }
        result.model.add(Piece::single, "}");
        return result;
    }

    Model list(VN_EventWriter* writer, int depth) {
        Model model;
        for (uint32_t i = 0, count = below(7); i < count; ++i) {
            if (i > 0) {
                model.add(Piece::single, ",");
            }
            model.add(addTo(writer, depth));
        }
        return model;
    }

    // Adds a random value to the writer with one of the functions that can add it.
    Model addTo(VN_EventWriter* writer, int depth) {
        Value added = value(depth);
        switch (below(5)) {
            case 0: {
                Model fields;
                if (added.kind != VN_EventKind_Wrapper) {
                    fields.add(Piece::unformatted, typeName(added));
                    fields.add(Piece::single, ",");
                    fields.add(added.model);
                }
                VN_EventWriter_addAny(writer, added.kind, payloadOf(added), "callers");
                return named("any", fields);
            }
            case 1:
                VN_EventWriter_addOptional(writer, added.kind, payloadOf(added));
                return named("optional", added.model);
            case 2:
                writer->addValue(writer, added.kind, payloadOf(added));
                return added.model;
            default:
                addByKind(writer, added);
                return added.model;
        }
    }

    static void addByKind(VN_EventWriter* writer, Value& added) {
        const auto word = reinterpret_cast<uint64_t>(added.payload);
        double number;
        memcpy(&number, &word, sizeof number);
        switch (added.kind) {
            case VN_EventKind_Integer:
                return VN_EventWriter_addInt(writer, static_cast<int64_t>(word));
            case VN_EventKind_String:
                return VN_EventWriter_addString(writer, added.text.c_str());
            case VN_EventKind_Character:
                return VN_EventWriter_addChar(writer, static_cast<int>(word));
            case VN_EventKind_Float:
                return VN_EventWriter_addFloat(writer, number);
            case VN_EventKind_Decimal:
                return VN_EventWriter_addDecimal(writer, word);
            case VN_EventKind_Boolean:
                return VN_EventWriter_addBoolean(writer, static_cast<int>(word));
            case VN_EventKind_Unformatted:
                return VN_EventWriter_addUnformatted(writer, added.text.c_str());
            default:
                if (added.payload != nullptr) {
                    return VN_EventWriter_addRefValue(writer,
                                                      static_cast<VN_EventWriter*>(added.payload));
                }
                return VN_EventWriter_addValue(writer, added.kind, nullptr);
        }
    }

    static std::string typeName(const Value& value) {
        switch (value.kind) {
            case VN_EventKind_Integer:
                return "integer";
            case VN_EventKind_String:
            case VN_EventKind_Character:
            case VN_EventKind_Unformatted:
                return "string";
            case VN_EventKind_Float:
                return "float";
            case VN_EventKind_Decimal:
                return "decimal";
            case VN_EventKind_Boolean:
                return "boolean";
            case VN_EventKind_Event: {
                const auto* child = static_cast<const VN_EventWriter*>(value.payload);
                const bool own = child != nullptr && child->name != nullptr &&
                                 std::string(child->name).rfind("optional", 0) != 0;
                return own ? child->name : "callers";
            }
            default:
                return value.kind > VN_EventKind_Wrapper ? "invalid" : "callers";
        }
    }

    Value scalar(uint32_t kind, uint64_t word, const std::string& text) {
        Value result = {kind, asWord(word), "", {}};
        result.model.add(Piece::formatted, text);
        return result;
    }

    static void* asWord(uint64_t word) { return reinterpret_cast<void*>(word); }

    static void* payloadOf(Value& value) {
        const bool isText =
            value.kind == VN_EventKind_String || value.kind == VN_EventKind_Unformatted;
        return isText ? value.text.data() : value.payload;
    }

    std::string randomText() {
        static const char alphabet[] = "abcdefghijklmnopq ,:()[]{}\t\n\r\xC3\xA9\"\\";
        const bool plain = below(2) == 0;
        std::string text(below(below(20) == 0 ? 3000 : 24), 'x');
        for (char& c : text) {
            c = alphabet[below(plain ? 31 : 33)];
        }
        return text;
    }

    uint64_t bits() { return random(); }

    std::mt19937_64 random;
};

std::string taken(char* text) {
    const std::string copy = text;
    free(text);
    return copy;
}

// The two passes of a caller: measure, then write.
std::string inTwoPasses(const VN_EventValue& value) {
    const uint32_t length = VN_EventWriter_strlen(&value, value.kind);
    std::vector<char> buffer(length + 1, '#');
    int position = 0;
    VN_EventWriter_buildString(&value, value.kind, buffer.data(), &position,
                               static_cast<int>(length));
    buffer[std::min(static_cast<uint32_t>(position), length)] = '\0';
    return buffer.data();
}

void compareUnderLimit(const VN_EventValue& value, const Model& model, int start, int limit) {
    constexpr size_t room = 256;
    std::vector<char> expected(static_cast<size_t>(std::max(start, limit)) + room, '#');
    std::vector<char> found = expected;
    int expectedPosition = start;
    for (const Piece& piece : model.pieces) {
        writePiece(piece, expected.data(), expectedPosition, limit);
    }
    int position = start;
    VN_EventWriter_buildString(&value, value.kind, found.data(), &position, limit);
    ASSERT_EQ(position, expectedPosition) << "start " << start << ", limit " << limit;
    ASSERT_EQ(found, expected) << "start " << start << ", limit " << limit;
}

void compare(uint32_t seed) {
    RandomTrees trees(seed);
    const Value root = trees.container(4);
    const VN_EventValue value = {root.payload, root.kind};
    auto* writer = static_cast<VN_EventWriter*>(root.payload);
    const std::string text = root.model.text();
    EXPECT_EQ(taken(VN_EventWriter_toString(writer)), text);
    EXPECT_EQ(taken(writer->toString(writer)), text);
    EXPECT_EQ(taken(valueToString(&value)), text);
    EXPECT_EQ(inTwoPasses(value), text);
    EXPECT_EQ(VN_EventWriter_strlen(&value, value.kind), text.size() + root.model.unwritten);
    const auto length = static_cast<uint32_t>(text.size());
    for (int i = 0; i < 8; ++i) {
        const auto limit = static_cast<int>(trees.below(length + 4));
        compareUnderLimit(value, root.model, 0, limit);
        compareUnderLimit(value, root.model, static_cast<int>(trees.below(40)), limit);
        compareUnderLimit(value, root.model, limit + static_cast<int>(trees.below(30)), limit);
    }
    VN_EventWriter_dtor(writer);
}

TEST(EventWriterModel, AgreesOnRandomTrees) {
    for (uint32_t seed = 1; seed <= 4000 && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        compare(seed);
    }
}

}  // namespace
