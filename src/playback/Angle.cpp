#include "playback/Angle.h"

#include <algorithm>

#include "edit/AutoEditor.h"

namespace qv {

bool Angle::hasImage(double t) const {
    if (!hasPlayer) return false;
    return std::any_of(ranges.begin(), ranges.end(), [t](const TimeRange& r) { return r.start <= t && t < r.end; });
}

std::vector<TimeRange> Angle::rangesOf(std::vector<PlacedItem> files) {
    return AutoEditor::takeRanges(std::move(files));
}

}  // namespace qv
