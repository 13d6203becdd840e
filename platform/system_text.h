// Names and texts, converted for system calls.
#ifndef VN_PLATFORM_SYSTEM_TEXT_H
#define VN_PLATFORM_SYSTEM_TEXT_H

#include <cerrno>
#include <cstdlib>

#include <vncommon/utf8.h>

namespace vncommon {

// Holds a UTF-8 text in the locale's code page during a system call. The text is null for null and
// without memory. The destructor preserves errno, so that the result of the call stays readable.
class SystemText {
  public:
    explicit SystemText(const char* utf8)
        : text_(utf8 != nullptr ? vn_UTF8ToCstr(utf8) : nullptr) {}
    ~SystemText() {
        const int savedErrno = errno;
        free(text_);
        errno = savedErrno;
    }
    SystemText(const SystemText&) = delete;
    SystemText& operator=(const SystemText&) = delete;

    const char* get() const { return text_; }

  private:
    char* text_;
};

}  // namespace vncommon

#endif
