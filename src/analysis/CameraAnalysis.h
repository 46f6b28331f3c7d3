// CameraAnalysis: the picture analysis of a whole synchronised set, file by
// file of every camera, and the stretches it gives each camera on the set's
// time line. Callable from any thread; the caller decides which (the
// application runs it on a worker of the lowest priority).
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "analysis/FileMeasures.h"
#include "analysis/PictureGrades.h"
#include "sync/SyncResult.h"

namespace qv::analysis {

// Measures of camera files, by the file's path as the scanner gave it.
using MeasuresByPath = std::map<std::string, FileMeasures>;

// Where the pictures of a camera file are read: the file itself, or copies
// that show the same pictures for far less decoding (the preview chunks the
// player makes anyway), or not yet: the copies are on their way.
struct PictureRoad {
    enum class Kind { original, copies, later };
    Kind kind = Kind::original;
    std::vector<PicturePiece> pieces;  // of `copies`, in time order
};

struct MeasureOptions {
    // The share of the whole work done, 0 to 1, and whether the files left
    // all wait for their copies; answers false to stop.
    std::function<bool(double share, bool waiting)> progress;
    // Each file's road; none: every file is read from itself.
    std::function<PictureRoad(const MediaItem&)> roadOf;
    // Called when every file left waits for its copies; returns when they
    // are worth asking about again.
    std::function<void()> pause;
};

// The camera files of `result` (sources in `cameraSources`) that `known`
// lacks, measured one after the other, the ones whose copies are ready
// first. What was measured when `progress` asks to stop is returned. A file
// that cannot be read is left out; copies that cannot be read give way to
// the original.
MeasuresByPath measureCameras(const SyncResult& result, const std::vector<int>& cameraSources,
                              const MeasuresByPath& known = {}, const MeasureOptions& options = {});

// The stretches of each camera from the measures at hand.
CameraPictures picturesOf(const SyncResult& result, const std::vector<int>& cameraSources,
                          const MeasuresByPath& measures);

}  // namespace qv::analysis
