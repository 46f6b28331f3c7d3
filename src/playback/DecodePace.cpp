#include "playback/DecodePace.h"

#include <algorithm>
#include <utility>

namespace qv {

namespace {

// Clock times are sums of doubles: a stretch within this of its length has lasted it.
constexpr double kSlack = 1e-6;

}  // namespace

DecodePace::DecodePace() : DecodePace(Rule{}) {}

DecodePace::DecodePace(Rule rule) : rule_(rule), hold_(rule.recover) {}

void DecodePace::reset(double clock) {
    level_ = Level::light;
    hold_ = rule_.recover;
    changedAt_ = clock;
    earlySince_ = -1;
    starvedSince_ = -1;
    recoveredAt_ = -1e300;
    jumped_ = false;
}

bool DecodePace::jump() {
    jumped_ = true;
    return true;
}

bool DecodePace::late(double clock) {
    const bool afterJump = std::exchange(jumped_, false);
    earlySince_ = -1;
    // The start's own delay: the pictures up to the requested one come
    // after the program angle's.
    if (clock - changedAt_ < rule_.settle - kSlack) return level_ == Level::keyFrames && jump();
    const Level before = level_;
    if (level_ == Level::light) level_ = Level::anchors;
    else if (level_ == Level::anchors && afterJump) level_ = Level::keyFrames;
    if (level_ != before) {
        // A step up that fails within its own hold was too early: wait longer next time.
        if (clock - recoveredAt_ < hold_) hold_ = std::min(hold_ * 2, rule_.longestHold);
        changedAt_ = clock;
    }
    return jump();
}

bool DecodePace::behind(double next, double length, double clock) {
    if (length <= 0 || clock - next <= std::max(2 * length, 0.1) + kSlack) return false;
    return late(clock);
}

bool DecodePace::picture(double start, double end, double clock, bool starved) {
    // The program angle behind: key and P frames leave it room enough, and
    // the tile keeps several pictures a second (key frames alone would not).
    if (starved && clock < end) {
        earlySince_ = -1;
        if (starvedSince_ < 0) starvedSince_ = clock;
        if (level_ == Level::light && clock - changedAt_ >= rule_.settle - kSlack) {
            level_ = Level::anchors;
            changedAt_ = clock;
        }
        // Behind for long: only key frames, so the program can catch up.
        if (clock - starvedSince_ >= rule_.starvedLong - kSlack) {
            if (level_ != Level::keyFrames) changedAt_ = clock;
            level_ = Level::keyFrames;
        }
        jumped_ = false;
        return level_ == Level::keyFrames && jump();
    }
    if (!starved) starvedSince_ = -1;
    if (clock >= end) return late(clock);  // its time had passed before it could be shown
    jumped_ = false;
    if (start >= clock) {  // early; just in time is neither
        if (earlySince_ < 0) earlySince_ = clock;
        if (level_ != Level::light && clock - earlySince_ >= hold_ - kSlack &&
            clock - changedAt_ >= hold_ - kSlack) {
            level_ = level_ == Level::keyFrames ? Level::anchors : Level::light;
            changedAt_ = recoveredAt_ = clock;
            earlySince_ = clock;
            return false;
        }
    }
    return level_ == Level::keyFrames && jump();
}

}  // namespace qv
