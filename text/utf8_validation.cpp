// Validation of UTF-8.
#include <vncommon/utf8.h>

#include <array>

namespace {

constexpr uint8_t invalidLead = 7;

// The class of a lead byte: 0 ASCII, 1-6 the rows of the tables below, 7 no lead at all.
constexpr std::array<uint8_t, 256> makeSequenceTypes() {
    std::array<uint8_t, 256> types{};
    for (size_t byte = 0; byte < types.size(); ++byte) {
        types[byte] = byte < 0x80    ? 0
                      : byte < 0xC2  ? invalidLead
                      : byte < 0xE0  ? 1
                      : byte == 0xE0 ? 2
                      : byte < 0xF0  ? 3
                      : byte == 0xF0 ? 4
                      : byte < 0xF4  ? 5
                      : byte == 0xF4 ? 6
                                     : invalidLead;
    }
    return types;
}

constexpr std::array<uint8_t, 256> utf8_sequenceType = makeSequenceTypes();

// Lowest and highest value of each continuation byte, by class. Class 3 holds ED on purpose:
// encoded surrogates are valid.
constexpr uint8_t utf8_validMin[][4] = {{},
                                        {0x80},
                                        {0xA0, 0x80},
                                        {0x80, 0x80},
                                        {0x90, 0x80, 0x80},
                                        {0x80, 0x80, 0x80},
                                        {0x80, 0x80, 0x80}};
constexpr uint8_t utf8_validMax[][4] = {{},
                                        {0xBF},
                                        {0xBF, 0xBF},
                                        {0xBF, 0xBF},
                                        {0xBF, 0xBF, 0xBF},
                                        {0xBF, 0xBF, 0xBF},
                                        {0x8F, 0xBF, 0xBF}};

}  // namespace

int vn_isAscii(const char* text) {
    for (; *text != '\0'; ++text) {
        if (static_cast<uint8_t>(*text) >= 0x80) {
            return 0;
        }
    }
    return 1;
}

int vn_isUTF8(const char* text) {
    auto bytes = reinterpret_cast<const uint8_t*>(text);
    while (*bytes != 0) {
        const uint8_t type = utf8_sequenceType[*bytes++];
        if (type == invalidLead) {
            return 0;
        }
        for (size_t i = 0; utf8_validMin[type][i] != 0; ++i, ++bytes) {
            if (*bytes < utf8_validMin[type][i] || *bytes > utf8_validMax[type][i]) {
                return 0;
            }
        }
    }
    return 1;
}
