// The built-in self check (`quorvel --selftest [folder]`): checks that need
// no file (reference values of the maths), then every prepared set in the
// fixtures folder (a sub-folder holding the generator's truth.json): each
// file placed where the truth says, the hard cases set aside, the drops
// found, the XML well formed. Prints one line per check and, last,
// "N passed, M failed"; the exit status is 0 when nothing failed.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace qv::SelfTest {

struct Check {
    std::string name;
    bool passed = false;
    std::string detail;  // why it failed, in French
};

std::vector<Check> builtInChecks();

// Every check of one generated set against its truth.json.
std::vector<Check> checkSet(const std::filesystem::path& set);

int run(const std::filesystem::path& fixtures, std::ostream& out);

}  // namespace qv::SelfTest
