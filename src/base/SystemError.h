// The system's error codes in French words, whatever the process locale:
// strerror follows LC_MESSAGES and would mix English into French messages.
#pragma once

#include <string>
#include <system_error>

namespace qv {

// "permission refusée", "plus de place sur le disque"... for errno `code`;
// an uncommon code gives "erreur système {code}".
// Every system error that reaches the user or the log goes through here.
std::string systemMessage(int code);
// The same for the error codes of std::filesystem.
std::string systemMessage(const std::error_code& ec);

}  // namespace qv
