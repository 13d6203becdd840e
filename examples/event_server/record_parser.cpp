#include "record_parser.h"

#include <cmath>
#include <cstring>

#include <vncommon/buffers.h>
#include <vncommon/failure.h>
#include <vncommon/numbers.h>
#include <vncommon/strings.h>
#include <vncommon/utf8.h>

#include "control_characters.h"

namespace {

constexpr size_t longestKey = 64;
constexpr size_t longestNumber = 400;  // enough for any double; limits the cost of vn_strtod
constexpr int longestQuote = 40;       // characters of a bad value that a message repeats

// A setter sets the field and returns null, or returns what is wrong with the value.
using Setter = const char* (*)(Record& record, char* value);

const char* setName(Record& record, char* value) {
    record.name = value;
    return vn_isEmptyString(value) ? "empty" : nullptr;
}

const char* setVersion(Record& record, char* value) {
    record.version = value;
    return nullptr;
}

const char* setSize(Record& record, char* value) {
    const char* end = nullptr;
    int32_t code = 0;
    record.size = vn_char8ToInt64(value, &end, &code);
    if (code == ERANGE) {
        return "too large";
    }
    if (code != 0 || *end != '\0') {
        return "not an integer";
    }
    return record.size < 0 ? "negative" : nullptr;
}

const char* setSizeMib(Record& record, char* value) {
    if (strlen(value) > longestNumber) {
        return "too long for a number";
    }
    char* end = nullptr;
    record.sizeMib = vn_strtod(value, &end);
    const bool whole = end != value && *end == '\0';
    return whole && std::isfinite(record.sizeMib) ? nullptr : "not a number";
}

const char* setEssential(Record& record, char* value) {
    record.essential = vn_parseToBool(value) != 0;
    if (record.essential) {
        return nullptr;
    }
    for (const char* word : {"false", "f", "no", "n", "0"}) {
        if (vn_strcasecmp(value, word) == 0) {
            return nullptr;
        }
    }
    return "neither true nor false";
}

const char* setDependencies(Record& record, char* value) {
    for (char* next = value; next != nullptr;) {
        char* item = next;
        next = strchr(item, ',');
        if (next != nullptr) {
            *next++ = '\0';
        }
        item[strcspn(item, "(")] = '\0';
        vn_rtrim(item);
        const char* name = vn_skipSpacesUTF8(item);
        if (!vn_isEmptyString(name)) {
            record.dependencies.push_back(name);
        }
    }
    return nullptr;
}

const char* setHomepage(Record& record, char* value) {
    record.homepage = value;
    return nullptr;
}

const char* setDescription(Record& record, char* value) {
    record.description = value;
    return nullptr;
}

struct KnownField {
    const char* key;
    Setter setter;
};

constexpr KnownField knownFields[] = {
    {"name", setName},         {"version", setVersion},         {"size", setSize},
    {"size_mib", setSizeMib},  {"essential", setEssential},     {"depends", setDependencies},
    {"homepage", setHomepage}, {"description", setDescription},
};

// Built once, then read-only, so that threads may search it without a lock.
const HashMap* fieldTable() {
    static const HashMap* const table = [] {
        HashMap* map = vn_HashMap_ctor(vn_String_hash, vn_String_compare, nullptr, nullptr, 16, 0);
        for (const KnownField& field : knownFields) {
            vn_HashMap_addQuick(map, const_cast<char*>(field.key), const_cast<KnownField*>(&field));
        }
        return map;
    }();
    return table;
}

bool isKey(const char* begin, const char* end) {
    const auto length = static_cast<size_t>(end - begin);
    for (const char* at = begin; at < end; ++at) {
        const bool plain = vn_UTF8isAsciiLetter(*at) != 0 || (*at >= '0' && *at <= '9');
        if (!plain && *at != '_' && *at != '.' && *at != '-') {
            return false;
        }
    }
    return length > 0 && length <= longestKey;
}

char unescaped(char letter) {
    switch (letter) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '\\':
            return '\\';
        default:
            return '\0';
    }
}

// In place; false at an unknown escape.
bool removeEscapes(char* value) {
    char* from = strchr(value, '\\');
    if (from == nullptr) {
        return true;
    }
    char* to = from;
    while (*from != '\0') {
        char byte = *from++;
        if (byte == '\\') {
            byte = unescaped(*from++);
            if (byte == '\0') {
                return false;
            }
        }
        *to++ = byte;
    }
    *to = '\0';
    return true;
}

// ": " and the value between quotes, on one line and not too long for a message.
std::string quoted(const char* value) {
    const char* end = vn_UTF8SkipChars(value, longestQuote);
    CStringBuffer text;
    vn_strbufInit(&text, 0);
    vn_strbufAppendString(&text, ": \"");
    vn_strbufAppendStringEscape(&text, std::string(value, end).c_str());
    vn_strbufAppendString(&text, *end == '\0' ? "\"" : "\"...");
    const std::string result = withoutControls(vn_strbufGetString(&text));
    vn_strbufDestroy(&text, 1);
    return result;
}

}  // namespace

RecordParser::RecordParser() {
    vn_HashMap_init(&seen_, vn_String_hash, vn_String_compare, nullptr, nullptr, 32, 0);
}

RecordParser::~RecordParser() {
    vn_HashMap_cleanup(&seen_);
}

bool RecordParser::parse(std::string& line, Record& record, std::string& error) {
    record = Record();
    vn_HashMap_clear(&seen_);
    char* const end = line.data() + line.size();
    char* begin = line.data();
    bool good = true;
    while (good && begin <= end) {
        auto* tab = static_cast<char*>(memchr(begin, '\t', static_cast<size_t>(end - begin)));
        char* fieldEnd = tab != nullptr ? tab : end;
        good = parseField(begin, fieldEnd, record);
        begin = fieldEnd + 1;
    }
    if (good && record.name == nullptr) {
        good = fail("name", "missing");
    }
    if (!good) {
        error = error_;
    } else if (!vn_HashMap_exists(&seen_, "size_mib")) {
        record.sizeMib = static_cast<double>(record.size) / 1024.0;
    }
    return good;
}

// *end is a tab or the line's terminator, and becomes the value's terminator.
bool RecordParser::parseField(char* begin, char* end, Record& record) {
    *end = '\0';
    auto* equals = static_cast<char*>(memchr(begin, '=', static_cast<size_t>(end - begin)));
    if (equals == nullptr) {
        return fail(place(), "not of the form key=value");
    }
    if (!isKey(begin, equals)) {
        return fail(place(), "the key is not 1 to 64 of A-Z a-z 0-9 _ . -");
    }
    *equals = '\0';
    char* value = equals + 1;
    if (strlen(value) != static_cast<size_t>(end - value)) {
        return fail(begin, "holds a NUL byte");
    }
    if (vn_isUTF8(value) == 0) {
        return fail(begin, "not UTF-8");
    }
    if (vn_HashMap_addQuick(&seen_, begin, value) == nullptr) {
        return fail(begin, "given twice");
    }
    if (!removeEscapes(value)) {
        return fail(begin, "a backslash that is not \\n, \\r, \\t or \\\\");
    }
    return set(begin, value, record);
}

bool RecordParser::set(const char* key, char* value, Record& record) {
    const auto* field = static_cast<const KnownField*>(vn_HashMap_findValue(fieldTable(), key));
    if (field == nullptr) {
        record.others.emplace_back(key, value);
        return true;
    }
    const char* wrong = field->setter(record, value);
    return wrong == nullptr || fail(key, wrong + quoted(value));
}

// The name in messages of a field without a valid key.
std::string RecordParser::place() const {
    return "field " + std::to_string(vn_HashMap_size(&seen_) + 1);
}

bool RecordParser::fail(const std::string& field, const std::string& what) {
    error_ = field + ": " + what;
    return false;
}
