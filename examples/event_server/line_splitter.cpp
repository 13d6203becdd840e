#include "line_splitter.h"

void LineSplitter::add(const uint8_t* bytes, size_t length) {
    bytes_.erase(0, begin_);
    searched_ -= begin_;
    begin_ = 0;
    bytes_.append(reinterpret_cast<const char*>(bytes), length);
}

LineSplitter::Result LineSplitter::next(std::string& line) {
    const size_t feed = bytes_.find('\n', searched_);
    if (skipping_) {
        skipping_ = feed == std::string::npos;
        begin_ = searched_ = skipping_ ? bytes_.size() : feed + 1;
        return skipping_ ? Result::More : next(line);
    }
    const size_t end = feed == std::string::npos ? bytes_.size() : feed;
    if (end - begin_ >= limit_) {
        skipping_ = feed == std::string::npos;
        begin_ = searched_ = skipping_ ? end : end + 1;
        return Result::TooLong;
    }
    searched_ = end;
    if (feed == std::string::npos) {
        return Result::More;
    }
    const bool carriageReturn = end > begin_ && bytes_[end - 1] == '\r';
    line.assign(bytes_, begin_, end - begin_ - (carriageReturn ? 1 : 0));
    begin_ = searched_ = end + 1;
    return Result::Line;
}
