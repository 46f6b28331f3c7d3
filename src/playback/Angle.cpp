#include "playback/Angle.h"

#include <algorithm>

#include "base/Format.h"
#include "edit/AutoEditor.h"

namespace qv {

bool Angle::hasImage(double t) const {
    if (!hasPlayer) return false;
    return std::any_of(ranges.begin(), ranges.end(), [t](const TimeRange& r) { return r.start <= t && t < r.end; });
}

AngleStatus Angle::status(double t) const {
    if (!hasPlayer) return {"NON CALÉE", false};
    for (const auto& r : ranges) {
        if (r.start <= t && t < r.end) return {"COUPE DANS " + Format::countdown(r.end - t), r.end - t < 15};
    }
    for (const auto& r : ranges) {  // by time, so the first later one is the earliest
        if (r.start > t) return {"DÉMARRE DANS " + Format::countdown(r.start - t), false};
    }
    return {"TERMINÉE", false};
}

std::vector<TimeRange> Angle::rangesOf(std::vector<PlacedItem> files) {
    return AutoEditor::takeRanges(std::move(files));
}

}  // namespace qv
