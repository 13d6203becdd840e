// The walk over a tree of event values, used by every rendering. It calls these members of an
// output:
//
//  - single(c): a bracket, comma or colon
//  - name(text): the name of an event; its brackets and fields follow
//  - number(x), x an int64_t, a double or a Decimal; character, boolean, string, unformatted
//  - absentWriter(): after the opening bracket of a sequence or dictionary without a writer.
//    Compat: such a value has no closing bracket; readers of the format rely on it.
#ifndef VN_EVENTS_EVENT_WALK_H
#define VN_EVENTS_EVENT_WALK_H

#include <vncommon/event_writer.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "platform/assertion.h"

namespace vncommon {

// A decimal64 in BID encoding.
struct Decimal {
    uint64_t bits;
};

// A writer whose text has begun and not ended. A step is an element, or the key or the value of a
// dictionary entry. The steps below `step` are written.
struct OpenWriter {
    const VN_EventWriter* writer;
    uint64_t step;
    uint32_t kind;
};

// The open writers, innermost last. Deeper nesting than usual goes to the heap, because the depth
// is not bounded and the thread's stack is.
class OpenWriters {
  public:
    OpenWriters() = default;
    OpenWriters(const OpenWriters&) = delete;
    OpenWriters& operator=(const OpenWriters&) = delete;
    ~OpenWriters() {
        if (entries_ != usual_) {
            free(entries_);
        }
    }

    void push(const VN_EventWriter* writer, uint32_t kind) {
        if (depth_ == capacity_) {
            grow();
        }
        VN_ASSERT(depth_ < capacity_);
        entries_[depth_++] = {writer, 0, kind};
    }
    void pop() {
        VN_ASSERT(depth_ > 0);
        --depth_;
    }
    OpenWriter& innermost() {
        VN_ASSERT(depth_ > 0 && depth_ <= capacity_);
        return entries_[depth_ - 1];
    }
    size_t size() const { return depth_; }

  private:
    void grow() {
        capacity_ *= 2;
        const size_t size = capacity_ * sizeof(OpenWriter);
        if (entries_ == usual_) {
            entries_ = static_cast<OpenWriter*>(malloc(size));
            memcpy(entries_, usual_, sizeof usual_);
        } else {
            entries_ = static_cast<OpenWriter*>(realloc(entries_, size));
        }
    }

    OpenWriter usual_[16];
    OpenWriter* entries_ = usual_;
    size_t depth_ = 0;
    size_t capacity_ = std::size(usual_);
};

template <typename Output>
class Walk {
  public:
    explicit Walk(Output& output) : out_(output) {}

    void render(const VN_EventValue* value, uint32_t kind) {
        if (value != nullptr) {
            write(*value, kind);
        }
        while (open_.size() > 0) {
            resume();
        }
    }

  private:
    // Writes a value, or only the beginning if it contains other values.
    void write(const VN_EventValue& value, uint32_t kind) {
        const auto bits = std::bit_cast<uint64_t>(value.payload);
        const auto* text = static_cast<const char*>(value.payload);
        const auto* child = static_cast<const VN_EventWriter*>(value.payload);
        switch (kind) {
            case VN_EventKind_Integer:
                return out_.number(static_cast<int64_t>(bits));
            case VN_EventKind_String:
                return out_.string(text != nullptr ? text : "");
            case VN_EventKind_Character:
                return out_.character(static_cast<char>(bits));
            case VN_EventKind_Float:
                return out_.number(std::bit_cast<double>(bits));
            case VN_EventKind_Decimal:
                return out_.number(Decimal{bits});
            case VN_EventKind_Boolean:
                return out_.boolean((bits & 0xFF) != 0);
            case VN_EventKind_Sequence:
                return begin('[', child, kind);
            case VN_EventKind_Dictionary:
                return begin('{', child, kind);
            case VN_EventKind_Event:
                return beginEvent(child);
            case VN_EventKind_Unformatted:
                return out_.unformatted(text != nullptr ? text : "");
            default:
                return;
        }
    }

    void begin(char bracket, const VN_EventWriter* writer, uint32_t kind) {
        out_.single(bracket);
        if (writer == nullptr) {
            out_.absentWriter();
        } else {
            VN_ASSERT(writer->values != nullptr);
            open_.push(writer, kind);
        }
    }

    void beginEvent(const VN_EventWriter* event) {
        if (event != nullptr && event->name != nullptr) {
            out_.name(event->name);
            begin('(', event, VN_EventKind_Event);
        }
    }

    // Continues the innermost writer until it ends or a nested one begins.
    void resume() {
        OpenWriter& innermost = open_.innermost();
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
        const size_t depth = open_.size();
        const Vector& values = *list.writer->values;
        VN_ASSERT(list.step <= values.size);
        while (list.step < values.size) {
            if (list.step > 0) {
                out_.single(',');
            }
            writeItem(values, list.step++);
            if (open_.size() != depth) {
                return;
            }
        }
        end(bracket);
    }

    void resumeDictionary(OpenWriter& dictionary) {
        const size_t depth = open_.size();
        const Vector& keys = *dictionary.writer->keys;
        const Vector& values = *dictionary.writer->values;
        VN_ASSERT(dictionary.step <= uint64_t{2} * values.size);
        while (dictionary.step / 2 < values.size) {
            const uint64_t entry = dictionary.step / 2;
            const bool isKey = dictionary.step++ % 2 == 0;
            if (!isKey) {
                out_.single(':');
            } else if (entry > 0) {
                out_.single(',');
            }
            writeItem(isKey ? keys : values, entry);  // a missing key is empty
            if (open_.size() != depth) {
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
        out_.single(bracket);
        open_.pop();
    }

    Output& out_;
    OpenWriters open_;
};

}  // namespace vncommon

#endif
