// The pace of a tile, on the clock of play alone: a tile behind jumps to the
// next key frame and steps down (key frames alone when even the first
// picture after a jump is late), early pictures for a while step it back up,
// and a step up that fails soon makes the next one wait longer.
#include <gtest/gtest.h>

#include "playback/DecodePace.h"

namespace qv {
namespace {

using Level = DecodePace::Level;

// Pictures ready 0.2 s before their time, every 0.1 s of play in [from, to];
// whether each asked for a jump.
std::vector<bool> early(DecodePace& pace, double from, double to) {
    std::vector<bool> jumps;
    for (int k = 0; from + k * 0.1 <= to + 1e-9; ++k) {
        const double clock = from + k * 0.1;
        jumps.push_back(pace.picture(clock + 0.2, clock + 0.3, clock));
    }
    return jumps;
}

TEST(DecodePace, ATileBehindJumpsAndStepsDownThenEarlyPicturesStepItBackUp) {
    DecodePace pace;
    pace.reset(10);
    EXPECT_EQ(pace.level(), Level::light);
    EXPECT_EQ(pace.cost(), media::DecodeCost::light);

    // Late within the settle time of the reset: the start's own delay, kept.
    EXPECT_FALSE(pace.picture(10.0, 10.08, 10.2));
    EXPECT_EQ(pace.level(), Level::light);
    // Late after it: a jump to the next key frame, on key and P frames.
    EXPECT_TRUE(pace.picture(10.1, 10.18, 10.6));
    EXPECT_EQ(pace.level(), Level::anchors);
    EXPECT_EQ(pace.cost(), media::DecodeCost::anchors);
    // The key frame after the jump in time, then a picture late again: a
    // jump, and the level holds, since the jump kept it up for a while.
    EXPECT_FALSE(pace.picture(10.9, 11.0, 10.7));
    EXPECT_TRUE(pace.picture(11.0, 11.1, 11.2));
    EXPECT_EQ(pace.level(), Level::anchors);
    // Even the first picture after a jump late: key frames alone, each
    // followed by a jump, early or not.
    EXPECT_TRUE(pace.picture(11.5, 11.6, 11.7));
    EXPECT_EQ(pace.level(), Level::keyFrames);
    EXPECT_TRUE(pace.picture(11.8, 11.9, 11.85));

    // Early for two seconds of play: one step up, two more: light again.
    auto jumps = early(pace, 11.9, 13.8);
    EXPECT_EQ(pace.level(), Level::keyFrames);
    EXPECT_EQ(std::count(jumps.begin(), jumps.end(), false), 0);
    early(pace, 13.9, 13.9);
    EXPECT_EQ(pace.level(), Level::anchors);
    jumps = early(pace, 14.0, 15.8);
    EXPECT_EQ(std::count(jumps.begin(), jumps.end(), true), 0);
    EXPECT_EQ(pace.level(), Level::anchors);
    early(pace, 15.9, 15.9);
    EXPECT_EQ(pace.level(), Level::light);

    // A tile whose next picture is well behind the clock jumps rather than
    // decoding up to it; a little behind, it decodes on.
    EXPECT_FALSE(pace.behind(16.4, 0.04, 16.47));
    EXPECT_TRUE(pace.behind(16.4, 0.04, 16.6));
    EXPECT_EQ(pace.level(), Level::anchors);
}

TEST(DecodePace, AStepUpThatFailsSoonWaitsTwiceAsLongAndAResetForgetsIt) {
    DecodePace pace;
    pace.reset(0);
    pace.picture(0.6, 0.7, 1.0);  // late: anchors at 1.0
    early(pace, 1.15, 3.2);
    ASSERT_EQ(pace.level(), Level::light);  // back up at 3.15
    pace.picture(3.5, 3.6, 3.8);            // late again within the hold
    ASSERT_EQ(pace.level(), Level::anchors);
    // Two seconds of early pictures are no longer enough: four are.
    early(pace, 3.85, 7.75);
    EXPECT_EQ(pace.level(), Level::anchors);
    early(pace, 7.85, 7.85);
    EXPECT_EQ(pace.level(), Level::light);

    // The program angle behind: an early tile steps down all the same, to
    // key and P frames, and after a second of it to key frames only.
    EXPECT_FALSE(pace.picture(8.9, 9.0, 8.7, true));
    ASSERT_EQ(pace.level(), Level::anchors);
    EXPECT_FALSE(pace.picture(9.5, 9.6, 9.3, true));
    EXPECT_EQ(pace.level(), Level::anchors);
    EXPECT_TRUE(pace.picture(9.9, 10.0, 9.7, true));
    EXPECT_EQ(pace.level(), Level::keyFrames);
    pace.reset(20);
    EXPECT_EQ(pace.level(), Level::light);
    pace.picture(20.6, 20.7, 20.8);  // late after the settle: anchors, the hold is 2 s again
    early(pace, 20.85, 22.85);
    EXPECT_EQ(pace.level(), Level::light);
}

}  // namespace
}  // namespace qv
