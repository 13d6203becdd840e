// Conversions between UTF-8 and UTF-16, compared with the arithmetic of the encodings, and round
// trips. An input is used as UTF-8 and as UTF-16 units.
#include <vncommon/utf8.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "fuzz/oracles.h"

namespace {

using Units = std::vector<uint16_t>;  // without the terminator

struct ExactUnits {
    explicit ExactUnits(const Units& units) : copy(new uint16_t[units.size() + 1]) {
        std::copy(units.begin(), units.end(), copy.get());
        copy[units.size()] = 0;
    }
    std::unique_ptr<uint16_t[]> copy;
};

bool sameUnits(const uint16_t* text, const Units& expected) {
    return text != nullptr && text[expected.size()] == 0 &&
           std::equal(expected.begin(), expected.end(), text) &&
           vn_codeUnitsUTF16(text) == expected.size();
}

// The units of well-formed text; no value for malformed text and encoded surrogates.
std::optional<Units> unitsOf(const std::string& text) {
    const auto points = fuzz::decodeUtf8(text);
    if (!points) {
        return std::nullopt;
    }
    Units units;
    for (const auto& [value, length] : *points) {
        if (fuzz::isSurrogate(value)) {
            return std::nullopt;
        }
        if (value > 0xFFFF) {
            units.push_back(static_cast<uint16_t>((value - 0x10000) / 0x400 + 0xD800));
            units.push_back(static_cast<uint16_t>((value - 0x10000) % 0x400 + 0xDC00));
        } else {
            units.push_back(static_cast<uint16_t>(value));
        }
    }
    return units;
}

// The UTF-8 of units whose surrogates are all paired.
std::optional<std::string> utf8Of(const Units& units) {
    std::string text;
    for (size_t i = 0; i < units.size(); ++i) {
        uint32_t value = units[i];
        if (fuzz::isSurrogate(value)) {
            const uint32_t low = i + 1 < units.size() ? units[++i] : 0;
            if (value >= 0xDC00 || low < 0xDC00 || low > 0xDFFF) {
                return std::nullopt;
            }
            value = 0x10000 + (value - 0xD800) * 0x400 + (low - 0xDC00);
        }
        text += fuzz::encodeUtf8(value);
    }
    return text;
}

void checkFromUtf8(const std::string& text) {
    const fuzz::ExactText exact(text);
    const auto expected = unitsOf(text);
    uint16_t* converted = vn_getUTF16(exact.get());
    FUZZ_REQUIRE((converted != nullptr) == expected.has_value());
    if (converted != nullptr) {
        FUZZ_REQUIRE(sameUnits(converted, *expected));
        FUZZ_REQUIRE(fuzz::Taken(vn_getUTF8(converted)).is(text));
    }
    free(converted);
}

void checkFromUtf16(const Units& units) {
    const ExactUnits exact(units);
    const auto expected = utf8Of(units);
    char* converted = vn_getUTF8(exact.copy.get());
    FUZZ_REQUIRE((converted != nullptr) == expected.has_value());
    if (converted != nullptr) {
        FUZZ_REQUIRE(*expected == converted);
        uint16_t* back = vn_getUTF16(converted);
        FUZZ_REQUIRE(sameUnits(back, units));
        free(back);
    }
    free(converted);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    checkFromUtf8(fuzz::Input(data, size).terminatedRest());
    Units units(size / 2);
    if (!units.empty()) {
        memcpy(units.data(), data, units.size() * 2);
    }
    units.erase(std::find(units.begin(), units.end(), uint16_t{0}), units.end());
    checkFromUtf16(units);
    return 0;
}
