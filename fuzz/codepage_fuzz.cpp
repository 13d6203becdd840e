// The conversions of the locale's code page, here ISO-8859-1, compared with its definition: each
// byte is the code point with the same number.
#include <vncommon/utf8.h>

#include "fuzz/fuzz.h"
#include "fuzz/oracles.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

int LLVMFuzzerInitialize(int*, char***) {
    return setenv("LC_ALL", "en_US.ISO-8859-1", 1);
}

namespace {

std::string latinToUtf8(const std::string& text) {
    std::string converted;
    for (const char c : text) {
        converted += fuzz::encodeUtf8(static_cast<uint8_t>(c));
    }
    return converted;
}

// Malformed text, and text that the code page cannot represent, is not changed.
std::string utf8ToLatin(const std::string& text) {
    const auto points = fuzz::decodeUtf8(text);
    std::string converted;
    for (const auto& [value, length] : points.value_or(std::vector<fuzz::CodePoint>{})) {
        if (value > 0xFF) {
            return text;
        }
        converted += static_cast<char>(static_cast<uint8_t>(value));
    }
    return points ? converted : text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).terminatedRest();
    const fuzz::ExactText exact(text);
    const std::string utf8 = latinToUtf8(text);
    FUZZ_REQUIRE(fuzz::Taken(vn_CstrToUTF8(exact.get())).is(utf8));
    FUZZ_REQUIRE(fuzz::Taken(vn_cmdlineToUTF8(exact.get())).is(utf8));
    FUZZ_REQUIRE(fuzz::Taken(vn_UTF8ToCstr(utf8.c_str())).is(text));
    FUZZ_REQUIRE(fuzz::Taken(vn_UTF8ToCstr(exact.get())).is(utf8ToLatin(text)));
    return 0;
}
