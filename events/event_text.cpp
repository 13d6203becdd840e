// Event writer, rendering: one walk over the tree (event_walk.h) with three outputs.
//
//  - Length counts (VN_EventWriter_strlen).
//  - BoundedText writes into a caller's buffer, within the limits that the header defines
//    (VN_EventWriter_buildString).
//  - GrowingText writes into its own memory in one pass (VN_EventWriter_toString). The result is
//    the same as that of the two passes, and it is faster; measured: see docs/benchmarks.md.
#include <vncommon/event_writer.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "events/event_walk.h"
#include "platform/assertion.h"
#include "text/numbers/double_text.h"

namespace vncommon {
namespace {

// Enough for any number: an integer has up to 20 bytes, a float 24, a decimal 22, plus a
// terminator.
constexpr size_t numberSize = 32;

// The letter after the backslash in the escape of a byte; 0 for bytes that are not escaped.
constexpr std::array<char, 256> escapeLetters = [] {
    std::array<char, 256> letters{};
    letters['"'] = '"';
    letters['\\'] = '\\';
    letters['\t'] = 't';
    letters['\n'] = 'n';
    return letters;
}();

char escapeLetter(char c) {
    return escapeLetters[static_cast<unsigned char>(c)];
}

// Whether any of the eight bytes is c.
constexpr bool anyByteIs(uint64_t bytes, char c) {
    constexpr uint64_t ones = 0x0101010101010101;
    const uint64_t zeroWhereEqual = bytes ^ (ones * static_cast<unsigned char>(c));
    return ((zeroWhereEqual - ones) & ~zeroWhereEqual & (ones << 7)) != 0;
}

bool anyNeedsEscape(uint64_t bytes) {
    return anyByteIs(bytes, '"') || anyByteIs(bytes, '\\');
}

bool needsEscape(char c) {
    return c == '"' || c == '\\';
}

// Copies a string that needs no escapes. Returns false if it needs them; part of it is copied then.
// Compat: tabs and newlines alone need no escapes; readers of the format rely on it.
// Searches and copies in one pass, eight bytes at a time, because that is faster than a search and
// a memcpy; measured: see docs/benchmarks.md.
bool copyUnescaped(char* to, std::string_view text) {
    constexpr size_t width = sizeof(uint64_t);
    const auto copyWord = [&](size_t offset) {
        uint64_t bytes;
        memcpy(&bytes, text.data() + offset, width);
        memcpy(to + offset, &bytes, width);
        return !anyNeedsEscape(bytes);
    };
    if (text.size() < width) {
        for (const char c : text) {
            if (needsEscape(c)) {
                return false;
            }
            *to++ = c;
        }
        return true;
    }
    const size_t last = text.size() - width;
    for (size_t offset = 0; offset < last; offset += width) {
        if (!copyWord(offset)) {
            return false;
        }
    }
    return copyWord(last);
}

bool needsEscapes(std::string_view text) {
    constexpr size_t none = std::string_view::npos;
    return text.find('"') != none || text.find('\\') != none;
}

// --- Formatted pieces --------------------------------------------------------------------------

// Writes a number to an area of numberSize bytes and returns the end of the text.
char* writeNumber(char* area, int64_t value) {
    return std::to_chars(area, area + numberSize, value).ptr;
}

char* writeNumber(char* area, double value) {
    return writeShortest(area, value);
}

char* writeNumber(char* area, Decimal value) {
    vn_dec_to_string(value.bits, area);
    return area + strlen(area);
}

// The text of a number, with its own memory.
class NumberText {
  public:
    template <typename Number>
    explicit NumberText(Number value) : end_(writeNumber(area_, value)) {
        VN_ASSERT(end_ > area_ && end_ < area_ + numberSize);
    }
    NumberText(const NumberText&) = delete;
    NumberText& operator=(const NumberText&) = delete;

    std::string_view text() const { return {area_, static_cast<size_t>(end_ - area_)}; }

  private:
    char area_[numberSize];
    char* end_;
};

std::string_view booleanText(bool value) {
    return value ? "true" : "false";
}

// --- Outputs of the walk -----------------------------------------------------------------------

class Length {
  public:
    uint64_t total() const { return count_; }

    void single(char) { ++count_; }
    // Compat: counts the closing bracket, which is never written; callers rely on the length.
    void absentWriter() { ++count_; }
    template <typename Number>
    void number(Number value) {
        add(NumberText(value).text());
    }
    void character(char) { count_ += 3; }
    void boolean(bool value) { add(booleanText(value)); }
    void unformatted(std::string_view text) { add(text); }
    void name(std::string_view text) { add(text); }
    void string(std::string_view text) {
        add(text);
        count_ += 2;
        if (needsEscapes(text)) {
            count_ += static_cast<uint64_t>(std::count_if(
                text.begin(), text.end(), [](char c) { return escapeLetter(c) != 0; }));
        }
    }

  private:
    void add(std::string_view text) { count_ += text.size(); }

    uint64_t count_ = 0;
};

class BoundedText {
  public:
    BoundedText(char* target, int start, int end)
        : buffer_(target), position_(start), limit_(end) {}

    int reached() const { return static_cast<int>(std::min<int64_t>(position_, INT_MAX)); }

    void single(char c) {
        if (position_ < limit_) {
            buffer_[position_++] = c;
        }
    }
    void absentWriter() {}
    template <typename Number>
    void number(Number value) {
        piece({NumberText(value).text()}, room());
    }
    void number(Decimal value) {
        const NumberText number(value);
        const auto length = static_cast<int64_t>(number.text().size());
        piece({number.text()}, room() + length);
    }
    void character(char c) { piece({"\"", {&c, 1}, "\""}, room()); }
    void boolean(bool value) { piece({booleanText(value)}, room()); }
    void unformatted(std::string_view text) {
        if (position_ < limit_) {
            piece({text}, limit_ - position_);
        }
    }
    void name(std::string_view text) {
        const auto length = static_cast<int64_t>(text.size());
        if (position_ - limit_ < length + 1) {
            memcpy(buffer_ + position_, text.data(), text.size());
            position_ += length;
        }
    }
    void string(std::string_view text) {
        if (!needsEscapes(text)) {
            return piece({"\"", text, "\""}, room());
        }
        single('"');
        for (const char c : text) {
            const char letter = escapeLetter(c);
            if (letter != 0) {
                single('\\');
            }
            single(letter != 0 ? letter : c);
        }
        single('"');
    }

  private:
    // The room up to the limit, plus one byte for a terminator.
    int64_t room() const { return limit_ - position_ + 1; }

    // Writes as much as fits in the budget with a terminator. The position moves by the whole
    // length.
    void piece(std::initializer_list<std::string_view> parts, int64_t budget) {
        char* at = buffer_ + position_;
        for (const std::string_view part : parts) {
            const auto length = static_cast<int64_t>(part.size());
            if (budget > 1) {
                const int64_t written = std::min(length, budget - 1);
                memcpy(at, part.data(), static_cast<size_t>(written));
                at += written;
                budget -= written;
            }
            position_ += length;
        }
        if (budget > 0) {
            *at = '\0';
        }
    }

    char* buffer_;
    int64_t position_;
    int64_t limit_;
};

class GrowingText {
  public:
    GrowingText() = default;
    GrowingText(const GrowingText&) = delete;
    GrowingText& operator=(const GrowingText&) = delete;

    // Terminates the text and returns it in a block of which at most a quarter is unused.
    //
    // glibc 2.36: a block above the mmap threshold is mapped, with page faults, until the first
    // free of such a block raises the threshold to its size. A block that is cut to its text would
    // raise it less.
    char* take() {
        single('\0');
        VN_ASSERT(begin_ < at_ && at_ <= end_);
        const auto size = static_cast<size_t>(at_ - begin_);
        if (begin_ == usual_) {
            return static_cast<char*>(memcpy(malloc(size), begin_, size));
        }
        const bool filled = static_cast<size_t>(end_ - at_) <= size / 3;
        return filled ? begin_ : static_cast<char*>(realloc(begin_, size));
    }

    void single(char c) {
        reserve(1);
        *at_++ = c;
    }
    void absentWriter() {}
    template <typename Number>
    void number(Number value) {
        reserve(numberSize);
        at_ = writeNumber(at_, value);
        VN_ASSERT(at_ <= end_);
    }
    void character(char c) {
        reserve(3);
        put('"');
        put(c);
        put('"');
    }
    void boolean(bool value) { unformatted(booleanText(value)); }
    void unformatted(std::string_view text) {
        reserve(text.size());
        put(text);
    }
    void name(std::string_view text) { unformatted(text); }
    void string(std::string_view text) {
        reserve(text.size() + 2);
        *at_ = '"';
        if (copyUnescaped(at_ + 1, text)) {
            at_ += text.size() + 1;
            put('"');
        } else {
            escaped(text);
        }
    }

  private:
    void put(char c) {
        VN_ASSERT(at_ < end_);
        *at_++ = c;
    }
    void put(std::string_view text) {
        VN_ASSERT(text.size() <= static_cast<size_t>(end_ - at_));
        memcpy(at_, text.data(), text.size());
        at_ += text.size();
    }

    void escaped(std::string_view text) {
        reserve(2 * text.size() + 2);
        char* to = at_;  // a local: the member would be loaded and stored for every byte
        *to++ = '"';
        for (const char c : text) {
            const char letter = escapeLetter(c);
            *to = '\\';
            to += letter != 0 ? 1 : 0;
            *to++ = letter != 0 ? letter : c;
        }
        *to++ = '"';
        VN_ASSERT(to <= end_);
        at_ = to;
    }

    void reserve(size_t size) {
        if (static_cast<size_t>(end_ - at_) < size) [[unlikely]] {
            grow(size);
        }
    }

    // Grows by a quarter, usually in place: nothing else is allocated during a rendering, so the
    // block is at the end of the heap. Doubling would often exceed the free memory that the C
    // library keeps there; the end of the heap would be returned and mapped again for every text.
    [[gnu::noinline]] void grow(size_t size) {
        const auto used = static_cast<size_t>(at_ - begin_);
        const auto capacity = static_cast<size_t>(end_ - begin_);
        const size_t larger = std::max(capacity + capacity / 4, used + size);
        if (begin_ == usual_) {
            begin_ = static_cast<char*>(memcpy(malloc(larger), usual_, used));
        } else {
            begin_ = static_cast<char*>(realloc(begin_, larger));
        }
        at_ = begin_ + used;
        end_ = begin_ + larger;
        VN_ASSERT(size <= static_cast<size_t>(end_ - at_));
    }

    char usual_[4096];  // enough for most events, so that their block is allocated once
    char* begin_ = usual_;
    char* at_ = usual_;
    char* end_ = usual_ + sizeof usual_;
};

char* rendered(const VN_EventValue& value) {
    GrowingText text;
    Walk<GrowingText>(text).render(&value, value.kind);
    return text.take();
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

uint32_t VN_EventWriter_strlen(const VN_EventValue* value, uint32_t kind) {
    Length length;
    Walk<Length>(length).render(value, kind);
    return static_cast<uint32_t>(std::min<uint64_t>(length.total(), UINT32_MAX));
}

void VN_EventWriter_buildString(const VN_EventValue* value, uint32_t kind, char* buffer,
                                int* position, int limit) {
    BoundedText text(buffer, *position, limit);
    Walk<BoundedText>(text).render(value, kind);
    VN_ASSERT(text.reached() >= *position);
    *position = text.reached();
}

char* VN_EventWriter_toString(const VN_EventWriter* writer) {
    VN_EventValue value = {const_cast<VN_EventWriter*>(writer), writer->kind};
    if (!VN_EventWriterIsReferenceType(&value)) {
        value.kind = VN_EventKind_Wrapper;  // renders nothing: the record is not a payload
    }
    return rendered(value);
}

char* valueToString(const VN_EventValue* value) {
    return rendered(*value);
}
