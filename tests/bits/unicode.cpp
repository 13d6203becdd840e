// UTF-8 and UTF-16 functions that do not depend on the locale.
#include <vncommon/failure.h>
#include <vncommon/utf8.h>

#include "values.h"

namespace {

void append(std::string& text, uint32_t c) {
    const auto put = [&text](uint32_t byte) {
        text += static_cast<char>(static_cast<unsigned char>(byte));
    };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xc0U | c >> 6U);
        put(0x80U | (c & 63U));
    } else if (c < 0x10000) {
        put(0xe0U | c >> 12U);
        put(0x80U | (c >> 6U & 63U));
        put(0x80U | (c & 63U));
    } else {
        put(0xf0U | c >> 18U);
        put(0x80U | (c >> 12U & 63U));
        put(0x80U | (c >> 6U & 63U));
        put(0x80U | (c & 63U));
    }
}

bool isSurrogate(uint32_t c) {
    return c >= 0xd800 && c <= 0xdfff;
}

uint32_t randomCharacter(Random& random) {
    constexpr uint32_t ends[] = {0x80, 0x80, 0x80, 0x800, 0x10000, 0x110000};
    uint32_t c = 0;
    do {
        c = 1 + static_cast<uint32_t>(random.below(ends[random.below(std::size(ends))] - 1));
    } while (isSurrogate(c));
    return c;
}

std::string validText(Random& random) {
    std::string text;
    for (uint64_t left = random.below(random.below(10) == 0 ? 100 : 16); left > 0; --left) {
        append(text, randomCharacter(random));
    }
    return text;
}

// Valid, or with bytes that are changed, dropped or added; surrogates in one text of eight.
std::string anyText(Random& random) {
    std::string text = validText(random);
    if (random.below(8) == 0) {
        append(text, 0xd7f0 + static_cast<uint32_t>(random.below(0x820)));
        text += validText(random);
    }
    if (!text.empty() && random.below(2) == 0) {
        const auto byte = static_cast<char>(static_cast<unsigned char>(1 + random.below(255)));
        const size_t at = random.below(text.size());
        const size_t gone = random.below(2);
        text.replace(at, gone, random.below(3), byte);
    }
    return text;
}

void validation(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = anyText(random);
        records.add(hexOfBytes(text), std::to_string(vn_isUTF8(text.c_str())) +
                                          std::to_string(vn_isAscii(text.c_str())));
    }
}

std::string units(const uint16_t* text) {
    std::string result;
    for (; *text != 0; ++text) {
        result += hex(*text, 4);
    }
    return result;
}

void toUtf16(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = anyText(random);
        uint16_t* wide = vn_getUTF16(text.c_str());
        records.add(hexOfBytes(text),
                    wide == nullptr ? "(null)"
                                    : units(wide) + " " + std::to_string(vn_codeUnitsUTF16(wide)));
        vn_free(wide);
    }
}

void toUtf8(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        std::vector<uint16_t> wide;
        for (uint64_t left = random.below(20); left > 0; --left) {
            const uint32_t c = random.below(60) == 0
                                   ? 0xd800 + static_cast<uint32_t>(random.below(0x800))
                                   : randomCharacter(random);
            if (c >= 0x10000) {
                wide.push_back(static_cast<uint16_t>(0xd7c0 + (c >> 10U)));
            }
            wide.push_back(static_cast<uint16_t>(c < 0x10000 ? c : 0xdc00 + (c & 0x3ffU)));
        }
        wide.push_back(0);
        char* text = vn_getUTF8(wide.data());
        records.add(units(wide.data()), text == nullptr ? "(null)" : hexOfBytes(text));
        vn_free(text);
    }
}

void stepping(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        const std::string text = "a" + validText(random);
        const char* start = text.c_str();
        const size_t at = random.below(text.size());
        const int count = random.between(-1, 12);
        const char* lead = vn_findUTF8Start(start + at);
        char copy[8];
        vn_copyUTF8Char(copy, lead);
        records.add(hexOfBytes(text) + " " + std::to_string(at) + " " + std::to_string(count),
                    std::to_string(vn_UTF8Length(start)) + " " +
                        std::to_string(vn_UTF8CountChars(start, start + at)) + " " +
                        std::to_string(vn_UTF8SkipChars(start, count) - start) + " " +
                        std::to_string(lead - start) + " " +
                        std::to_string(vn_UTF8CharLength(lead)) + " " + hexOfBytes(copy) +
                        std::to_string(vn_UTF8isAsciiLetter(*lead)));
    }
}

void whiteSpace(Records& records, Random& random) {
    constexpr uint32_t spaces[] = {0x9,    0xd,    0x1c,   0x20,   0x85,   0xa0,   0x1680, 0x180e,
                                   0x2000, 0x200a, 0x200b, 0x2028, 0x2029, 0x202f, 0x205f, 0x3000};
    for (int i = 0; i < randomCalls; ++i) {
        std::string text;
        for (uint64_t left = random.below(10); left > 0; --left) {
            append(text, random.below(3) == 0 ? randomCharacter(random)
                                              : spaces[random.below(std::size(spaces))]);
        }
        records.add(hexOfBytes(text),
                    std::to_string(vn_skipSpacesUTF8(text.c_str()) - text.c_str()) + " " +
                        std::to_string(vn_rTrimUTF8(text.c_str()) - text.c_str()));
    }
}

// Letters whose case mapping has never changed in Unicode: Latin-1, Latin Extended-A, Greek,
// Cyrillic.
uint32_t letter(Random& random) {
    switch (random.below(5)) {
        case 0:
            return 0xc0 + static_cast<uint32_t>(random.below(0xc0));
        case 1:
            return 0x391 + static_cast<uint32_t>(random.below(17));
        case 2:
            return 0x410 + static_cast<uint32_t>(random.below(64));
        default:
            return static_cast<uint32_t>("aAbBiIkKzZ_0[`{"[random.below(15)]);
    }
}

void caseless(Records& records, Random& random) {
    for (int i = 0; i < randomCalls; ++i) {
        std::string a;
        std::string b;
        for (uint64_t left = random.below(8); left > 0; --left) {
            const uint32_t c = letter(random);
            append(a, c);
            append(b, random.below(4) == 0 ? letter(random) : c);
        }
        const int order = vn_UTF8CaseCmp(a.c_str(), b.c_str());
        records.add(hexOfBytes(a) + " " + hexOfBytes(b), std::to_string((order > 0) - (order < 0)));
    }
}

}  // namespace

std::vector<Group> unicodeGroups() {
    return {{"utf8_validation", validation}, {"utf8_to_utf16", toUtf16},
            {"utf16_to_utf8", toUtf8},       {"utf8_stepping", stepping},
            {"white_space", whiteSpace},     {"caseless_order", caseless}};
}
