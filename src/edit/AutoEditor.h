// AutoEditor: writes a whole edit from what is known of a set: when each
// camera films, where the drops are, where the bass hits fall. It walks the
// time line once, drawing a plan length and a camera, and emits a Cut at
// each change. A camera does not follow itself while another can take over,
// plans end on bass hits, and they get shorter for 16 s after a drop.
//
// The edit repeats exactly from the same inputs and seed, on any machine:
// all randomness is SplitMix64 started from the seed and the range start.
// Camera numbers are positions among the camera sources, from 0. Pure
// functions; callable from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "analysis/PictureGrades.h"
#include "base/Json.h"
#include "base/Uuid.h"
#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "music/DropDetector.h"
#include "sync/SyncResult.h"

namespace qv {

// The user's wishes for the automatic editor, stored with the project.
struct AutoSettings {
    std::set<Uuid> cameras;  // cameras the editor may use
    double minPlan = 2.0;    // seconds
    double maxPlan = 6.0;    // seconds
    bool snapToBeat = true;
    bool fasterOnDrops = true;
    std::map<Uuid, double> weights;  // percent; a camera without entry has 100
    uint64_t seed = 1;
    // The picture analysis: unusable stretches are left out, weak ones drawn less.
    bool avoidUnusable = true;

    // What the automatic-edit panel offers; values read from files are held inside.
    static constexpr Range minPlanRange{0.5, 15};
    static constexpr Range maxPlanRange{0.5, 30};
    static constexpr Range weightRange{0, 100};

    bool operator==(const AutoSettings&) const = default;
};

// nlohmann hooks; every key read on its own, a missing or unreadable one
// keeps its default.
void to_json(json::Json& j, const AutoSettings& s);
void from_json(const json::Json& j, AutoSettings& s);

namespace AutoEditor {

// The stretches `files` cover, by time: a file that starts 0.5 s or more
// after the previous stretch's end opens a new one, shorter gaps are bridged.
std::vector<TimeRange> takeRanges(std::vector<PlacedItem> files);

// When each camera films: one list per entry of `cameraSources` (source
// indices), its placed video files merged by `takeRanges`.
std::vector<std::vector<TimeRange>> cameraRanges(const SyncResult& result, const std::vector<int>& cameraSources);

// `ranges` less the stretches of `holes` (both in time order).
std::vector<TimeRange> without(const std::vector<TimeRange>& ranges, const std::vector<analysis::PictureStretch>& holes);

// How much less a camera is drawn while its picture is weak.
inline constexpr double weakWeight = 0.3;
// How far a plan keeps from an unusable stretch: a fault's first
// half-second may still be judged good (a half-second's grade stands for
// most of it, and a camera's encoder takes a few pictures to settle on a
// frozen one).
inline constexpr double unusableMargin = 0.5;

// Cuts over `range`, in time order; `weights` maps a camera number to its
// weight in percent (100 without an entry). Cameras outside `allowed` are
// never used. Nothing films: no cuts.
//
// `pictures` (by camera number; empty: all good) takes the unusable
// stretches out of the filming ranges, so no plan lies on them, and draws a
// camera less while its picture is weak. A camera's share is reckoned over
// the time it could have been shown, its unusable stretches left out, so it
// is neither chased for them afterwards nor favoured by them.
std::vector<Cut> generate(TimeRange range, const std::vector<std::vector<TimeRange>>& cameraRanges,
                          const std::set<int>& allowed, const std::vector<Drop>& drops,
                          const std::vector<double>& onsets, const AutoSettings& settings,
                          const std::map<int, double>& weights, const analysis::CameraPictures& pictures = {});

}  // namespace AutoEditor
}  // namespace qv
