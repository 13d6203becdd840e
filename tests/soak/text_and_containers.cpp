#include "soak/text_and_containers.h"

#include <vncommon/vncommon.h>

#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/copied_keys.h"

namespace {

struct Freed {
    void operator()(void* block) const { free(block); }
};
using Text = std::unique_ptr<char, Freed>;

std::string randomWord(Random& random, uint32_t longest = 40) {
    static const char letters[] = "abcXYZ019 ;,\"\\\n\r\t<&>'";
    std::string word(random.below(longest + 1), ' ');
    for (char& letter : word) {
        letter = letters[random.below(sizeof letters - 1)];
    }
    return word;
}

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void appendUtf8(std::string& text, uint32_t point) {
    if (point < 0x80) {
        text += static_cast<char>(point);
    } else if (point < 0x800) {
        text += static_cast<char>(0xC0 | (point >> 6));
        text += static_cast<char>(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        text += static_cast<char>(0xE0 | (point >> 12));
        text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (point & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (point >> 18));
        text += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (point & 0x3F));
    }
}

uint32_t randomPoint(Random& random) {
    const uint32_t limits[] = {0x7F, 0x7FF, 0xD7FF, 0x10FFFF};
    const uint32_t point = 1 + random.below(limits[random.below(4)]);
    return point >= 0xD800 && point <= 0xDFFF ? 0x20AC : point;
}

void* asPointer(uint64_t value) {
    return std::bit_cast<void*>(value);
}

int32_t compareWords(const void* element, const void* key) {
    return element == key ? 0 : 1;
}

double randomDouble(Random& random) {
    for (;;) {
        const double x = random.below(2) == 0
                             ? std::bit_cast<double>(random.next())
                             : static_cast<double>(static_cast<int64_t>(random.next() >> 20)) / 1e4;
        if (std::bit_cast<uint64_t>(x) << 1 < 0xFFE0000000000000) {  // neither infinite nor NaN
            return x;
        }
    }
}

// Adds random values to the writer and returns their text, separated by commas.
std::string addFields(VN_EventWriter* writer, Random& random, int depth) {
    std::string text;
    for (uint32_t left = random.below(5); left > 0; --left) {
        text += text.empty() ? "" : ",";
        const uint32_t kind = random.below(depth > 0 ? 5 : 3);
        if (kind == 0) {
            const auto number = static_cast<int64_t>(random.next());
            VN_EventWriter_addInt(writer, number);
            text += std::to_string(number);
        } else if (kind == 1) {
            const std::string word = std::to_string(random.below(1000)) + " plain";
            VN_EventWriter_addString(writer, word.c_str());
            text += '"' + word + '"';
        } else if (kind == 2) {
            VN_EventWriter_addBoolean(writer, 1);
            text += "true";
        } else {
            const bool event = kind == 3;
            VN_EventWriter* child = event ? VN_EventWriter_ctor(VN_EventKind_Event, "Inner")
                                          : VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
            const std::string inside = addFields(child, random, depth - 1);
            VN_EventWriter_addRefValue(writer, child);
            text += event ? "Inner(" + inside + ")" : "[" + inside + "]";
        }
    }
    return text;
}

using Function = double (*)(double);
constexpr Function functions[] = {vn_exp,  vn_log,  vn_log10, vn_cbrt, vn_sin,  vn_cos,  vn_tan,
                                  vn_atan, vn_sinh, vn_tanh,  vn_erf,  vn_frac, vn_asinh};

// Every call on every thread must return the same bits as the first one.
struct MathsTable {
    static constexpr size_t points = 64;
    uint64_t bits[std::size(functions)][points];

    static double at(size_t point) { return static_cast<double>(point) * 0.37 + 0.01; }

    MathsTable() {
        for (size_t f = 0; f < std::size(functions); ++f) {
            for (size_t p = 0; p < points; ++p) {
                bits[f][p] = std::bit_cast<uint64_t>(functions[f](at(p)));
            }
        }
    }
};

}  // namespace

void useStringBuffer(Random& random) {
    CStringBuffer buffer;
    vn_strbufInit(&buffer, random.below(40));
    std::string model;
    for (int i = 0; i < 20; ++i) {
        const std::string word = randomWord(random);
        switch (random.below(5)) {
            case 0:
                vn_strbufAppendString(&buffer, word.c_str());
                model += word;
                break;
            case 1:
                vn_strbufAppendChar(&buffer, 'c');
                model += 'c';
                break;
            case 2:
                vn_strbufAppendFormat(&buffer, "%d:%s;", i, word.c_str());
                model += std::to_string(i) + ":" + word + ";";
                break;
            case 3:
                vn_strbufAppendStringEscape(&buffer, word.c_str());
                model += escaped(word);
                break;
            default:
                model.resize(random.below(static_cast<uint32_t>(model.size() + 1)));
                vn_strbufTruncate(&buffer, model.size());
        }
    }
    SOAK_CHECK(model.size() == vn_strbufGetSize(&buffer));
    SOAK_CHECK(model == vn_strbufGetString(&buffer));
    vn_strbufDestroy(&buffer, 1);
}

void useByteBuffer(Random& random) {
    CByteBuffer buffer;
    vn_bytebufInit(&buffer, random.below(40));
    std::string model;
    for (int i = 0; i < 10; ++i) {
        const std::string bytes = randomWord(random, 300);
        if (random.below(2) == 0) {
            vn_bytebufAppendBytes(&buffer, bytes.data(), bytes.size());
            model += bytes;
        } else {
            vn_bytebufInsertBytesAtStart(&buffer, bytes.data(), bytes.size());
            model = bytes + model;
        }
    }
    model.resize(random.below(static_cast<uint32_t>(model.size() + 1)));
    vn_bytebufTruncate(&buffer, model.size());
    SOAK_CHECK(model.size() == vn_bytebufGetSize(&buffer));
    SOAK_CHECK(model.empty() ||
               memcmp(model.data(), vn_bytebufGetBytes(&buffer), model.size()) == 0);
    vn_bytebufDestroy(&buffer, 1);
}

void useStrings(Random& random) {
    const auto number = static_cast<int64_t>(random.next());
    const std::string decimal = std::to_string(number);
    const char* end = nullptr;
    int32_t error = -1;
    SOAK_CHECK(vn_char8ToInt64(decimal.c_str(), &end, &error) == number);
    SOAK_CHECK(error == 0 && *end == '\0');
    SOAK_CHECK(vn_char8ToInt64(("9" + decimal.substr(decimal[0] == '-') + "999").c_str(), nullptr,
                               &error) == 0 ||
               error == 0);
    SOAK_CHECK(vn_char8ToUInt64("x", nullptr, &error) == 0 && error == EINVAL);

    char hex[9];
    char expected[9];
    const auto word = static_cast<uint32_t>(random.next());
    snprintf(expected, sizeof expected, "%08" PRIx32, word);
    SOAK_CHECK(strcmp(vn_uint32ToFixedHexChar8(hex, word), expected) == 0);

    const Text xml(vn_xmlEscapeString("<a b='c' d=\"e\">&\x01"));
    SOAK_CHECK(strcmp(xml.get(), "&lt;a b=&apos;c&apos; d=&quot;e&quot;&gt;&amp;%01") == 0);
    std::string trimmed = decimal + " \t\n";
    vn_rtrim(trimmed.data());
    SOAK_CHECK(decimal == trimmed.c_str());
}

void useNumbers(Random& random) {
    for (int i = 0; i < 8; ++i) {
        const double x = randomDouble(random);
        char shortest[25];
        char* end = nullptr;
        vn_g_fmt(shortest, x);
        SOAK_CHECK(std::bit_cast<uint64_t>(vn_strtod(shortest, &end)) ==
                   std::bit_cast<uint64_t>(x));
        SOAK_CHECK(*end == '\0');
        SOAK_CHECK(strtod(shortest, nullptr) == x);

        char text[512];
        char expected[512];
        const int places = static_cast<int>(random.below(16));
        snprintf(expected, sizeof expected, "%.*f", places, x);
        SOAK_CHECK(vn_g_fmt_fixed(text, sizeof text, places, x) == text &&
                   strcmp(text, expected) == 0);
        if (x != 0) {
            snprintf(expected, sizeof expected, "%.*e", places, x);
            SOAK_CHECK(vn_g_fmt_scientific(text, sizeof text, places + 1, x) == text &&
                       strcmp(text, expected) == 0);
        }
    }
}

void useDecimals(Random& random) {
    const uint64_t coefficient = random.next() >> 15;
    const int exponent = static_cast<int>(random.below(700)) - 398;
    const uint64_t value = static_cast<uint64_t>(exponent + 398) << 53 | coefficient;
    char text[23];
    char expected[40];
    vn_dec_to_string(value, text);
    snprintf(expected, sizeof expected, "+%" PRIu64 "E%+d", coefficient, exponent);
    SOAK_CHECK(strcmp(text, expected) == 0);
    SOAK_CHECK(vn_dec_isfinite(value) && !vn_dec_isnan(value));
}

void useUtf8(Random& random) {
    std::string text;
    std::u16string units;
    const int length = static_cast<int>(random.below(100));
    for (int i = 0; i < length; ++i) {
        const uint32_t point = randomPoint(random);
        appendUtf8(text, point);
        if (point >= 0x10000) {
            units += static_cast<char16_t>(0xD7C0 + (point >> 10));
            units += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
        } else {
            units += static_cast<char16_t>(point);
        }
    }
    SOAK_CHECK(vn_isUTF8(text.c_str()) == 1);
    SOAK_CHECK(vn_UTF8Length(text.c_str()) == length);
    SOAK_CHECK(vn_isUTF8((text + "\xC3").c_str()) == 0);
    const std::unique_ptr<uint16_t, Freed> wide(vn_getUTF16(text.c_str()));
    SOAK_CHECK(wide && memcmp(wide.get(), units.c_str(), (units.size() + 1) * 2) == 0);
    const Text back(wide ? vn_getUTF8(wide.get()) : nullptr);
    SOAK_CHECK(back && text == back.get());
    SOAK_CHECK(vn_UTF8CaseCmp(text.c_str(), text.c_str()) == 0);
    const Text page(vn_UTF8ToCstr(text.c_str()));
    const Text again(vn_CstrToUTF8(page.get()));
    SOAK_CHECK(text == again.get());
}

void useVector(Random& random) {
    Vector* vector = vn_Vector_ctor(compareWords, nullptr, nullptr, random.below(4), 1);
    std::vector<void*> model;
    for (int i = 0; i < 200; ++i) {
        if (random.below(3) != 0 || model.empty()) {
            void* element = asPointer(random.next());
            SOAK_CHECK(vn_Vector_add(vector, element) == model.size());
            model.push_back(element);
        } else {
            const uint32_t index = random.below(static_cast<uint32_t>(model.size()));
            SOAK_CHECK(vn_Vector_remove(vector, index) == model[index]);
            model[index] = model.back();
            model.pop_back();
        }
    }
    SOAK_CHECK(vn_Vector_size(vector) == model.size());
    for (uint32_t i = 0; i < model.size(); ++i) {
        uint32_t found = UINT32_MAX;
        SOAK_CHECK(vn_Vector_get(vector, i) == model[i]);
        SOAK_CHECK(vn_Vector_find(vector, model[i], &found) && found == i);
    }
    vn_Vector_dtor(vector);
}

void useHashMap(Random& random) {
    HashMap* map =
        vn_HashMap_ctor(vn_String_hash, vn_String_compare, fillWithCopy, freeCopy, 16, 1);
    std::map<std::string, void*> model;
    for (int i = 0; i < 200; ++i) {
        std::string key = "key" + std::to_string(random.below(100));
        if (random.below(3) != 0) {
            void* value = asPointer(random.next() | 1);
            const bool added = model.emplace(key, value).second;
            SOAK_CHECK((vn_HashMap_addQuick(map, key.data(), value) != nullptr) == added);
        } else {
            vn_HashMap_remove(map, key.c_str());
            model.erase(key);
        }
    }
    SOAK_CHECK(vn_HashMap_size(map) == model.size());
    for (const auto& [key, value] : model) {
        SOAK_CHECK(vn_HashMap_findValue(map, key.c_str()) == value);
    }
    size_t met = 0;
    HashMapIterator* iterator = vn_HashMap_first(map);
    for (; vn_HashMapIterator_valid(iterator); vn_HashMapIterator_next(iterator)) {
        met += model.count(static_cast<const char*>(vn_HashMapIterator_key(iterator)));
    }
    SOAK_CHECK(met == model.size());
    vn_HashMapIterator_dtor(iterator);
    vn_HashMap_dtor(map);
}

void useEventWriter(Random& random) {
    VN_EventWriter* writer = VN_EventWriter_ctor(VN_EventKind_Event, "Outer");
    const std::string expected = "Outer(" + addFields(writer, random, 3) + ")";
    const Text text(VN_EventWriter_toString(writer));
    SOAK_CHECK(expected == text.get());
    VN_EventWriter_dtor(writer);
}

void useMaths(Random& random) {
    static const MathsTable table;
    const size_t f = random.below(std::size(functions));
    const size_t p = random.below(MathsTable::points);
    SOAK_CHECK(std::bit_cast<uint64_t>(functions[f](MathsTable::at(p))) == table.bits[f][p]);
}
