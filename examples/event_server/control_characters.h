// Texts of clients end up in logs and on terminals, where a control character may do anything.
#ifndef VN_EXAMPLES_CONTROL_CHARACTERS_H
#define VN_EXAMPLES_CONTROL_CHARACTERS_H

#include <string>

// The text, which is UTF-8, with \n, \r, \t, and \u001b and the like in place of the control
// characters U+0000 to U+001F and U+007F to U+009F.
std::string withoutControls(const std::string& text);

#endif
