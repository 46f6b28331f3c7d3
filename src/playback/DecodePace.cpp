#include "playback/DecodePace.h"

#include <algorithm>

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
            return true;
        }
        return false;
    }
    if (!starved) starvedSince_ = -1;
    if (clock >= end) {
        // Late: its time had passed before it could be shown.
        earlySince_ = -1;
        if (level_ == Level::keyFrames) return true;
        if (clock - changedAt_ < rule_.settle - kSlack) return false;
        // A step up that fails within its own hold was too early: wait longer next time.
        if (clock - recoveredAt_ < hold_) hold_ = std::min(hold_ * 2, rule_.longestHold);
        level_ = level_ == Level::light ? Level::anchors : Level::keyFrames;
        changedAt_ = clock;
        return level_ == Level::keyFrames;
    }
    if (start < clock) return false;  // just in time: neither late nor early
    if (earlySince_ < 0) earlySince_ = clock;
    if (level_ != Level::light && clock - earlySince_ >= hold_ - kSlack && clock - changedAt_ >= hold_ - kSlack) {
        level_ = level_ == Level::keyFrames ? Level::anchors : Level::light;
        changedAt_ = recoveredAt_ = clock;
        earlySince_ = clock;
    }
    return false;
}

}  // namespace qv
