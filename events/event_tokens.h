// What the event reader finds in words and in strings. Both are accepted only in the form in which
// the writer writes them.
#ifndef VN_EVENTS_EVENT_TOKENS_H
#define VN_EVENTS_EVENT_TOKENS_H

#include <vncommon/event_writer.h>

#include <string_view>

namespace vncommon {

// Errors of event_reader.h.
constexpr char unexpectedEnd[] = "unexpected end";
constexpr char zeroByte[] = "zero byte";

// Finds the number or the boolean that the writer writes as this word; false if there is none.
bool findScalar(std::string_view word, VN_EventValue& value);

// Finds the end of a string and checks its escapes.
class StringScan {
  public:
    StringScan(std::string_view text, size_t openingQuote);

    // Null, or what is wrong at the position.
    const char* error() const { return error_; }
    size_t position() const { return at_; }

    // For strings without an error.
    size_t end() const { return at_ + 1; }  // after the closing quote
    size_t length() const { return at_ - begin_ - escapes_; }
    void copyContent(char* to) const;

  private:
    void step();
    void escape();
    void close();
    void fail(const char* error, size_t at);

    static constexpr size_t none = std::string_view::npos;
    std::string_view text_;
    size_t begin_;
    size_t at_;  // the next byte; at last the closing quote, or the error's place
    size_t escapes_ = 0;
    size_t firstPlain_ = none;    // the first tab or line feed
    size_t firstEscaped_ = none;  // the first of them that is escaped
    bool needsEscapes_ = false;
    bool closed_ = false;
    const char* error_ = nullptr;
};

}  // namespace vncommon

#endif
