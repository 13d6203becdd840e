// Reads a file in pieces as fgets does, but without the heap: the out-of-memory path uses it to
// read the size of the process.
#ifndef VN_PLATFORM_LINE_READER_H
#define VN_PLATFORM_LINE_READER_H

#include <cstddef>
#include <span>

#include "platform/alive_mark.h"

namespace vncommon {

class LineReader {
  public:
    explicit LineReader(const char* path);  // when isOpen() is false, errno holds the reason
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return descriptor_ >= 0; }

    // The next line with its line feed, or as much of a longer one as fits, terminated. False at
    // the end of the file, on an error and when the file is not open. piece has room for 2 bytes.
    bool next(std::span<char> piece);

    // The next run of bytes that are not white space, terminated. Line feeds are white space, as
    // for fscanf's %s. Bytes of a run that do not fit are skipped. False at the end.
    bool nextField(std::span<char> field);

  private:
    bool isValid() const;
    bool fill();
    bool atSpace() const;

    int descriptor_;
    size_t begin_ = 0;  // the unread bytes are chunk_[begin_, end_)
    size_t end_ = 0;
    char chunk_[1024];
    [[no_unique_address]] AliveMark mark_;
};

}  // namespace vncommon

#endif
