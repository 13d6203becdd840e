// Trimming, XML escaping and boolean words.
#include <vncommon/platform.h>
#include <vncommon/strings.h>

#include <algorithm>

#include "fuzz/fuzz.h"

namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        char percent[8];
        snprintf(percent, sizeof percent, "%%%02x", static_cast<unsigned char>(c));
        const bool isControl = c > 0 && c < ' ' && c != '\t' && c != '\n' && c != '\r';
        result += c == '"'    ? "&quot;"
                  : c == '&'  ? "&amp;"
                  : c == '\'' ? "&apos;"
                  : c == '<'  ? "&lt;"
                  : c == '>'  ? "&gt;"
                  : isControl ? percent
                              : std::string(1, c);
    }
    return result;
}

bool isTrue(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text == "true" || text == "t" || text == "yes" || text == "y" || text == "1";
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).terminatedRest();
    const fuzz::ExactText exact(text);
    FUZZ_REQUIRE(vn_parseToBool(exact.get()) == isTrue(text));
    FUZZ_REQUIRE(vn_isEmptyString(exact.get()) == text.empty());
    FUZZ_REQUIRE(fuzz::Taken(vn_xmlEscapeString(exact.get())).is(escaped(text)));

    const size_t colon = text.find(':');
    const size_t value = colon == text.npos ? text.size() : std::min(colon + 2, text.size());
    FUZZ_REQUIRE(find_colon(exact.get()) == exact.get() + value);

    const fuzz::ExactText trimmed(text);
    vn_rtrim(trimmed.get());
    FUZZ_REQUIRE(text.substr(0, text.find_last_not_of(" \t\n\v\f\r") + 1) == trimmed.get());

    const fuzz::ExactText line(text);
    const std::string cut = text.substr(0, text.find('\n'));
    FUZZ_REQUIRE(strip_linebreak(line.get()) == cut.size());
    FUZZ_REQUIRE(cut == line.get());
    return 0;
}
