// HandPlacement: where the user put files by hand, over the synchronisation.
// A file the sound could not place, or placed in doubt (AMBIGU), may be set
// at a start of the user's choosing, usually one of the starts the sound
// proposed (SyncCandidate). The choices are kept by the file's path relative
// to the set folder, so they survive reopening the set and a new run of the
// synchronisation, and are laid over each result as it comes. Plain values.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "sync/SyncResult.h"

namespace qv {

// Relative path ('/' between names) -> start on the set's time line, seconds.
using HandPlacements = std::map<std::string, double>;

namespace HandPlacement {

// The key of `file` in `folder`: its relative path with '/' separators;
// the plain path when it does not lie under the folder.
std::string keyOf(const std::filesystem::path& file, const std::filesystem::path& folder);

// `automatic` with every hand-placed file of the set at its start (held
// within limits::setTime): a placed file moves, an unplaced one joins the placed files,
// both marked `byHand` and not ambiguous; keys that name no file of the set
// are left aside. `placed` stays sorted by start.
SyncResult apply(const SyncResult& automatic, const HandPlacements& hand, const std::filesystem::path& folder);

// The candidate start nearest to `t` within `tolerance` seconds, else `t`.
double snap(double t, const std::vector<SyncCandidate>& candidates, double tolerance);

}  // namespace HandPlacement
}  // namespace qv
