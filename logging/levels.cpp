// Level tables: names, words, and the letters with which the environment overrides a threshold.
#include "logging/levels.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <vncommon/file_logger.h>

#include "platform/assertion.h"

namespace vncommon {
namespace {

// Names by level from 0 to 9, then again from 1 to 9. Lines use the first part,
// FileLogger_LogLevelToString the second.
constexpr const char* priorityNames[] = {
    "NULL", "OFF",   "#####", "CRIT",  "FATAL", "ERROR", "WARN", "INFO",  "DEBUG", "TRACE",
    "OFF",  "#####", "CRIT",  "FATAL", "ERROR", "WARN",  "INFO", "DEBUG", "TRACE", nullptr};
constexpr uint32_t secondRun = levelTrace + 1;
constexpr uint32_t nameCount = std::size(priorityNames) - 1;

constexpr LevelLabel padded(std::string_view name) {
    LevelLabel label{};
    label.fill(' ');
    std::copy(name.begin(), name.end(), label.begin());
    return label;
}

constexpr auto labels = [] {
    std::array<LevelLabel, nameCount> result{};
    std::transform(priorityNames, priorityNames + nameCount, result.begin(), padded);
    return result;
}();

constexpr auto charToLevelMap = [] {
    std::array<uint32_t, 256> map{};
    constexpr std::string_view letters = "OCFEWIDT";
    constexpr uint32_t levels[] = {levelOff,     levelCritical, levelFatal, levelError,
                                   levelWarning, levelInfo,     levelDebug, levelTrace};
    for (size_t i = 0; i < letters.size(); ++i) {
        const auto letter = static_cast<unsigned char>(letters[i]);
        map[letter] = levels[i];
        map[letter | 0x20] = levels[i];
    }
    // Compat: alert, in upper case only; the lower-case letter leaves the threshold unchanged.
    map['A'] = levelCritical;
    return map;
}();

constexpr char inUpperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// ASCII only, in every locale: in a Turkish locale, strcasecmp() does not match i with I.
bool matchesWord(std::string_view text, std::string_view word) {
    return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                      [](char a, char b) { return inUpperCase(a) == b; });
}

struct LevelWord {
    const char* text;
    uint32_t level;
};

// Compat: forced lines have no word, so that no word sets a threshold of 2.
constexpr LevelWord levelWords[] = {
    {"TRACE", levelTrace}, {"DEBUG", levelDebug}, {"INFO", levelInfo},     {"WARN", levelWarning},
    {"ERROR", levelError}, {"FATAL", levelFatal}, {"CRIT", levelCritical}, {"OFF", levelOff}};

}  // namespace

const LevelLabel& levelLabel(uint32_t level) {
    return labels[level < nameCount ? level : uint32_t{levelNone}];
}

uint32_t levelOverride(const char* value) {
    VN_ASSERT(value != nullptr);
    return charToLevelMap[static_cast<unsigned char>(*value)];
}

}  // namespace vncommon

using namespace vncommon;

uint32_t FileLogger_StringToLogLevel(const char* word) {
    if (word == nullptr) {
        return levelNone;
    }
    const auto* found =
        std::find_if(std::begin(levelWords), std::end(levelWords),
                     [word](const LevelWord& known) { return matchesWord(word, known.text); });
    return found == std::end(levelWords) ? uint32_t{levelNone} : found->level;
}

const char* FileLogger_LogLevelToString(uint32_t level) {
    const bool known = level >= levelOff && level <= levelTrace;
    VN_ASSERT(!known || secondRun + level - 1 < nameCount);
    return known ? priorityNames[secondRun + level - 1] : priorityNames[levelNone];
}
