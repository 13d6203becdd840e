// Names and texts on their way to the system.
#ifndef VN_PLATFORM_SYSTEM_TEXT_H
#define VN_PLATFORM_SYSTEM_TEXT_H

#include <cerrno>
#include <cstdlib>

#include <vncommon/utf8.h>

namespace vncommon {

// A UTF-8 text in the locale's code page, for as long as a system call needs it; null for null and
// when there is no memory. Its release leaves errno as that call set it.
class SystemText {
  public:
    explicit SystemText(const char* utf8) : text(utf8 != nullptr ? vn_UTF8ToCstr(utf8) : nullptr) {}
    ~SystemText() {
        const int savedErrno = errno;
        free(text);
        errno = savedErrno;
    }
    SystemText(const SystemText&) = delete;
    SystemText& operator=(const SystemText&) = delete;

    const char* get() const { return text; }

  private:
    char* text;
};

}  // namespace vncommon

#endif
