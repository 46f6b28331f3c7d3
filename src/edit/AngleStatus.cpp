#include "edit/AngleStatus.h"

#include <optional>

#include "base/Format.h"

namespace qv {

AngleStatus angleStatus(bool hasPicture, const std::vector<TimeRange>& ranges, double t) {
    if (!hasPicture) return {"NON CALÉE", false};
    std::optional<double> nextStart;
    for (const TimeRange& r : ranges) {
        if (r.start <= t && t < r.end) return {"COUPE DANS " + Format::countdown(r.end - t), r.end - t < 15};
        if (r.start > t && (!nextStart || r.start < *nextStart)) nextStart = r.start;
    }
    if (nextStart) return {"DÉMARRE DANS " + Format::countdown(*nextStart - t), false};
    return {"TERMINÉE", false};
}

}  // namespace qv
