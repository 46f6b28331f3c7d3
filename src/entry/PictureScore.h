// How well the picture analysis finds the faults the set generator filmed
// (truth.json): the share of unusable half-seconds it finds, the share of
// good ones it wrongly calls unusable, and how much of an edit lies on a
// fault. Read by the tests and the benchmark, on sets whose files stand at
// their true starts (SetTruth::placedJob).
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "analysis/CameraAnalysis.h"
#include "edit/Cut.h"
#include "entry/SetTruth.h"

namespace qv {

struct PictureScore {
    int unusable = 0;      // half-seconds a fault fills at least half of
    int found = 0;         // of those, graded unusable
    int good = 0;          // half-seconds no fault touches
    int falseAlarms = 0;   // of those, graded unusable
    std::map<std::string, int> missed;  // unusable ones not found, by the truth's name of their fault
    double foundShare() const { return unusable ? static_cast<double>(found) / unusable : 1.0; }
    double falseShare() const { return good ? static_cast<double>(falseAlarms) / good : 0.0; }
};

using analysis::MeasuresByPath;

// The grades of `measures` set against `truth`, half-second by half-second
// of each file's own time line.
PictureScore scorePictures(const SetTruth& truth, const std::filesystem::path& set, const VideoRender::Job& job,
                           const MeasuresByPath& measures);

// Seconds of `plans` that show a camera while the truth says its picture is
// faulty, and each camera's seconds on screen.
struct PlanScore {
    double onFaults = 0;
    std::vector<double> shown;  // by camera number
};
PlanScore scorePlans(const SetTruth& truth, const std::filesystem::path& set, const VideoRender::Job& job,
                     const std::vector<Segment>& plans);

}  // namespace qv
