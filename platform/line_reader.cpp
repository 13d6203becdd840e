#include "platform/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "platform/assertion.h"

namespace vncommon {

LineReader::LineReader(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {}

LineReader::~LineReader() {
    VN_ASSERT(isValid());
    mark_.clear();
    if (isOpen()) {
        close(descriptor_);
    }
}

// The invariant, for assertions.
bool LineReader::isValid() const {
    return mark_.isSet() && begin_ <= end_ && end_ <= sizeof chunk_ && (isOpen() || end_ == 0);
}

bool LineReader::fill() {
    ssize_t count;
    do {
        count = read(descriptor_, chunk_, sizeof chunk_);
    } while (count < 0 && errno == EINTR);
    begin_ = 0;
    end_ = count > 0 ? static_cast<size_t>(count) : 0;
    return end_ > 0;
}

bool LineReader::next(std::span<char> piece) {
    VN_ASSERT(isValid());
    VN_ASSERT(piece.size() >= 2);
    size_t length = 0;
    bool complete = false;
    while (!complete && length + 1 < piece.size() && (begin_ < end_ || fill())) {
        size_t count = std::min(end_ - begin_, piece.size() - 1 - length);
        if (const void* lineFeed = memchr(chunk_ + begin_, '\n', count)) {
            count = static_cast<size_t>(static_cast<const char*>(lineFeed) - (chunk_ + begin_)) + 1;
            complete = true;
        }
        memcpy(&piece[length], chunk_ + begin_, count);
        begin_ += count;
        length += count;
    }
    VN_ASSERT(isValid());
    VN_ASSERT(length < piece.size());
    piece[length] = '\0';
    return length > 0;
}

bool LineReader::atSpace() const {
    VN_ASSERT(begin_ < end_);
    return isspace(static_cast<unsigned char>(chunk_[begin_])) != 0;
}

bool LineReader::nextField(std::span<char> field) {
    VN_ASSERT(isValid());
    VN_ASSERT(!field.empty());
    while ((begin_ < end_ || fill()) && atSpace()) {
        ++begin_;
    }
    size_t length = 0;
    for (; (begin_ < end_ || fill()) && !atSpace(); ++begin_) {
        if (length + 1 < field.size()) {
            field[length++] = chunk_[begin_];
        }
    }
    VN_ASSERT(isValid());
    VN_ASSERT(length < field.size());
    field[length] = '\0';
    return length > 0;
}

}  // namespace vncommon
