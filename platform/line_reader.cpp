#include "platform/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace vncommon {

LineReader::LineReader(const char* path) : descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}

LineReader::~LineReader() {
    if (isOpen()) {
        close(descriptor);
    }
}

bool LineReader::fill() {
    ssize_t count;
    do {
        count = read(descriptor, chunk, sizeof chunk);
    } while (count < 0 && errno == EINTR);
    begin = 0;
    end = count > 0 ? static_cast<size_t>(count) : 0;
    return end > 0;
}

bool LineReader::next(char* piece, size_t size) {
    size_t length = 0;
    bool complete = false;
    while (!complete && length + 1 < size && (begin < end || fill())) {
        size_t count = std::min(end - begin, size - 1 - length);
        if (const void* lineFeed = memchr(chunk + begin, '\n', count)) {
            count = static_cast<size_t>(static_cast<const char*>(lineFeed) - (chunk + begin)) + 1;
            complete = true;
        }
        memcpy(piece + length, chunk + begin, count);
        begin += count;
        length += count;
    }
    piece[length] = '\0';
    return length > 0;
}

bool LineReader::atSpace() const {
    return isspace(static_cast<unsigned char>(chunk[begin])) != 0;
}

bool LineReader::nextField(char* field, size_t size) {
    while ((begin < end || fill()) && atSpace()) {
        ++begin;
    }
    size_t length = 0;
    for (; (begin < end || fill()) && !atSpace(); ++begin) {
        if (length + 1 < size) {
            field[length++] = chunk[begin];
        }
    }
    field[length] = '\0';
    return length > 0;
}

}  // namespace vncommon
