// AngleStatus: the caption a camera's monitor shows at a time, from where the
// camera has pictures. One rule for the player's angles and the screens.
#pragma once

#include <string>
#include <vector>

#include "edit/TimeRange.h"

namespace qv {

struct AngleStatus {
    std::string text;
    bool urgent = false;

    bool operator==(const AngleStatus&) const = default;
};

// "NON CALÉE" without pictures, "COUPE DANS 1:10" inside a range (urgent
// under 15 s left), "DÉMARRE DANS 0:42" before the earliest later range,
// "TERMINÉE" after the last. A range's end itself has no picture.
AngleStatus angleStatus(bool hasPicture, const std::vector<TimeRange>& ranges, double t);

}  // namespace qv
