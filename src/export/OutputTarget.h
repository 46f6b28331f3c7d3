// OutputTarget: the one rule on where an export may be written. Whatever
// writes a file for the user (timelines, `.cube` LUTs, videos, drop clips,
// on the command line or from the window) asks `check` first, before any
// work, and writes nothing when it answers no.
//
//   - Nothing is written in the set folder or below it (nor in any folder a
//     source was read from): a render beside the rushes would become a rush.
//   - No file the project reads is replaced: rushes, the project file, its
//     cache, its LUTs. Files are compared by device and inode, so a hard
//     link, a symbolic link or another spelling of the path is caught too.
//   - The target must not be a folder, its folder must exist and be
//     writable.
//
// Messages are French and name the file. Pure queries of the file system,
// any thread.
#pragma once

#include <filesystem>
#include <vector>

#include "base/Result.h"
#include "sync/Media.h"

namespace qv::OutputTarget {

// What must never be written over.
struct Protected {
    std::vector<std::filesystem::path> folders;  // nothing is written in or under these; the set's first
    std::vector<std::filesystem::path> files;    // these are never replaced
};

// The set folder, every source's folder and every file of the set, the
// unreadable ones included.
Protected ofSet(const std::filesystem::path& setFolder, const std::vector<MediaSource>& sources);
// The same from the folder alone, before any scan: every folder and file
// under it, links followed as the scanner follows them (each folder once).
Protected ofFolder(const std::filesystem::path& setFolder);

// Ok when a file may be written at `target`; otherwise why not.
Status check(const std::filesystem::path& target, const Protected& owned);

// For a folder of outputs (the drop clips): made with its parents when
// missing, then held to the same rule as a file in it.
Status prepareFolder(const std::filesystem::path& folder, const Protected& owned);

}  // namespace qv::OutputTarget
