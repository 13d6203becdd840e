// Splits a byte stream, received in pieces of any size, into lines.
#ifndef VN_EXAMPLES_LINE_SPLITTER_H
#define VN_EXAMPLES_LINE_SPLITTER_H

#include <cstddef>
#include <cstdint>
#include <string>

class LineSplitter {
  public:
    enum class Result { Line, TooLong, More };

    // Lines of limit bytes and more are too long.
    explicit LineSplitter(size_t limit) : limit_(limit) {}

    void add(const uint8_t* bytes, size_t length);

    // Line: the next line, without its line feed and a carriage return before that. TooLong:
    // returned once for such a line, as early as possible; its bytes are dropped. More: no complete
    // line is available yet.
    Result next(std::string& line);

    // Whether the stream is within a line that was not reported as too long.
    bool insideLine() const { return !skipping_ && begin_ < bytes_.size(); }

  private:
    size_t limit_;
    std::string bytes_;  // bytes from begin_ on are not returned yet
    size_t begin_ = 0;
    size_t searched_ = 0;    // before it there is no line feed
    bool skipping_ = false;  // up to the end of a line that was too long
};

#endif
