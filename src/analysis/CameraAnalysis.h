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

// The camera files of `result` (sources in `cameraSources`) that `known`
// lacks, measured one after the other. `progress` gets the share of the
// whole work done, 0 to 1, and answers false to stop: what was measured
// until then is returned. A file that cannot be read is left out.
MeasuresByPath measureCameras(const SyncResult& result, const std::vector<int>& cameraSources,
                              const MeasuresByPath& known = {},
                              const std::function<bool(double)>& progress = {});

// The stretches of each camera from the measures at hand.
CameraPictures picturesOf(const SyncResult& result, const std::vector<int>& cameraSources,
                          const MeasuresByPath& measures);

}  // namespace qv::analysis
