#include "record_line.h"

#include <vncommon/numbers.h>
#include <vncommon/strings.h>

namespace {

struct Renamed {
    const char* field;
    const char* key;
};

constexpr Renamed renamed[] = {
    {"Package", "name"},
    {"Version", "version"},
    {"Installed-Size", "size"},
    {"Essential", "essential"},
    {"Depends", "depends"},
    {"Homepage", "homepage"},
    {"Description", "description"},
};

std::string keyOf(const std::string& field) {
    for (const Renamed& known : renamed) {
        if (field == known.field) {
            return known.key;
        }
    }
    return field;
}

void appendEscaped(std::string& line, const std::string& value) {
    for (const char byte : value) {
        switch (byte) {
            case '\n':
                line += "\\n";
                break;
            case '\r':
                line += "\\r";
                break;
            case '\t':
                line += "\\t";
                break;
            case '\\':
                line += "\\\\";
                break;
            default:
                line += byte;
        }
    }
}

void appendSizeInMib(std::string& line, const std::string& size) {
    int32_t code = 0;
    const int64_t kib = vn_char8ToInt64(size.c_str(), nullptr, &code);
    if (code == 0) {
        char text[25];
        line += "\tsize_mib=";
        line += vn_g_fmt(text, static_cast<double>(kib) / 1024.0);
    }
}

}  // namespace

std::string recordLine(const PackageRecord& record) {
    std::string line;
    for (const auto& [field, value] : record.fields) {
        if (!line.empty()) {
            line += '\t';
        }
        line += keyOf(field) + '=';
        appendEscaped(line, value);
        if (field == "Installed-Size") {
            appendSizeInMib(line, value);
        }
    }
    return line;
}
