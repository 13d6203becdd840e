// Texts from the platform's malloc, for code that must not end the process when memory is
// exhausted. The text is null then.
#ifndef VN_PLATFORM_OWNED_TEXT_H
#define VN_PLATFORM_OWNED_TEXT_H

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace vncommon {

struct PlainFree {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, PlainFree>;

// The concatenated parts; null without memory.
inline Text join(const char* first, const char* second, const char* third = "",
                 const char* fourth = "") {
    char* joined;
    const int length = asprintf(&joined, "%s%s%s%s", first, second, third, fourth);
    return Text(length < 0 ? nullptr : joined);
}

}  // namespace vncommon

#endif
