// Answers lines "GROUP ARGUMENTS" on standard input with the result of ICU, called directly.
// Texts are hexadecimal: UTF-8 by bytes, UTF-16 by units. "(null)" means that a text is not valid.
#include <unicode/unorm.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

// Each group of digits is one element of the text.
template <class Text>
Text fromHex(const std::string& digits) {
    constexpr size_t width = 2 * sizeof(typename Text::value_type);
    Text text;
    for (size_t at = 0; at < digits.size(); at += width) {
        const unsigned long element = std::stoul(digits.substr(at, width), nullptr, 16);
        text += static_cast<typename Text::value_type>(element);
    }
    return text;
}

template <class Text>
std::string hexOf(const Text& text) {
    std::string digits;
    for (const auto element : text) {
        constexpr int width = 2 * sizeof element;
        char room[width + 1];
        const auto bits = static_cast<unsigned>(element) & ((1U << (4U * width)) - 1);
        snprintf(room, sizeof room, "%0*x", width, bits);
        digits += room;
    }
    return digits;
}

// False if the text is not valid.
bool toUtf16(const std::string& text, std::u16string& wide) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    wide.resize(text.size() + 1);
    u_strFromUTF8(wide.data(), static_cast<int32_t>(wide.size()), &length, text.data(),
                  static_cast<int32_t>(text.size()), &status);
    wide.resize(static_cast<size_t>(length));
    return U_SUCCESS(status);
}

std::string utf8ToUtf16(const std::string& digits) {
    std::u16string wide;
    return toUtf16(fromHex<std::string>(digits), wide)
               ? hexOf(wide) + " " + std::to_string(wide.size())
               : "(null)";
}

std::string utf16ToUtf8(const std::string& digits) {
    const auto wide = fromHex<std::u16string>(digits);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    std::string text(3 * wide.size() + 1, '\0');
    u_strToUTF8(text.data(), static_cast<int32_t>(text.size()), &length, wide.data(),
                static_cast<int32_t>(wide.size()), &status);
    text.resize(static_cast<size_t>(length));
    return U_SUCCESS(status) ? hexOf(text) : "(null)";
}

std::string caselessOrder(const std::string& a, const std::string& b) {
    std::u16string wideA;
    std::u16string wideB;
    if (!toUtf16(fromHex<std::string>(a), wideA) || !toUtf16(fromHex<std::string>(b), wideB)) {
        return "(null)";
    }
    UErrorCode status = U_ZERO_ERROR;
    const int32_t order =
        unorm_compare(wideA.data(), static_cast<int32_t>(wideA.size()), wideB.data(),
                      static_cast<int32_t>(wideB.size()), U_COMPARE_IGNORE_CASE, &status);
    return U_SUCCESS(status) ? std::to_string((order > 0) - (order < 0)) : "(null)";
}

std::string answer(const std::string& group, const std::string& first, const std::string& second) {
    if (group == "utf8_to_utf16") {
        return utf8ToUtf16(first);
    }
    if (group == "utf16_to_utf8") {
        return utf16ToUtf8(first);
    }
    return caselessOrder(first, second);
}

}  // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        line += ' ';  // ends the last argument, which may be empty
        const size_t one = line.find(' ');
        const size_t two = line.find(' ', one + 1);
        const size_t three = two + 1 < line.size() ? line.find(' ', two + 1) : two;
        std::cout << answer(line.substr(0, one), line.substr(one + 1, two - one - 1),
                            three > two ? line.substr(two + 1, three - two - 1) : "")
                  << '\n';
    }
}
