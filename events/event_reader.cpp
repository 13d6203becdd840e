// Event reader: one scan of the text from left to right.
//
// Every value is added to its writer as soon as it is read, and every writer to its parent as soon
// as its bracket is read. So the outermost writer owns everything at any time, and an error
// destroys just that one. A dictionary whose entry is incomplete has one key more than values.
//
// What is accepted renders as the same bytes: event_tokens.h accepts no other words and strings.
#include <vncommon/event_reader.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "events/event_tokens.h"
#include "events/event_values.h"
#include "events/event_walk.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr char tooLong[] = "text too long";
constexpr char tooDeep[] = "nested too deeply";
constexpr char noContainer[] = "event, sequence or dictionary expected";
constexpr char noSeparator[] = "comma or closing bracket expected";
constexpr char noColon[] = "colon expected";
constexpr char textAfterEnd[] = "text after the end";

constexpr std::array<bool, 256> wordEnds = [] {
    std::array<bool, 256> ends{};
    for (const char c : {'\0', ',', '(', ')', '[', ']', '{', '}'}) {
        ends[static_cast<unsigned char>(c)] = true;
    }
    return ends;
}();

char closingBracket(uint32_t kind) {
    return kind == VN_EventKind_Sequence ? ']' : kind == VN_EventKind_Dictionary ? '}' : ')';
}

class Parser {
  public:
    Parser(std::string_view text, uint32_t maxDepth) : text_(text), maxDepth_(maxDepth) {}

    // Null, or what is wrong at the position.
    const char* error() const { return error_; }
    size_t position() const { return at_; }

    VN_EventWriter* read() {
        bool good = beginValue();
        while (good && open_.size() > 0) {
            good = hasValue_ ? endValue() : beginValue();
        }
        if (good && at_ < text_.size()) {
            good = fail(textAfterEnd, at_);
        }
        VN_ASSERT(good == (error_ == nullptr) && (!good || outermost_ != nullptr));
        if (!good) {
            VN_EventWriter_dtor(outermost_);
            return nullptr;
        }
        return outermost_;
    }

  private:
    bool fail(const char* error, size_t at) {
        error_ = error;
        at_ = at;
        return false;
    }

    // In a dictionary, the keys are the even steps.
    bool inKey() {
        const OpenWriter& innermost = open_.innermost();
        return innermost.kind == VN_EventKind_Dictionary && innermost.step % 2 == 0;
    }

    Vector* target() {
        const VN_EventWriter* writer = open_.innermost().writer;
        VN_ASSERT(writer->keys->size == 0 || writer->kind == VN_EventKind_Dictionary);
        return inKey() ? writer->keys : writer->values;
    }

    // Continues after a value that ends before the position.
    bool valueRead(size_t end) {
        at_ = end;
        hasValue_ = true;
        return true;
    }

    // Reads a value, or only its beginning if it contains other values.
    bool beginValue() {
        switch (at_ < text_.size() ? text_[at_] : '\0') {
            case '[':
                return openWriter(VN_EventKind_Sequence, at_);
            case '{':
                return openWriter(VN_EventKind_Dictionary, at_);
            case '"':
                return open_.size() > 0 ? quoted() : fail(noContainer, at_);
            default:
                return word();
        }
    }

    // Reads what follows a value: a separator or a closing bracket.
    bool endValue() {
        if (at_ == text_.size()) {
            return fail(unexpectedEnd, at_);
        }
        OpenWriter& innermost = open_.innermost();
        if (!endsValue(at_)) {
            return fail(inKey() ? noColon : noSeparator, at_);
        }
        if (!inKey() && text_[at_] != ',') {
            return closeWriter();
        }
        ++innermost.step;
        ++at_;
        hasValue_ = false;
        return true;
    }

    // Whether a value may end before this position.
    bool endsValue(size_t at) {
        if (at == text_.size()) {
            return false;
        }
        const char c = text_[at];
        return inKey() ? c == ':' : c == ',' || c == closingBracket(open_.innermost().kind);
    }

    // An event's name is between the position and the bracket.
    bool openWriter(uint32_t kind, size_t bracket) {
        if (open_.size() >= maxDepth_) {
            return fail(tooDeep, bracket);
        }
        const char* name = kind == VN_EventKind_Event ? text_.data() + at_ : nullptr;
        VN_EventWriter* writer = newWriter(kind, name, bracket - at_);
        if (outermost_ == nullptr) {
            outermost_ = writer;
        } else {
            appendValue(target(), {writer, kind});
        }
        open_.push(writer, kind);
        at_ = bracket + 1;
        hasValue_ = false;
        const bool isEmpty = at_ < text_.size() && text_[at_] == closingBracket(kind);
        return !isEmpty || closeWriter();
    }

    bool closeWriter() {
        VN_ASSERT(text_[at_] == closingBracket(open_.innermost().kind));
        open_.pop();
        return valueRead(at_ + 1);
    }

    bool word() {
        const size_t end = wordEnd();
        if (end == text_.size()) {
            return fail(unexpectedEnd, end);
        }
        if (text_[end] == '\0') {
            return fail(zeroByte, end);
        }
        if (text_[end] == '(') {
            return openWriter(VN_EventKind_Event, end);
        }
        if (open_.size() == 0) {
            return fail(noContainer, end);
        }
        addWord(text_.substr(at_, end - at_));
        return valueRead(end);
    }

    size_t wordEnd() {
        const bool colonEnds = open_.size() > 0 && inKey();
        size_t end = at_;
        while (end < text_.size() && !wordEnds[static_cast<unsigned char>(text_[end])] &&
               !(colonEnds && text_[end] == ':')) {
            ++end;
        }
        return end;
    }

    void addWord(std::string_view word) {
        VN_EventValue value;
        if (findScalar(word, value)) {
            return appendValue(target(), value);
        }
        std::copy(word.begin(), word.end(),
                  appendRoom(target(), VN_EventKind_Unformatted, word.size()));
    }

    bool quoted() {
        const StringScan string(text_, at_);
        if (isCharacter(string)) {
            const auto byte = static_cast<unsigned char>(text_[at_ + 1]);
            appendValue(target(), {VN_EventPayload_ofInt(byte), VN_EventKind_Character});
            return valueRead(at_ + 3);
        }
        if (string.error() != nullptr) {
            return fail(string.error(), string.position());
        }
        string.copyContent(appendRoom(target(), VN_EventKind_String, string.length()));
        return valueRead(string.end());
    }

    // Whether the text at the position is a character that is written unlike a string of one byte.
    //
    // The text "\" can also begin a string; it does if that string ends where a value can end.
    // Cost: the string is then scanned in vain, up to its first quote that is not escaped. Before
    // that quote no other quoted value can begin, so every byte is scanned in vain at most once.
    bool isCharacter(const StringScan& string) {
        if (text_.size() - at_ < 3 || text_[at_ + 2] != '"') {
            return false;
        }
        const char c = text_[at_ + 1];
        if (c != '\\') {
            return c == '"' || c == '\0';
        }
        const bool isString =
            string.error() == nullptr && (string.end() == text_.size() || endsValue(string.end()));
        return !isString && endsValue(at_ + 3);
    }

    std::string_view text_;
    uint32_t maxDepth_;
    size_t at_ = 0;                        // the next byte; after an error, its place
    bool hasValue_ = false;                // whether a value of the innermost writer ends at at_
    VN_EventWriter* outermost_ = nullptr;  // owns all others
    OpenWriters open_;
    const char* error_ = nullptr;
};

}  // namespace
}  // namespace vncommon

using namespace vncommon;

void VN_EventReader_init(VN_EventReader* reader) {
    *reader = {VN_EventReader_defaultDepth, VN_EventReader_defaultSize, nullptr, 0};
}

VN_EventWriter* VN_EventReader_read(VN_EventReader* reader, const char* text, size_t length) {
    if (length > reader->maxSize) {
        reader->error = tooLong;
        reader->position = reader->maxSize;
        return nullptr;
    }
    Parser parser({text, length}, reader->maxDepth);
    VN_EventWriter* writer = parser.read();
    reader->error = parser.error();
    reader->position = parser.position();
    return writer;
}
