// PlayerControl: the few questions the edit puts to the multi-angle player,
// and the two orders it gives. The real player implements it; tests use a
// small fake. Main thread only.
#pragma once

#include <string>
#include <vector>

#include "edit/TimeRange.h"

namespace qv {

// What the edit needs to know of one camera's angle.
struct AngleInfo {
    std::string name;
    bool hasPicture = false;       // false when none of its files could be placed
    std::vector<TimeRange> ranges;  // where it has a picture; the end itself has none
};

class PlayerControl {
public:
    virtual ~PlayerControl() = default;

    virtual bool isPlaying() const = 0;
    virtual double currentTime() const = 0;
    // One per camera, indexed like Cut::camera; fixed for the player's life.
    virtual const std::vector<AngleInfo>& angles() const = 0;
    virtual void pause() = 0;
    virtual void seek(double time) = 0;
};

}  // namespace qv
