// Angle: one camera as the player shows it, and the small rules that tell
// where it has a picture and what its monitor's caption says. Plain values;
// any thread.
#pragma once

#include <string>
#include <vector>

#include "base/Uuid.h"
#include "edit/AngleStatus.h"
#include "edit/TimeRange.h"
#include "sync/SyncResult.h"

namespace qv {

struct Angle {
    int id = 0;  // the camera's number, from 0
    Uuid sourceId;
    std::string name;
    bool hasPlayer = false;         // false when none of its files could be placed
    std::vector<TimeRange> ranges;  // where it has a picture, by time
    int width = 0, height = 0;      // of its first placed file

    // Whether the camera shows a picture at `t`: start <= t < end of a range.
    bool hasImage(double t) const;
    // The monitor's caption (see angleStatus).
    AngleStatus status(double t) const { return angleStatus(hasPlayer, ranges, t); }

    // The stretches of pictures of a camera's placed files, by the edit's
    // rule (AutoEditor::takeRanges), so the monitors and the cuts agree.
    static std::vector<TimeRange> rangesOf(std::vector<PlacedItem> files);
};

}  // namespace qv
