// Log levels and their names.
#ifndef VN_LOGGING_LEVELS_H
#define VN_LOGGING_LEVELS_H

#include <array>
#include <cstdint>

namespace vncommon {

// A smaller level is more severe; a threshold is the last level that is still written.
enum Level : uint32_t {
    levelNone = 0,
    levelOff = 1,
    levelForced = 2,
    levelCritical = 3,
    levelFatal = 4,
    levelError = 5,
    levelWarning = 6,
    levelInfo = 7,
    levelDebug = 8,
    levelTrace = 9,
};

// A level's name as a line shows it, padded to five columns.
using LevelLabel = std::array<char, 5>;

// Levels above 9, which callers do not pass, also get a label.
const LevelLabel& levelLabel(uint32_t level);

// The threshold that the value of an environment variable selects, or levelNone.
uint32_t levelOverride(const char* value);

}  // namespace vncommon

#endif
