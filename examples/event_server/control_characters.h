// Escapes control characters in client texts, which appear in logs and on terminals.
#ifndef VN_EXAMPLES_CONTROL_CHARACTERS_H
#define VN_EXAMPLES_CONTROL_CHARACTERS_H

#include <string>

// Returns the UTF-8 text with escapes (\n, \r, \t, \u001b ...) in place of the control characters
// U+0000 to U+001F and U+007F to U+009F.
std::string withoutControls(const std::string& text);

#endif
