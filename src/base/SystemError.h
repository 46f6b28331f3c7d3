// The system's error codes in French words, whatever the process locale:
// strerror follows LC_MESSAGES and would mix English into French messages.
#pragma once

#include <string>

namespace qv {

// "permission refusée", "plus de place sur le disque"... for errno `code`;
// an uncommon code gives "erreur système {code}".
std::string systemMessage(int code);

}  // namespace qv
