// Event writer, rendering: one walk over the tree, three things to do on the way.
//
//  - Length counts (VN_EventWriter_strlen).
//  - BoundedText writes into a caller's buffer with all the limits that the interface promises
//    (VN_EventWriter_buildString).
//  - GrowingText writes into memory of its own, in one pass (VN_EventWriter_toString): the result
//    is what the two passes give, at less than half the cost.
#include <vncommon/event_writer.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include "text/numbers.h"

namespace {

// More than any number takes: an integer 20 bytes, a float 24, a decimal 22, and a terminator.
constexpr size_t numberSize = 32;

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

// The letter behind the backslash that stands for a byte, 0 for the bytes that stand for
// themselves.
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

bool asksForEscapes(uint64_t bytes) {
    return anyByteIs(bytes, '"') || anyByteIs(bytes, '\\');
}

bool asksForEscapes(char c) {
    return c == '"' || c == '\\';
}

// Copies a string that is not escaped; false, with some of it copied, for one that is. Tabs and
// newlines alone do not make it so, on purpose. Looking and copying in one go, eight bytes at a
// time, takes half the time of a search and a memcpy.
bool copyUnescaped(char* to, std::string_view text) {
    constexpr size_t width = sizeof(uint64_t);
    const auto copyWord = [&](size_t offset) {
        uint64_t bytes;
        memcpy(&bytes, text.data() + offset, width);
        memcpy(to + offset, &bytes, width);
        return !asksForEscapes(bytes);
    };
    if (text.size() < width) {
        for (const char c : text) {
            if (asksForEscapes(c)) {
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

// --- The walk ----------------------------------------------------------------------------------

// A writer whose text has begun and not ended. A step is an element, or half an entry of a
// dictionary: its key, or its value. Those below `step` are written.
struct OpenWriter {
    const VN_EventWriter* writer;
    uint64_t step;
    uint32_t kind;
};

// The open writers, innermost last. On the heap beyond the usual depth, never on the machine's
// stack: values may nest without a bound.
class OpenWriters {
  public:
    OpenWriters() = default;
    OpenWriters(const OpenWriters&) = delete;
    OpenWriters& operator=(const OpenWriters&) = delete;
    ~OpenWriters() {
        if (entries != usual) {
            free(entries);
        }
    }

    void push(const VN_EventWriter* writer, uint32_t kind) {
        if (depth == capacity) {
            grow();
        }
        entries[depth++] = {writer, 0, kind};
    }
    void pop() { --depth; }
    OpenWriter& innermost() { return entries[depth - 1]; }
    size_t size() const { return depth; }

  private:
    void grow() {
        capacity *= 2;
        const size_t size = capacity * sizeof(OpenWriter);
        if (entries == usual) {
            entries = static_cast<OpenWriter*>(malloc(size));
            memcpy(entries, usual, sizeof usual);
        } else {
            entries = static_cast<OpenWriter*>(realloc(entries, size));
        }
    }

    OpenWriter usual[16];
    OpenWriter* entries = usual;
    size_t depth = 0;
    size_t capacity = std::size(usual);
};

template <typename Output>
class Walk {
  public:
    explicit Walk(Output& output) : out(output) {}

    void render(const VN_EventValue* value, uint32_t kind) {
        if (value != nullptr) {
            write(*value, kind);
        }
        while (open.size() > 0) {
            resume();
        }
    }

  private:
    // Writes a value, or the beginning of one that holds others.
    void write(const VN_EventValue& value, uint32_t kind) {
        const auto word = std::bit_cast<uint64_t>(value.payload);
        const auto* text = static_cast<const char*>(value.payload);
        const auto* child = static_cast<const VN_EventWriter*>(value.payload);
        switch (kind) {
            case VN_EventKind_Integer:
                return out.integer(static_cast<int64_t>(word));
            case VN_EventKind_String:
                return out.string(orEmpty(text));
            case VN_EventKind_Character:
                return out.character(static_cast<char>(word));
            case VN_EventKind_Float:
                return out.number(std::bit_cast<double>(word));
            case VN_EventKind_Decimal:
                return out.decimal(word);
            case VN_EventKind_Boolean:
                return out.boolean((word & 0xFF) != 0);
            case VN_EventKind_Sequence:
                return begin('[', child, kind);
            case VN_EventKind_Dictionary:
                return begin('{', child, kind);
            case VN_EventKind_Event:
                return beginEvent(child);
            case VN_EventKind_Unformatted:
                return out.unformatted(orEmpty(text));
            default:
                return;
        }
    }

    void begin(char bracket, const VN_EventWriter* writer, uint32_t kind) {
        out.single(bracket);
        if (writer == nullptr) {
            out.absentWriter();
        } else {
            open.push(writer, kind);
        }
    }

    void beginEvent(const VN_EventWriter* event) {
        if (event != nullptr && event->name != nullptr) {
            out.name(event->name);
            begin('(', event, VN_EventKind_Event);
        }
    }

    // Goes on with the innermost writer until it ends or another one begins in it.
    void resume() {
        OpenWriter& innermost = open.innermost();
        switch (innermost.kind) {
            case VN_EventKind_Sequence:
                return resumeList(innermost, ']');
            case VN_EventKind_Event:
                return resumeList(innermost, ')');
            default:
                return resumeDictionary(innermost);
        }
    }

    void resumeList(OpenWriter& list, char bracket) {
        const size_t depth = open.size();
        const Vector& values = *list.writer->values;
        while (list.step < values.size) {
            if (list.step > 0) {
                out.single(',');
            }
            writeItem(values, list.step++);
            if (open.size() != depth) {
                return;
            }
        }
        end(bracket);
    }

    void resumeDictionary(OpenWriter& dictionary) {
        const size_t depth = open.size();
        const Vector& keys = *dictionary.writer->keys;
        const Vector& values = *dictionary.writer->values;
        while (dictionary.step / 2 < values.size) {
            const uint64_t entry = dictionary.step / 2;
            const bool isKey = dictionary.step++ % 2 == 0;
            if (!isKey) {
                out.single(':');
            } else if (entry > 0) {
                out.single(',');
            }
            writeItem(isKey ? keys : values, entry);  // a missing key is empty
            if (open.size() != depth) {
                return;
            }
        }
        end('}');
    }

    void writeItem(const Vector& values, uint64_t index) {
        if (index < values.size) {
            const auto* value = static_cast<const VN_EventValue*>(values.data[index]);
            if (value != nullptr) {
                write(*value, value->kind);
            }
        }
    }

    void end(char bracket) {
        out.single(bracket);
        open.pop();
    }

    Output& out;
    OpenWriters open;
};

// --- Formatted pieces --------------------------------------------------------------------------

// The text of a number in a small area of its own.
class NumberText {
  public:
    static NumberText of(int64_t value) {
        NumberText text;
        text.length = static_cast<size_t>(
            std::to_chars(text.area, text.area + numberSize, value).ptr - text.area);
        return text;
    }
    static NumberText of(double value) {
        NumberText text;
        text.length = static_cast<size_t>(vncommon::writeShortest(text.area, value) - text.area);
        return text;
    }
    static NumberText ofDecimal(uint64_t value) {
        NumberText text;
        vn_dec_to_string(value, text.area);
        text.length = strlen(text.area);
        return text;
    }
    operator std::string_view() const { return {area, length}; }

  private:
    NumberText() = default;
    char area[numberSize];
    size_t length;
};

std::string_view booleanText(bool value) {
    return value ? "true" : "false";
}

// --- What the walk can do ----------------------------------------------------------------------

class Length {
  public:
    uint64_t total() const { return count; }

    void single(char) { ++count; }
    // The closing bracket counts although it is never written; callers rely on the figure.
    void absentWriter() { ++count; }
    void integer(int64_t value) { add(NumberText::of(value)); }
    void number(double value) { add(NumberText::of(value)); }
    void decimal(uint64_t value) { add(NumberText::ofDecimal(value)); }
    void character(char) { count += 3; }
    void boolean(bool value) { add(booleanText(value)); }
    void unformatted(std::string_view text) { add(text); }
    void name(std::string_view text) { add(text); }
    void string(std::string_view text) {
        add(text);
        count += 2;
        if (needsEscapes(text)) {
            count += static_cast<uint64_t>(std::count_if(
                text.begin(), text.end(), [](char c) { return escapeLetter(c) != 0; }));
        }
    }

  private:
    void add(std::string_view text) { count += text.size(); }

    uint64_t count = 0;
};

class BoundedText {
  public:
    BoundedText(char* target, int start, int end) : buffer(target), position(start), limit(end) {}

    int reached() const { return static_cast<int>(std::min<int64_t>(position, INT_MAX)); }

    void single(char c) {
        if (position < limit) {
            buffer[position++] = c;
        }
    }
    void absentWriter() {}
    void integer(int64_t value) { piece({NumberText::of(value)}, limit - position + 1); }
    void number(double value) { piece({NumberText::of(value)}, limit - position + 1); }
    void decimal(uint64_t value) {
        const NumberText number = NumberText::ofDecimal(value);
        const std::string_view text = number;
        piece({text}, limit - position + 1 + static_cast<int64_t>(text.size()));
    }
    void character(char c) { piece({"\"", {&c, 1}, "\""}, limit - position + 1); }
    void boolean(bool value) { piece({booleanText(value)}, limit - position + 1); }
    void unformatted(std::string_view text) {
        if (position < limit) {
            piece({text}, limit - position);
        }
    }
    void name(std::string_view text) {
        const auto length = static_cast<int64_t>(text.size());
        if (position - limit < length + 1) {
            memcpy(buffer + position, text.data(), text.size());
            position += length;
        }
    }
    void string(std::string_view text) {
        if (!needsEscapes(text)) {
            return piece({"\"", text, "\""}, limit - position + 1);
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
    // Writes as much as the budget holds beside a terminator, and moves on by the whole length.
    void piece(std::initializer_list<std::string_view> parts, int64_t budget) {
        char* at = buffer + position;
        for (const std::string_view part : parts) {
            const auto length = static_cast<int64_t>(part.size());
            if (budget > 1) {
                const int64_t written = std::min(length, budget - 1);
                memcpy(at, part.data(), static_cast<size_t>(written));
                at += written;
                budget -= written;
            }
            position += length;
        }
        if (budget > 0) {
            *at = '\0';
        }
    }

    char* buffer;
    int64_t position;
    int64_t limit;
};

class GrowingText {
  public:
    GrowingText() = default;
    GrowingText(const GrowingText&) = delete;
    GrowingText& operator=(const GrowingText&) = delete;

    // Ends the text and hands it over in a block of its exact size.
    char* take() {
        single('\0');
        const auto size = static_cast<size_t>(at - begin);
        if (begin != usual) {
            return static_cast<char*>(realloc(begin, size));
        }
        return static_cast<char*>(memcpy(malloc(size), begin, size));
    }

    void single(char c) {
        reserve(1);
        *at++ = c;
    }
    void absentWriter() {}
    void integer(int64_t value) {
        reserve(numberSize);
        at = std::to_chars(at, end, value).ptr;
    }
    void number(double value) {
        reserve(numberSize);
        at = vncommon::writeShortest(at, value);
    }
    void decimal(uint64_t value) {
        reserve(numberSize);
        vn_dec_to_string(value, at);
        at += strlen(at);
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
        *at = '"';
        if (copyUnescaped(at + 1, text)) {
            at += text.size() + 1;
            put('"');
        } else {
            escaped(text);
        }
    }

  private:
    void put(char c) { *at++ = c; }
    void put(std::string_view text) {
        memcpy(at, text.data(), text.size());
        at += text.size();
    }

    void escaped(std::string_view text) {
        reserve(2 * text.size() + 2);
        char* to = at;  // the member would be stored and loaded again for every byte
        *to++ = '"';
        for (const char c : text) {
            const char letter = escapeLetter(c);
            *to = '\\';
            to += letter != 0 ? 1 : 0;
            *to++ = letter != 0 ? letter : c;
        }
        *to++ = '"';
        at = to;
    }

    void reserve(size_t size) {
        if (static_cast<size_t>(end - at) < size) [[unlikely]] {
            grow(size);
        }
    }

    [[gnu::noinline]] void grow(size_t size) {
        const auto used = static_cast<size_t>(at - begin);
        const size_t capacity = std::max(2 * static_cast<size_t>(end - begin), used + size);
        if (begin == usual) {
            begin = static_cast<char*>(memcpy(malloc(capacity), usual, used));
        } else {
            begin = static_cast<char*>(realloc(begin, capacity));
        }
        at = begin + used;
        end = begin + capacity;
    }

    char usual[4096];  // most events end here, so that their block is allocated once
    char* begin = usual;
    char* at = usual;
    char* end = usual + sizeof usual;
};

char* rendered(const VN_EventValue& value) {
    GrowingText text;
    Walk<GrowingText>(text).render(&value, value.kind);
    return text.take();
}

}  // namespace

uint32_t VN_EventWriter_strlen(const VN_EventValue* value, uint32_t kind) {
    Length length;
    Walk<Length>(length).render(value, kind);
    return static_cast<uint32_t>(std::min<uint64_t>(length.total(), UINT32_MAX));
}

void VN_EventWriter_buildString(const VN_EventValue* value, uint32_t kind, char* buffer,
                                int* position, int limit) {
    BoundedText text(buffer, *position, limit);
    Walk<BoundedText>(text).render(value, kind);
    *position = text.reached();
}

char* VN_EventWriter_toString(const VN_EventWriter* writer) {
    VN_EventValue value = {const_cast<VN_EventWriter*>(writer), writer->kind};
    if (!VN_EventWriterIsReferenceType(&value)) {
        value.kind = VN_EventKind_Wrapper;  // the record is no payload of another kind
    }
    return rendered(value);
}

char* valueToString(const VN_EventValue* value) {
    return rendered(*value);
}
