// Names in the tool's messages. A file name may hold any byte but '/' and NUL;
// a newline or an escape sequence in one would split a message's line or
// drive the terminal, so control characters are shown escaped.
#pragma once

#include <string>

namespace tavo::tool {

// `text` with tab, newline and carriage return as \t, \n, \r and every other
// byte below 0x20, and 0x7f, as \xNN (e.g. \x1b). Other bytes are kept.
std::string printable(const std::string& text);

}  // namespace tavo::tool
