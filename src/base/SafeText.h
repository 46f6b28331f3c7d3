// Names come from the file system as bytes: any byte but '/' and NUL can be
// in them, invalid UTF-8 and control characters included. These turn such
// bytes into text that a terminal shows as it is or that XML 1.0 accepts.
#pragma once

#include <string>
#include <string_view>

namespace qv {

// Valid UTF-8 kept; control characters shown escaped ("\n", "\t", "\r",
// "\x1b", "\u0085") and each byte of invalid UTF-8 as "\xNN", so a name can
// neither break a line of a report nor drive the terminal.
std::string terminalSafe(std::string_view s);

// Valid UTF-8 kept; every character XML 1.0 forbids or that is a control
// character (C0, DEL, C1, U+FFFE, U+FFFF) and every byte of invalid UTF-8
// becomes U+FFFD, the replacement character.
std::string xmlSafe(std::string_view s);

}  // namespace qv
