// DecodePace: how much of its stream one monitor tile decodes, chosen from
// how its own pictures come out against the clock. A tile starts light
// (pictures nothing refers to skipped, no deblocking). A tile that falls
// behind (a picture out after its time, or its next picture already past)
// jumps to the next key frame ahead of the clock rather than decoding its
// way through, and steps down to key and P frames; when even the first
// picture after a jump comes late, to key frames alone, jumping after each
// (the same steps, more slowly, when the program angle is behind). After a
// stretch of pictures ready before their time it steps back up by itself.
// Each angle has its own pace, so one heavy camera never slows the others.
//
// Times are seconds on the set's time line (the clock of play), so the rule
// runs the same on a real clock and on virtual time. Plain value; one thread.
#pragma once

#include "platform/MediaReader.h"

namespace qv {

class DecodePace {
public:
    enum class Level { light, anchors, keyFrames };

    struct Rule {
        double settle = 0.5;      // play after a step down before the next one: the step needs time to tell
        double recover = 2.0;     // play with every picture early before a step up
        double longestHold = 16;  // the hold before a step up doubles when a step up fails soon, up to this
        double starvedLong = 1.0;  // the program angle behind this long: key frames only
    };

    DecodePace();
    explicit DecodePace(Rule rule);

    // Starts again at the lightest level (a seek, a start of play); the
    // clock stands at `clock`. Lateness within the settle time after is the
    // start's own.
    void reset(double clock);

    // One picture decoded for [start, end) while the clock stood at
    // `clock`. Returns true when the tile should jump to the next key frame
    // ahead of the clock instead of decoding on. `starved`: the program
    // angle is behind; the tile steps down to key and P frames even when on
    // time, and does not step up; behind for long, to key frames only, so
    // the program gets the processor first.
    bool picture(double start, double end, double clock, bool starved = false);
    // The tile's next picture starts at `next`, its pictures `length` apart,
    // and the clock stands at `clock`: true when it is so far behind (two
    // pictures, and a tenth of a second) that it should jump now rather than
    // decode on; counted as a late picture.
    bool behind(double next, double length, double clock);

    Level level() const { return level_; }
    // What the decoder is asked to do at this level; jumps decode their key
    // frame and the P frames after it.
    media::DecodeCost cost() const {
        return level_ == Level::light ? media::DecodeCost::light : media::DecodeCost::anchors;
    }

private:
    bool late(double clock);  // a late picture: the step down and the jump
    bool jump();

    Rule rule_;
    Level level_ = Level::light;
    double hold_;
    double changedAt_ = 0;    // clock of the last step
    double earlySince_ = -1;  // clock since which every picture came early; < 0: not so
    double recoveredAt_ = -1e300;
    double starvedSince_ = -1;  // clock since which the program angle is behind; < 0: it is not
    bool jumped_ = false;       // the last answer was a jump: the next picture is a key frame
};

}  // namespace qv
