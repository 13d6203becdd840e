#include "settings.h"

#include <vncommon/config_file.h>
#include <vncommon/log.h>
#include <vncommon/strings.h>
#include <vncommon/utf8.h>

namespace {

constexpr char category[] = "server";

std::string trimmed(const std::string& text) {
    const char* begin = vn_skipSpacesUTF8(text.c_str());
    return std::string(begin, vn_rTrimUTF8(begin));
}

bool setNumber(const std::string& value, uint32_t least, uint32_t most, uint32_t& target) {
    const char* end = nullptr;
    int32_t code = 0;
    const uint64_t number = vn_char8ToUInt64(value.c_str(), &end, &code);
    if (code != 0 || *end != '\0' || number < least || number > most) {
        return false;
    }
    target = static_cast<uint32_t>(number);
    return true;
}

bool setLevel(const std::string& value, uint32_t& target) {
    const uint32_t level = VN_StringToLogLevel(value.c_str());
    target = level != 0 ? level : target;
    return level != 0;
}

bool setText(const std::string& value, std::string& target) {
    target = value;
    return !value.empty();
}

bool set(Settings& settings, const std::string& key, const std::string& value, bool& known) {
    known = true;
    if (key == "port") {
        return setNumber(value, 0, 65535, settings.port);
    }
    if (key == "workers") {
        return setNumber(value, 0, 1024, settings.workers);
    }
    if (key == "log file") {
        return setText(value, settings.logFile);
    }
    if (key == "log level") {
        return setLevel(value, settings.logLevel);
    }
    if (key == "queue") {
        return setNumber(value, 1, 1000000, settings.queue);
    }
    if (key == "clients") {
        return setNumber(value, 1, 10000, settings.clients);
    }
    if (key == "idle limit") {
        return setNumber(value, 0, 1000000, settings.idleLimit);
    }
    known = false;
    return false;
}

bool readEntry(const std::string& entry, Settings& settings, std::string& error) {
    if (trimmed(entry).empty()) {
        return true;
    }
    const size_t equals = entry.find('=');
    const std::string key = trimmed(entry.substr(0, equals));
    const std::string value = equals == std::string::npos ? "" : trimmed(entry.substr(equals + 1));
    bool known = false;
    if (set(settings, key, value, known)) {
        return true;
    }
    error = settings.file + ": [" + category + "] ";
    error += known ? key + ": not a value for it: \"" + value + "\"" : key + ": no such setting";
    return false;
}

bool readCategory(VN_ConfigFileCategory* entries, Settings& settings, std::string& error) {
    const char* entry = VN_ConfigFileCategory_GetFirstEntry(entries);
    while (entry != nullptr && readEntry(entry, settings, error)) {
        entry = VN_ConfigFileCategory_GetNextEntry(entries);
    }
    return entry == nullptr;
}

}  // namespace

bool readSettings(const char* path, Settings& settings, std::string& error) {
    const char* file = VN_ConfigFile_Load(path, nullptr);
    // The library continues its search when a file cannot be opened. A file named by the user must
    // not be replaced by another.
    if (path != nullptr && (file == nullptr || std::string(path) != file)) {
        error = std::string(path) + ": cannot be read";
        return false;
    }
    if (file == nullptr) {
        return true;
    }
    settings.file = file;
    VN_ConfigFileCategory* entries = VN_ConfigFile_GetCategory(VN_ConfigFile_Get(), category);
    const bool good = entries == nullptr || readCategory(entries, settings, error);
    if (entries != nullptr) {
        VN_ConfigFileCategory_Release(entries);
    }
    VN_ConfigFile_Unload();
    return good;
}
