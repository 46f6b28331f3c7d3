#include "playback/Angle.h"

#include <algorithm>

#include "base/Format.h"

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
    std::stable_sort(files.begin(), files.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    std::vector<TimeRange> ranges;
    for (const auto& f : files) {
        if (ranges.empty() || f.start >= ranges.back().end + 0.5) {
            ranges.push_back({f.start, f.end()});
        } else {
            ranges.back().end = std::max(ranges.back().end, f.end());
        }
    }
    return ranges;
}

}  // namespace qv
