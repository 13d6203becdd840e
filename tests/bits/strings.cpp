// Hash and order of strings, escapes, integers.
#include <vncommon/buffers.h>
#include <vncommon/failure.h>
#include <vncommon/hashmap.h>
#include <vncommon/strings.h>

#include "values.h"

namespace {

int sign(int value) {
    return (value > 0) - (value < 0);
}

// Any bytes except the terminator; half of the texts are ASCII.
std::string randomBytes(Random& random, int most) {
    const uint64_t bound = random.below(2) == 0 ? 255 : 127;
    std::string text(random.below(static_cast<uint64_t>(most) + 1), ' ');
    for (char& c : text) {
        c = static_cast<char>(static_cast<unsigned char>(1 + random.below(bound)));
    }
    return text;
}

void stringHash(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = randomBytes(random, random.below(20) == 0 ? 300 : 24);
        records.add(hexOfBytes(text), hex(vn_String_hash(text.c_str()), 8));
    }
}

void stringOrder(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string a = randomBytes(random, 8);
        std::string b = random.below(2) == 0 ? "" : a.substr(0, random.below(9));
        b += randomBytes(random, b.empty() ? 8 : 1);
        records.add(hexOfBytes(a) + " " + hexOfBytes(b),
                    std::to_string(sign(vn_String_compare(a.c_str(), b.c_str()))));
    }
}

// Texts with many characters that must be escaped.
std::string textToEscape(Random& random) {
    constexpr char escaped[] = {'\n', '\r', '"', '\\', ';', '\t', '&', '\'', '<', '>', '\1', '\37'};
    std::string text = randomBytes(random, 30);
    for (char& c : text) {
        if (random.below(4) == 0) {
            c = escaped[random.below(std::size(escaped))];
        }
    }
    return text;
}

template <auto append>
void escape(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = textToEscape(random);
        CStringBuffer buffer;
        vn_strbufInit(&buffer, 8);
        append(&buffer, text.c_str());
        records.add(hexOfBytes(text), hexOfBytes(vn_strbufGetString(&buffer)));
        vn_strbufDestroy(&buffer, 1);
    }
}

void escapeXml(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = textToEscape(random);
        char* escaped = vn_xmlEscapeString(text.c_str());
        records.add(hexOfBytes(text), hexOfBytes(escaped));
        vn_free(escaped);
    }
}

std::string integerText(Random& random) {
    constexpr const char* before[] = {"", "", "", " ", "\t", "\n", "-", "+", "- ", "--"};
    constexpr const char* after[] = {"", "", " ", "x", "0", ".5", "g"};
    std::string text = before[random.below(std::size(before))];
    const uint64_t value = random.shorter();
    const uint64_t end = random.below(2) == 0 ? uint64_t{1} << 63U : 0;
    switch (random.below(4)) {
        case 0:
            text += random.below(2) == 0 ? "0x" : "0X0";
            text += hex(value, random.between(0, 18));
            break;
        case 1:  // near the ends of the ranges
            text += std::to_string(end - 2 + random.below(4));
            break;
        default:
            text += std::to_string(value);
    }
    return text + after[random.below(std::size(after))];
}

template <auto parse>
void integer(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = integerText(random);
        const char* end = text.c_str();
        int32_t error = -1;
        const auto value = parse(text.c_str(), &end, &error);
        records.add(hexOfBytes(text), std::to_string(value) + " " +
                                          std::to_string(end - text.c_str()) + " " +
                                          std::to_string(error));
    }
}

void hexadecimal(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const auto value = static_cast<uint32_t>(random.next());
        char text[9];
        records.add(std::to_string(value), vn_uint32ToFixedHexChar8(text, value));
    }
}

void boolean(Records& records, Random& random) {
    constexpr const char* words[] = {"true", "t", "yes", "y", "1", "false", "0", "on", "yes ", ""};
    for (int i = 0; i < randomCalls; ++i) {
        std::string text = words[random.below(std::size(words))];
        for (char& c : text) {
            if (c >= 'a' && c <= 'z' && random.below(2) == 0) {
                c = static_cast<char>(c - 'a' + 'A');
            }
        }
        if (random.below(4) == 0) {
            text += randomBytes(random, 2);
        }
        records.add(hexOfBytes(text), std::to_string(vn_parseToBool(text.c_str())));
    }
}

}  // namespace

std::vector<Group> stringGroups() {
    return {{"string_hash", stringHash},
            {"string_order", stringOrder},
            {"escape", escape<vn_strbufAppendStringEscape>},
            {"escape_semicolon", escape<vn_strbufAppendStringEscapeSemiColon>},
            {"escape_xml", escapeXml},
            {"signed_integer", integer<vn_char8ToInt64>},
            {"unsigned_integer", integer<vn_char8ToUInt64>},
            {"hexadecimal", hexadecimal},
            {"boolean_word", boolean}};
}
