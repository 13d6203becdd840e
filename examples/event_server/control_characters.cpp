#include "control_characters.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned char leadOfC1 = 0xC2;  // UTF-8: of U+0080 to U+00BF; then the code point

bool mayBeginControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < ' ' || byte == 0x7F || byte == leadOfC1;
}

void appendEscape(std::string& text, unsigned character) {
    switch (character) {
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        default:
            char escape[7];
            snprintf(escape, sizeof escape, "\\u%04x", character & 0xFF);
            text += escape;
    }
}

}  // namespace

std::string withoutControls(const std::string& text) {
    auto at = std::find_if(text.begin(), text.end(), mayBeginControl);
    std::string escaped(text.begin(), at);
    while (at != text.end()) {
        auto byte = static_cast<unsigned char>(*at);
        const auto next = static_cast<unsigned char>(at + 1 == text.end() ? '\0' : at[1]);
        if (byte == leadOfC1 && next >= 0x80 && next < 0xA0) {
            appendEscape(escaped, next);
            ++at;
        } else if (byte != leadOfC1) {
            appendEscape(escaped, byte);
        } else {
            escaped += *at;
        }
        const auto plain = ++at;
        at = std::find_if(plain, text.end(), mayBeginControl);
        escaped.append(plain, at);
    }
    return escaped;
}
