#include "events/event_tokens.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <vncommon/numbers.h>

#include "platform/assertion.h"
#include "text/numbers/decimal_text.h"

namespace vncommon {
namespace {

constexpr size_t longestNumber = 24;  // of a float: -1.2345678901234567e-308

VN_EventValue asInteger(const char* word) {
    int64_t value = 0;
    std::from_chars(word, word + strlen(word), value);
    return {VN_EventPayload_ofInt(value), VN_EventKind_Integer};
}

VN_EventValue asFloat(const char* word) {
    const int before = errno;
    const double value = vn_strtod(word, nullptr);
    errno = before;
    return {VN_EventPayload_ofFloat(value), VN_EventKind_Float};
}

VN_EventValue asDecimal(const char* word) {
    return {VN_EventPayload_ofInt(static_cast<int64_t>(readDecimal(word))), VN_EventKind_Decimal};
}

VN_EventValue asBoolean(const char* word) {
    return {VN_EventPayload_ofInt(*word == 't' ? 1 : 0), VN_EventKind_Boolean};
}

bool isWrittenAs(const VN_EventValue& value, std::string_view word) {
    char text[2 * longestNumber + 1];  // the room that VN_EventWriter_buildString requires
    int length = 0;
    VN_EventWriter_buildString(&value, value.kind, text, &length, longestNumber);
    VN_ASSERT(length <= int{longestNumber});
    return word == std::string_view(text, static_cast<size_t>(length));
}

// The byte that is written as a backslash and this letter; 0 if there is none.
char unescaped(char letter) {
    switch (letter) {
        case '"':
        case '\\':
            return letter;
        case 't':
            return '\t';
        case 'n':
            return '\n';
        default:
            return '\0';
    }
}

}  // namespace

bool findScalar(std::string_view word, VN_EventValue& value) {
    constexpr std::string_view firstBytes = "0123456789-+.INtf";
    if (word.empty() || word.size() > longestNumber ||
        firstBytes.find(word.front()) == std::string_view::npos) {
        return false;
    }
    char terminated[longestNumber + 1];
    *std::copy(word.begin(), word.end(), terminated) = '\0';
    for (const auto candidate : {asInteger, asBoolean, asFloat, asDecimal}) {
        value = candidate(terminated);
        if (isWrittenAs(value, word)) {
            return true;
        }
    }
    return false;
}

StringScan::StringScan(std::string_view text, size_t openingQuote)
    : text_(text), begin_(openingQuote + 1), at_(begin_) {
    VN_ASSERT(openingQuote < text.size() && text[openingQuote] == '"');
    while (error_ == nullptr && !closed_) {
        step();
    }
}

void StringScan::copyContent(char* to) const {
    VN_ASSERT(error_ == nullptr);
    for (size_t i = begin_; i < at_; ++i) {
        *to++ = text_[i] == '\\' ? unescaped(text_[++i]) : text_[i];
    }
}

void StringScan::step() {
    if (at_ == text_.size()) {
        return fail(unexpectedEnd, at_);
    }
    switch (text_[at_]) {
        case '"':
            return close();
        case '\0':
            return fail(zeroByte, at_);
        case '\\':
            return escape();
        case '\t':
        case '\n':
            firstPlain_ = std::min(firstPlain_, at_);
            break;
        default:
            break;
    }
    ++at_;
}

void StringScan::escape() {
    if (at_ + 1 == text_.size()) {
        return fail(unexpectedEnd, at_ + 1);
    }
    const char letter = text_[at_ + 1];
    if (unescaped(letter) == '\0') {
        return fail("unknown escape", at_);
    }
    if (unescaped(letter) == letter) {
        needsEscapes_ = true;
    } else {
        firstEscaped_ = std::min(firstEscaped_, at_);
    }
    ++escapes_;
    at_ += 2;
}

// The writer escapes tabs and line feeds exactly if the string has a quote or a backslash.
void StringScan::close() {
    closed_ = true;
    if (needsEscapes_ && firstPlain_ != none) {
        fail("tab or line feed not escaped", firstPlain_);
    } else if (!needsEscapes_ && firstEscaped_ != none) {
        fail("needless escape", firstEscaped_);
    }
}

void StringScan::fail(const char* error, size_t at) {
    error_ = error;
    at_ = at;
}

}  // namespace vncommon
