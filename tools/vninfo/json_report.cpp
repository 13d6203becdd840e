#include <vncommon/utf8.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "facts.h"

namespace vninfo {

namespace {

// Writes one JSON document, member by member, in ASCII.
class JsonWriter {
  public:
    void beginObject(const char* key = nullptr) { begin(key, '{'); }
    void beginArray(const char* key) { begin(key, '['); }
    void endObject() { end('}'); }
    void endArray() { end(']'); }

    void text(const char* key, const std::string& value) {
        startMember(key);
        quote(value);
    }
    void text(const char* key, const std::optional<std::string>& value) {
        value ? text(key, *value) : plain(key, "null");
    }
    void number(const char* key, double value) {
        char digits[400];  // of the longest double without an exponent
        const auto done =
            std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed);
        plain(key, std::string(digits, done.ptr).c_str());
    }
    void number(const char* key, const std::optional<double>& value) {
        value ? number(key, *value) : plain(key, "null");
    }
    void boolean(const char* key, bool value) { plain(key, value ? "true" : "false"); }

  private:
    void startMember(const char* key) {
        if (depth_ > 0) {
            printf("%s\n%*s", first_ ? "" : ",", 2 * depth_, "");
        }
        first_ = false;
        if (key != nullptr) {
            printf("\"%s\": ", key);
        }
    }
    void begin(const char* key, char bracket) {
        startMember(key);
        putchar(bracket);
        ++depth_;
        first_ = true;
    }
    void end(char bracket) {
        --depth_;
        if (!first_) {
            printf("\n%*s", 2 * depth_, "");
        }
        putchar(bracket);
        first_ = false;
    }
    void plain(const char* key, const char* token) {
        startMember(key);
        fputs(token, stdout);
    }
    static void putUnit(unsigned unit) {
        const bool asItIs = unit >= ' ' && unit < 0x7F && unit != '"' && unit != '\\';
        printf(asItIs ? "%c" : "\\u%04x", unit);
    }
    // By UTF-16 units. Of text that is not UTF-8, every foreign byte becomes U+FFFD.
    static void quote(const std::string& value) {
        const std::unique_ptr<uint16_t, decltype(&free)> units(vn_getUTF16(value.c_str()), free);
        putchar('"');
        if (units != nullptr) {
            for (const uint16_t* unit = units.get(); *unit != 0; ++unit) {
                putUnit(*unit);
            }
        } else {
            for (const char byte : value) {
                putUnit(byte >= 0 ? static_cast<unsigned>(byte) : 0xFFFD);
            }
        }
        putchar('"');
    }

    int depth_ = 0;
    bool first_ = true;
};

void writeSource(JsonWriter& json, const Source& source, bool wins) {
    json.beginObject();
    json.text("name", source.name);
    json.number("value", source.value);
    json.boolean("wins", wins);
    json.beginArray("readings");
    for (const Reading& reading : source.readings) {
        json.beginObject();
        json.text(reading.kind == Reading::Kind::file ? "file" : "variable", reading.name);
        json.text("text", reading.text);
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

void writeSources(JsonWriter& json, const Resource& resource) {
    const Source* winner = resource.winner();
    json.beginArray("sources");
    for (const Source& source : resource.sources) {
        writeSource(json, source, &source == winner);
    }
    json.endArray();
}

void writeResources(JsonWriter& json, const Facts& facts) {
    json.beginObject("processors");
    json.number("usable", facts.processors.usable);
    json.number("count", facts.processorCount);
    writeSources(json, facts.processors);
    json.endObject();
    json.beginObject("memory");
    json.number("usable_bytes", facts.memory.usable);
    writeSources(json, facts.memory);
    json.endObject();
    json.beginObject("process");
    json.number("resident_bytes", facts.residentBytes);
    json.number("virtual_bytes", facts.virtualBytes);
    json.endObject();
    json.beginObject("control_groups");
    json.text("root", facts.controlGroupsRoot);
    json.text("self", facts.controlGroupsSelf);
    json.endObject();
}

void writeConfiguration(JsonWriter& json, const Configuration& configuration) {
    json.beginObject("configuration");
    json.text("file", configuration.file);
    json.boolean("loaded", configuration.loaded);
    json.number("categories", configuration.categories);
    json.number("entries", configuration.entries);
    json.beginArray("tried");
    for (const std::string& place : configuration.tried) {
        json.text(nullptr, place);
    }
    json.endArray();
    json.endObject();
}

void writeLog(JsonWriter& json, const Facts& facts) {
    json.beginObject("log");
    json.text("level", facts.logLevel);
    json.beginArray("variables");
    for (const LevelVariable& one : facts.levelVariables) {
        json.beginObject();
        json.text("variable", one.variable.name);
        json.text("text", one.variable.text);
        json.text("level", one.level);
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

}  // namespace

void printJson(const Facts& facts) {
    JsonWriter json;
    json.beginObject();
    json.text("version", std::string(VNINFO_VERSION));
    json.text("cpu", facts.cpu);
    json.text("platform", facts.platform);
    writeResources(json, facts);
    json.beginObject("code_page");
    json.text("name", facts.codePage.name);
    json.text("variable", facts.codePage.variable);
    json.endObject();
    writeConfiguration(json, facts.configuration);
    writeLog(json, facts);
    json.endObject();
    putchar('\n');
}

}  // namespace vninfo
