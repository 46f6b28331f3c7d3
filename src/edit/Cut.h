// The edit of a set is one flat list of camera switches (Cut). The plans
// (Segment) are worked out from it and the set's duration whenever they are
// needed, never stored, so the list of cuts is the only truth to save, undo
// and export.
//
// Camera numbers are positions among the sources of kind camera, from 0.
// Times are seconds on the set's time line. Plain values.
#pragma once

#include <optional>
#include <vector>

#include "base/Uuid.h"
#include "effects/EffectSettings.h"

namespace qv {

// From `time` on, `camera` is shown. The plan that starts here carries the
// effect and the look overrides.
struct Cut {
    Uuid id = Uuid::make();  // new for every cut; not persisted
    double time = 0;
    int camera = 0;
    PlanEffect effect = PlanEffect::automatic;
    PlanLooks looks;

    bool operator==(const Cut&) const = default;
};

// One plan, from its cut to the next one (or the end of the set).
struct Segment {
    int id = 0;  // index in the built list
    double start = 0;
    double end = 0;
    int camera = 0;
    std::optional<int> cutIndex;  // absent for the implicit first plan
    PlanEffect effect = PlanEffect::automatic;
    PlanLooks looks;

    // `cuts` ascending by time. When there is no cut at the very start
    // (within 1 ms), an implicit first plan on camera 0 stands ahead of
    // them, so the list is never empty.
    static std::vector<Segment> build(const std::vector<Cut>& cuts, double duration);
};

// Stable sort by time, the order `cuts` is always kept in.
void sortByTime(std::vector<Cut>& cuts);

}  // namespace qv
