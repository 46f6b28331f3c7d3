// Constant-rate copies of variable-rate camera files (phones), for the
// editing programs: an editor reads a timeline file's frames at the nominal
// rate, so a phone's picture drifts from its sound inside the clip unless it
// reads a copy whose frames lie on a regular grid. A copy is the original's
// picture at its full display size, visually lossless (H.264 CRF 16, a key
// frame a second, deinterlaced, square pixels), at the standard rate nearest
// the original's mean rate; each of its frames shows what the player shows
// at that time. The sound is not copied: timeline files keep the
// original's.
//
// Copies are made whole, one per original, by the proxy machinery
// (ProxyMaker over a ProxyCache that cuts whole files), in
// $XDG_CACHE_HOME/quorvel/cadence-fixe under a key of the original's path,
// size and date, so they are reused across runs and a changed original makes
// its old copy stale.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "playback/Proxies.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::ConformCopies {

std::filesystem::path defaultFolder();
ProxyCache cache(std::filesystem::path folder = defaultFolder());

// The placed picture files of the set's cameras whose frame rate varies,
// each where its picture stands on the time line, in the order of the
// placement.
std::vector<ProxyFile> candidates(const std::vector<MediaSource>& sources, const SyncResult& result);

// "Cam 3/clip 2.mp4" for each of those files.
std::vector<std::string> names(const std::vector<MediaSource>& sources, const SyncResult& result);

// The proxy maker's writer of copies. `rates` gives each original's mean
// frame rate (MediaItem::frameRate); `share` is told how much of the copy
// under way is written (0 to 1), from the worker.
ProxyMaker::OpenWriter encoder(std::map<std::filesystem::path, double> rates,
                               std::shared_ptr<std::atomic<double>> share);

// The copies of `files` already made from the originals as they are now:
// original to copy.
std::map<std::filesystem::path, std::filesystem::path> existing(const ProxyCache& cache,
                                                                 const std::vector<ProxyFile>& files);

// Makes the missing copies of the set here and now, one worker, telling the
// share of all of them done; each failure is one French line to `log`.
// Returns every copy there is afterwards.
std::map<std::filesystem::path, std::filesystem::path> makeNow(
    const ProxyCache& cache, const std::vector<MediaSource>& sources, const SyncResult& result,
    const std::function<void(double)>& progress, const std::function<void(const std::string&)>& log);

}  // namespace qv::ConformCopies
