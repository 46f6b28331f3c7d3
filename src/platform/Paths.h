// Per-user places on disk, following the XDG base directory rules: a
// variable that is unset, empty or not an absolute path falls back to its
// default under the home folder. Nothing here creates a folder. Any thread.
#pragma once

#include <filesystem>
#include <optional>

namespace qv::paths {

// $HOME, else the password database's entry, else "/".
std::filesystem::path home();

// $XDG_DATA_HOME, default ~/.local/share.
std::filesystem::path dataHome();
// $XDG_CONFIG_HOME, default ~/.config.
std::filesystem::path configHome();
// $XDG_STATE_HOME, default ~/.local/state.
std::filesystem::path stateHome();

// QUORVEL_PROJECTS_DIR when it is set and not empty. It moves both the
// project folder and the look library, so it is read on every call: tests
// and the self check point it at a temporary folder.
std::optional<std::filesystem::path> projectsOverride();

// The application's own folder: QUORVEL_PROJECTS_DIR, else dataHome()/Quorvel.
std::filesystem::path appData();

}  // namespace qv::paths
