// The desktop application: one window over one AppModel for the life of the
// process, with the crash handler and the log installed first. Returns the
// process's exit status; 1 with a French message when there is no display.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qv::ui {

// The folder behind `--open`, when it is one; a file or a missing path is not.
std::optional<std::filesystem::path> folderToOpen(const std::vector<std::string>& arguments);

int run(int argc, char** argv, const std::vector<std::string>& arguments);

}  // namespace qv::ui
