// TimeRange: a stretch of the set's time line, in seconds, start <= end.
// Used for when a camera films and for the export range.
#pragma once

namespace qv {

struct TimeRange {
    double start = 0;
    double end = 0;

    bool operator==(const TimeRange&) const = default;
};

}  // namespace qv
