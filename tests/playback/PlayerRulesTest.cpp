// The rules of the player that need no media: where an angle has pictures,
// its caption, preview fades, the silent output's clock, and
// the time line's clamps and end on a player without readers.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "PlaybackRig.h"
#include "playback/Angle.h"
#include "playback/AudioOutput.h"
#include "playback/SoundMix.h"

namespace qv {
namespace {

PlacedItem placed(int source, double start, double duration) {
    PlacedItem p;
    p.sourceIndex = source;
    p.start = start;
    p.item.duration = duration;
    p.item.width = 320;
    p.item.height = 180;
    p.item.hasVideo = true;
    return p;
}

TEST(AngleTest, GapsUnderHalfASecondAreNotGaps) {
    auto one = Angle::rangesOf({placed(0, 10.4, 5), placed(0, 0, 10)});
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0], (TimeRange{0, 15.4}));
    auto two = Angle::rangesOf({placed(0, 0, 10), placed(0, 10.5, 5)});
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[1], (TimeRange{10.5, 15.5}));
    // A file inside the previous one does not shorten the range.
    EXPECT_EQ(Angle::rangesOf({placed(0, 0, 10), placed(0, 2, 3)}), (std::vector<TimeRange>{{0, 10}}));
}

TEST(AngleTest, CaptionsCountDownAndTurnUrgentUnderFifteenSeconds) {
    Angle angle;
    angle.hasPlayer = true;
    angle.ranges = {{0, 100}, {130, 200}};
    EXPECT_EQ(angle.status(30), (AngleStatus{"COUPE DANS 1:10", false}));
    EXPECT_EQ(angle.status(86), (AngleStatus{"COUPE DANS 0:14", true}));
    EXPECT_EQ(angle.status(100), (AngleStatus{"DÉMARRE DANS 0:30", false}));
    EXPECT_EQ(angle.status(200), (AngleStatus{"TERMINÉE", false}));
    EXPECT_TRUE(angle.hasImage(0));
    EXPECT_FALSE(angle.hasImage(100));
    angle.hasPlayer = false;
    EXPECT_EQ(angle.status(30), (AngleStatus{"NON CALÉE", false}));
    EXPECT_FALSE(angle.hasImage(30));
}

TEST(SoundMixTest, FadesOfTwoSecondsOnAThreeSecondFileTakeHalfOfIt) {
    std::vector<TimeRange> ranges{{10, 13}};
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 2, 10), 0.0);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 2, 10.75), 0.5);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 2, 11.5), 1.0);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 2, 12.25), 0.5);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 2, 13), 0.0);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 0, 10), 1.0);
    EXPECT_DOUBLE_EQ(SoundMix::fadeAt(ranges, 0, 9.99), 0.0);

    // Each sample gets the gain of its own time, in the ramps and between them.
    const double rate = 1000;
    const size_t frames = 4000;
    std::vector<float> source(frames * 2, 0.5f), mix(frames * 2, 0.0f);
    for (size_t block = 0; block < frames; block += 256) {
        size_t n = std::min<size_t>(256, frames - block);
        SoundMix::addWithGain(mix.data() + block * 2, source.data(), n, 2, 9.5 + block / rate, rate, 0.8, ranges, 2);
    }
    for (size_t i = 0; i < frames; ++i) {
        float want = static_cast<float>(0.4 * SoundMix::fadeAt(ranges, 2, 9.5 + i / rate));
        ASSERT_FLOAT_EQ(mix[i * 2], want) << i;
        ASSERT_FLOAT_EQ(mix[i * 2 + 1], want) << i;
    }
}

TEST(SilentAudioOutputTest, PlaysAtTheClocksRateAndStandsStillWhenStarved) {
    std::atomic<double> now{0};
    SilentAudioOutput out([&] { return now.load(); }, 1000, 1, 0.5);
    EXPECT_EQ(out.space(), 500u);
    std::vector<float> ramp(600);
    for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i);
    EXPECT_EQ(out.write(ramp.data(), 600), 500u);
    out.setCapture(true);
    now = 1;  // not started: nothing plays
    EXPECT_EQ(out.playedFrames(), 0);
    out.start();
    now = 1.2;
    EXPECT_EQ(out.playedFrames(), 200);
    EXPECT_EQ(out.space(), 200u);
    now = 3;  // only 300 more were queued
    EXPECT_EQ(out.playedFrames(), 500);
    EXPECT_EQ(out.write(ramp.data() + 500, 100), 100u);
    now = 3.05;  // the position resumes from where it starved
    EXPECT_EQ(out.playedFrames(), 550);
    auto captured = out.takeCaptured();
    ASSERT_EQ(captured.size(), 550u);
    for (size_t i = 0; i < captured.size(); ++i) ASSERT_EQ(captured[i], static_cast<float>(i));
    out.pause();
    now = 9;
    EXPECT_EQ(out.playedFrames(), 550);
    out.flush();
    EXPECT_EQ(out.playedFrames(), 0);
    EXPECT_EQ(out.space(), 500u);
}

// A set of one camera whose files have no reader: the player runs on the
// steady clock alone.
class PlayerClockTest : public ::testing::Test {
protected:
    PlayerClockTest() {
        sources = {{Uuid::make(), "Cam A", SourceKind::camera, {}, {}}, {Uuid::make(), "Cam B", SourceKind::camera, {}, {}}};
        result.placed = {placed(0, 0, 10), placed(0, 12, 8)};
        player = std::make_unique<MulticamPlayer>(sources, result, clock.options({}));
    }
    void advance(double seconds) { clock.run(*player, seconds); }

    test::Clocked clock;
    std::vector<MediaSource> sources;
    SyncResult result;
    std::unique_ptr<MulticamPlayer> player;
};

TEST_F(PlayerClockTest, SeeksClampAndPlayNearTheEndStartsOver) {
    EXPECT_EQ(player->duration(), 20);
    EXPECT_EQ(player->clockKind(), MulticamPlayer::ClockKind::steady);
    EXPECT_EQ(player->clockSource(), sources[0].id);
    ASSERT_EQ(player->cameraAngles().size(), 2u);
    EXPECT_EQ(player->angles()[1].hasPicture, false);
    EXPECT_EQ(player->angles()[0].ranges, (std::vector<TimeRange>{{0, 10}, {12, 20}}));

    player->seek(-5);
    EXPECT_EQ(player->currentTime(), 0);
    player->seek(1e9);
    EXPECT_EQ(player->currentTime(), 20);
    player->seek(19.96);
    player->play();
    EXPECT_TRUE(player->isPlaying());
    EXPECT_EQ(player->currentTime(), 0);
    player->pause();
    player->seek(19.9);
    player->play();
    EXPECT_EQ(player->currentTime(), 19.9);
}

TEST_F(PlayerClockTest, TimeMovesEveryThirtiethOfASecondAndPausesAtTheEnd) {
    int changes = 0;
    player->setOnChange([&] { ++changes; });
    player->seek(18);
    player->play();
    advance(1.0 / 30);
    // The start holds the clock for the first tick, then it runs.
    EXPECT_EQ(player->currentTime(), 18);
    advance(0.5);
    EXPECT_NEAR(player->currentTime(), 18.5, 1.0 / 30 + 1e-9);
    int before = changes;
    advance(1.0 / 30);
    EXPECT_GT(changes, before);
    player->pause();
    double paused = player->currentTime();
    EXPECT_FALSE(player->isPlaying());
    advance(1);
    EXPECT_EQ(player->currentTime(), paused);
    player->play();
    advance(3);
    EXPECT_FALSE(player->isPlaying());
    EXPECT_GE(player->currentTime(), 20 - 0.02);
    EXPECT_EQ(clock.scheduler.pendingCount(), 0u);
    player->play();  // from the end: from 0 again
    EXPECT_EQ(player->currentTime(), 0);
    player->stop();
    EXPECT_FALSE(player->isPlaying());
    player->play();
    EXPECT_FALSE(player->isPlaying());
}

}  // namespace
}  // namespace qv
