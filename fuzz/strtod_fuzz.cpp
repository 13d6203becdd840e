// The reader of doubles and its general path, compared with the C library's reader.
#include <vncommon/numbers.h>

#include <cerrno>
#include <cmath>

#include "fuzz/fuzz.h"
#include "text/numbers/netlib_conversion.h"

namespace {

// Longer texts could reach our limit on exponents, which the C library does not have.
constexpr size_t longest = 4000;

struct Read {
    double value;
    size_t length;
    int error;
};

Read read(double (*reader)(const char*, char**), const char* text) {
    char* end = nullptr;
    errno = 0;
    const double value = reader(text, &end);
    return {value, static_cast<size_t>(end - text), errno};
}

bool sameValue(double a, double b) {
    return std::isnan(a) ? std::isnan(b) : memcmp(&a, &b, sizeof a) == 0;
}

// The text in parentheses after NaN is not compared: we accept only hexadecimal digits there.
bool hasPayload(const char* text, size_t length) {
    return std::string_view(text, length).find('(') != std::string_view::npos ||
           text[length] == '(';
}

// "-0x" without a hexadecimal digit reads as +0 here; the C library gives -0.
bool isBarePrefix(const char* text, const Read& read) {
    return read.value == 0 && read.length > 0 && text[read.length - 1] == '0' &&
           (text[read.length] | 0x20) == 'x';
}

// We report no error for a subnormal result; the C library does.
int expectedError(const Read& read) {
    return std::isinf(read.value) || read.value == 0 ? read.error : 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::ExactText exact(fuzz::Input(data, std::min(size, longest)).terminatedRest());
    const char* text = exact.get();
    const Read expected = read(strtod, text);
    const Read fast = read(vn_strtod, text);
    const Read general = read(vncommon::readDouble, text);
    FUZZ_REQUIRE(isBarePrefix(text, expected) ? fast.value == 0
                                              : sameValue(fast.value, expected.value));
    FUZZ_REQUIRE(sameValue(general.value, fast.value));
    FUZZ_REQUIRE(general.length == fast.length && general.error == fast.error);
    FUZZ_REQUIRE(fast.error == expectedError(expected));
    if (!std::isnan(expected.value) || !hasPayload(text, expected.length)) {
        FUZZ_REQUIRE(fast.length == expected.length);
    }
    FUZZ_REQUIRE(sameValue(vn_strtod(text, nullptr), fast.value));
    return 0;
}
