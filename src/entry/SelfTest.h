// The built-in self check (`quorvel --selftest [folder]`): runs the program's
// chain over prepared sets and prints what passed, ending with the line
// "N passed, M failed". Returns the exit status (0 when nothing failed).
#pragma once

#include <filesystem>
#include <ostream>

namespace qv::SelfTest {

int run(const std::filesystem::path& fixtures, std::ostream& out);

}  // namespace qv::SelfTest
