// Event reader: random trees come back as a model predicts, cut texts end too early, damaged texts
// are refused or kept to the byte.
#include <gtest/gtest.h>
#include <vncommon/event_reader.h>
#include <vncommon/numbers.h>

#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "events/event_shapes.h"

using namespace events;

namespace {

// Builds random trees and predicts what the reader makes of their text.
class RandomTrees {
  public:
    explicit RandomTrees(uint32_t seed) : random_(seed), withBackslashes_(seed % 2 == 0) {}

    struct Tree {
        VN_EventValue value;
        std::string text;  // target of the payload for kinds 1 and 9
        std::string shape;
    };

    Tree container(int depth) {
        const uint32_t kind = VN_EventKind_Sequence + below(3);
        const std::string name = kind == VN_EventKind_Event ? word() : "";
        VN_EventWriter* writer =
            VN_EventWriter_ctor(kind, kind == VN_EventKind_Event ? name.c_str() : nullptr);
        std::string shape = std::to_string(kind) + name + '(';
        for (uint32_t i = 0, count = below(6); i < count; ++i) {
            shape += i > 0 ? " " : "";
            shape += kind == VN_EventKind_Dictionary ? entry(writer, depth) : item(writer, depth);
        }
        // Nothing between the brackets reads as no value.
        if (shape == std::to_string(kind) + name + "(u<>") {
            VN_EventWriter_addInt(writer, 1);
            shape += " i1";
        }
        return {{writer, kind}, "", shape + ')'};
    }

  private:
    std::string entry(VN_EventWriter* writer, int depth) {
        inKey_ = true;
        Tree key = value(below(4) == 0 ? depth : 0);
        inKey_ = false;
        Tree content = value(depth);
        VN_EventWriter_addDictValue(writer, key.value.kind, payload(key), content.value.kind,
                                    payload(content));
        return key.shape + "=" + content.shape;
    }

    std::string item(VN_EventWriter* writer, int depth) {
        Tree added = value(depth);
        if (below(6) == 0) {
            VN_EventWriter_addOptional(writer, added.value.kind, payload(added));
            return added.shape == "u<>" ? "8optional()" : "8optional(" + added.shape + ")";
        }
        VN_EventWriter_addValue(writer, added.value.kind, payload(added));
        return added.shape;
    }

    static void* payload(Tree& tree) {
        const bool isText =
            tree.value.kind == VN_EventKind_String || tree.value.kind == VN_EventKind_Unformatted;
        return isText ? tree.text.data() : tree.value.payload;
    }

    Tree value(int depth) {
        switch (below(depth > 0 ? 9 : 7)) {
            case 0:
                return integer();
            case 1:
                return string();
            case 2:
                return character();
            case 3:
                return number();
            case 4:
                return decimal();
            case 5:
                return scalar(VN_EventKind_Boolean, below(2), nullptr);
            case 6:
                return unformatted();
            default:
                return container(depth - 1);
        }
    }

    static Tree scalar(uint32_t kind, uint64_t bits, const char* readAs) {
        const VN_EventValue value = {reinterpret_cast<void*>(bits), kind};
        return {value, "", readAs != nullptr ? readAs : shape(value)};
    }

    Tree integer() {
        return scalar(VN_EventKind_Integer,
                      static_cast<uint64_t>(static_cast<int64_t>(bits()) >> below(64)), nullptr);
    }

    Tree string() {
        std::string content = text("ab\"\\\t\n\r ,:()[]{}\xC3\xA9");
        if (withBackslashes_ && content.find_first_of(",:)]}") == 0) {
            content.insert(0, "x");
        }
        return {{nullptr, VN_EventKind_String}, content, "s<" + content + ">"};
    }

    // A backslash can begin a string if a quote and a separator follow somewhere: see
    // ABackslashThatCanBeginAStringDoes.
    Tree character() {
        auto c = static_cast<unsigned char>(below(256));
        c = below(3) == 0 ? '\\' : below(3) == 0 ? '"' : c;
        if (withBackslashes_ ? strchr(",:)]}", c) != nullptr && c != 0 : c == '\\') {
            c = 'x';
        }
        const bool isString = c != '"' && c != '\\' && c != 0;
        const std::string same = std::string("s<") + static_cast<char>(c) + ">";
        return scalar(VN_EventKind_Character, c, isString ? same.c_str() : nullptr);
    }

    Tree number() {
        uint64_t word = bits();
        if (below(2) == 0) {
            const double price = static_cast<double>(below(100000)) / 100;
            memcpy(&word, &price, sizeof word);
        }
        double value;
        memcpy(&value, &word, sizeof value);
        if (value != value) {
            value = std::numeric_limits<double>::quiet_NaN();
            memcpy(&word, &value, sizeof word);
        }
        char text[32];
        vn_g_fmt(text, value);
        int64_t integer;
        const auto [end, error] = std::from_chars(text, text + strlen(text), integer);
        const bool isInteger = error == std::errc{} && *end == '\0' && strcmp(text, "-0") != 0;
        const std::string same = std::string("i") + text;
        return scalar(VN_EventKind_Float, word, isInteger ? same.c_str() : nullptr);
    }

    Tree decimal() {
        const uint64_t coefficient = bits() >> (11 + below(50));
        return scalar(VN_EventKind_Decimal,
                      uint64_t{below(2)} << 63 | uint64_t{below(768)} << 53 | coefficient, nullptr);
    }

    Tree unformatted() {
        const std::string content = below(5) == 0 ? "" : word();
        return {{nullptr, VN_EventKind_Unformatted}, content, "u<" + content + ">"};
    }

    // Not a number, and nothing that ends it early.
    std::string word() {
        std::string word = "w" + text("xyz0123456789.<> \t\xFF\\\":");
        for (const char c : {inKey_ ? ':' : '\0', withBackslashes_ ? '"' : '\0'}) {
            std::erase(word, c);
        }
        return word;
    }

    std::string text(const std::string& bytes) {
        std::string text;
        for (uint32_t i = 0, length = below(12); i < length; ++i) {
            text += bytes[below(static_cast<uint32_t>(bytes.size()))];
        }
        return text;
    }

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
    uint64_t bits() { return random_(); }

    std::mt19937_64 random_;
    bool withBackslashes_;
    bool inKey_ = false;
};

TEST(EventReaderRandom, TreesComeBack) {
    for (uint32_t seed = 0; seed < 4000; ++seed) {
        const RandomTrees::Tree tree = RandomTrees(seed).container(4);
        const Writer writer(static_cast<VN_EventWriter*>(tree.value.payload));
        const std::string text = rendered(writer);
        ASSERT_EQ(shapeOf(text), tree.shape) << "seed " << seed << ": " << text;
    }
}

TEST(EventReaderRandom, EveryPrefixOfATextEndsTooEarly) {
    std::vector<std::string> samples = {
        R"(Outer(1,Inner({"k":["x",2],3:.5},9),false,+15E-1,"a\"b\\\t","C:\\",any(integer,7),""))",
        R"([""","\",5,"","x",-Infinity,[[]],{:}])"};
    for (uint32_t seed = 1; seed < 60; seed += 2) {
        const RandomTrees::Tree tree = RandomTrees(seed).container(2);
        samples.push_back(rendered(Writer(static_cast<VN_EventWriter*>(tree.value.payload))));
    }
    VN_EventReader reader = newReader();
    for (const std::string& text : samples) {
        if (text.find('\0') != std::string::npos) {
            continue;  // a zero byte is an error until the quote after it
        }
        for (size_t length = 0; length < text.size(); ++length) {
            ASSERT_EQ(read(text.substr(0, length), reader), nullptr) << text;
            ASSERT_STREQ(reader.error, "unexpected end") << text.substr(0, length);
            ASSERT_EQ(reader.position, length) << text;
        }
    }
}

// Some bytes replaced, removed or repeated.
std::string damaged(std::string text, std::mt19937& random) {
    static constexpr char bytes[] = "\"\\,:()[]{}tn\t\n10.+-eEx";
    for (auto count = 1 + random() % 3; count > 0 && !text.empty(); --count) {
        const size_t at = random() % text.size();
        switch (random() % 3) {
            case 0:
                text[at] = bytes[random() % sizeof bytes];
                break;
            case 1:
                text.erase(at, 1 + random() % 3);
                break;
            default:
                text.insert(at, text.substr(random() % text.size(), random() % 8));
        }
    }
    return text;
}

TEST(EventReaderRandom, DamagedTextsAreRefusedOrKept) {
    std::mt19937 random(7);
    VN_EventReader reader = newReader();
    int kept = 0;
    int refused = 0;
    for (uint32_t seed = 0; seed < 1000; ++seed) {
        const RandomTrees::Tree tree = RandomTrees(seed).container(3);
        const Writer original(static_cast<VN_EventWriter*>(tree.value.payload));
        const std::string text = rendered(original);
        for (int i = 0; i < 20; ++i) {
            const std::string other = damaged(text, random);
            const Writer writer = read(other, reader);
            ASSERT_LE(reader.position, other.size());
            ++(writer != nullptr ? kept : refused);
            if (writer != nullptr) {
                ASSERT_EQ(rendered(writer), other);
            }
        }
    }
    EXPECT_GT(kept, 1000);
    EXPECT_GT(refused, 1000);
}

}  // namespace
