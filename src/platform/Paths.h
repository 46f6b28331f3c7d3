// Per-user places on disk, following the XDG base directory rules: a
// variable that is unset, empty or not an absolute path falls back to its
// default under the home folder. Only `writeSetting` creates a folder.
// Any thread; the settings file has no lock of its own, so its writers are
// expected on one thread (the interface thread).
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Json.h"

namespace qv::paths {

// $HOME, else the password database's entry, else "/".
std::filesystem::path home();

// $XDG_DATA_HOME, default ~/.local/share.
std::filesystem::path dataHome();
// $XDG_CONFIG_HOME, default ~/.config.
std::filesystem::path configHome();
// $XDG_STATE_HOME, default ~/.local/state.
std::filesystem::path stateHome();
// $XDG_CACHE_HOME, default ~/.cache.
std::filesystem::path cacheHome();

// QUORVEL_PROJECTS_DIR when it is set and not empty. It moves both the
// project folder and the look library, so it is read on every call: tests
// and the self check point it at a temporary folder.
std::optional<std::filesystem::path> projectsOverride();

// The application's own folder: QUORVEL_PROJECTS_DIR, else dataHome()/Quorvel.
std::filesystem::path appData();

// XDG_DOWNLOAD_DIR from $XDG_CONFIG_HOME/user-dirs.dirs ("$HOME/..." or an
// absolute path), else ~/Downloads. The folder need not exist.
std::filesystem::path downloads();

// $XDG_CONFIG_HOME/quorvel/settings.json
std::filesystem::path settingsFile();

// A path made absolute (against the working folder) with "." and ".."
// resolved by name and no trailing separator, so that two spellings of one
// folder compare equal. Links are not resolved. Empty stays empty.
std::filesystem::path standardized(const std::filesystem::path& p);

// Files -----------------------------------------------------------------
// Whole-file reads and atomic replacement: the bytes go to a temporary file
// in the same folder, are flushed to the disk, then renamed over `file`, so
// a reader sees the old file or the new one, never half of one. A failure
// leaves the old file and no temporary behind.

// Nothing when the path is not a regular file or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& file);
bool writeAtomically(const std::filesystem::path& file, std::string_view bytes);

// A symbolic link to `file` under cacheHome()/quorvel/liens, with a name
// any format can hold: the FNV-1a hash of the path's bytes and what is
// plain ASCII of its name (the extension kept, for readers that look at
// it). Made once and reused; nothing when it cannot be made. Deleting the
// cache loses only the links.
std::optional<std::filesystem::path> plainNameLink(const std::filesystem::path& file);
// The links of `files` by each file's path; files without one are left out.
std::map<std::string, std::filesystem::path> plainNameLinks(const std::vector<std::filesystem::path>& files);

// Writes all `n` bytes to `fd`, retrying short writes and interruptions.
// Async-signal-safe (only write(2)), so the crash handler may use it.
bool writeAll(int fd, const char* p, size_t n);

// The settings file: one JSON object, one key per setting, shared by the
// application settings and the log's launch date. Each change re-reads the
// file and replaces only its own key, so writers never undo each other.
// Reading gives an empty object when the file is missing or damaged.
json::Json readSettings(const std::filesystem::path& file);
// Creates the folder if needed; nothing as `value` removes the key.
void writeSetting(const std::filesystem::path& file, const std::string& key, const std::optional<json::Json>& value);

}  // namespace qv::paths
