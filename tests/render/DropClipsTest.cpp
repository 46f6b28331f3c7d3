// Clips of the drops: the range around each drop held inside the set, the
// user's cuts where the range has some and the automatic edit elsewhere,
// every frame of every clip read back by its frame code, and the loudness
// of each clip as ffmpeg's own meter reads it.
#include <gtest/gtest.h>

#include <cmath>

#include "render/DropClips.h"
#include "render/Limiter.h"
#include "render/RenderFixtures.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

TEST(DropClips, RangesAndNames) {
    // Near the start the clip begins at 0; near the end it stops at the end.
    EXPECT_EQ(DropClips::rangeOf(6, 15, 30, 240), (TimeRange{0, 36}));
    EXPECT_EQ(DropClips::rangeOf(100, 15, 30, 240), (TimeRange{85, 130}));
    EXPECT_EQ(DropClips::rangeOf(225, 15, 30, 240), (TimeRange{210, 240}));
    EXPECT_EQ(DropClips::fileName("Club", 2, 125.3, "mp4"), "Club - drop 2 (2:05).mp4");
    EXPECT_EQ(DropClips::progressLine(2, 5, 0.345), "Clips des drops : 2 / 5 · 34 %");
}

TEST(Limiter, QuietSoundPassesUntouchedAndLoudPeaksStayUnderTheCeiling) {
    const int rate = 48000;
    PeakLimiter quiet(rate, 2, 0.8f);
    std::vector<float> in(rate * 2), out(in.size());
    for (size_t i = 0; i < in.size(); ++i) in[i] = 0.5f * static_cast<float>(std::sin(i * 0.01));
    quiet.process(in.data(), out.data(), in.size() / 2);
    const size_t late = static_cast<size_t>(quiet.latency()) * 2;
    for (size_t i = late; i < in.size(); ++i) ASSERT_EQ(out[i], in[i - late]) << i;
    EXPECT_EQ(quiet.deepestGain(), 1.0f);

    // A kick far over the ceiling, with a peak that falls between samples.
    PeakLimiter loud(rate, 2, 0.8f);
    for (size_t i = 0; i < in.size(); i += 2) {
        const double t = static_cast<double>(i / 2) / rate;
        const double burst = std::fmod(t, 0.5) < 0.1 ? 3.0 : 0.2;
        in[i] = in[i + 1] = static_cast<float>(burst * std::sin(2 * M_PI * 11999.0 * t + 0.7));
    }
    loud.process(in.data(), out.data(), in.size() / 2);
    float peak = 0;
    for (float v : out) peak = std::max(peak, std::abs(v));
    EXPECT_LE(peak, 0.8f);
    EXPECT_LT(loud.deepestGain(), 0.3f);
    // Between the bursts the gain comes back: the quiet part is not crushed.
    float quietPeak = 0;
    for (size_t i = static_cast<size_t>(0.45 * rate) * 2; i < static_cast<size_t>(0.5 * rate) * 2; ++i)
        quietPeak = std::max(quietPeak, std::abs(out[i]));
    EXPECT_GT(quietPeak, 0.15f);
}

TEST(DropClips, EachClipShowsItsEditAtTheRightFramesAtTheLoudnessAsked) {
    fs::path set = test::generatedSet("drops", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    VideoRender::Job base = test::jobAt(set, test::truthStarts(set));
    ASSERT_EQ(base.cameraSources.size(), 2u);
    base.audio.mode = AudioSettings::Mode::table;
    base.loudness = -14.0;

    DropClips::Request request;
    request.base = base;
    // In this set the recorder starts at 3.25 s, camera 2 films from 89.8 to
    // 178.3 s and camera 1 from 164.3 to 199.7 s. The first drop lies nearer
    // the start than `pre`; the user cut around the third; the fourth is not ticked.
    request.drops = {{0, 4.0, 1}, {1, 114.0, 0.8}, {2, 170.0, 0.6}, {3, 190.0, 0.5}};
    request.only = {0, 1, 2};
    request.pre = 5;
    request.post = 2;
    request.cuts = {Cut{}, Cut{}};
    request.cuts[0].time = 166.0;
    request.cuts[0].camera = 1;
    request.cuts[1].time = 169.0;
    request.cuts[1].camera = 0;
    request.allowed = {0, 1};
    request.setName = "Set";
    const auto clips = DropClips::plan(request);
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(clips[0].fileName, "Set - drop 1 (0:04).mp4");
    EXPECT_EQ(clips[0].range, (TimeRange{0, 6}));
    EXPECT_EQ(clips[1].range, (TimeRange{109, 116}));
    EXPECT_TRUE(clips[1].automatic);
    EXPECT_FALSE(clips[2].automatic);  // the user's cuts at 166 and 169 s stand

    test::TempDir dir;
    test::ManualScheduler scheduler;
    VideoExportSession exporter(scheduler);
    for (const DropClips::Clip& clip : clips) {
        auto out = test::exportNow(exporter, scheduler, clip.job, VideoCodec::h264, dir / clip.fileName);
        ASSERT_TRUE(out.ok()) << out.error().message;
        const VideoRender::Built built = VideoRender::build(clip.job);
        const double rate = static_cast<double>(built.rateNum) / built.rateDen;
        const long frames = std::lround((clip.range.end - clip.range.start) * rate);
        EXPECT_EQ(test::probeField(*out, "v", "nb_frames"), std::to_string(frames)) << clip.fileName;

        test::checkFrameCodes(*out, clip.job, clip.range.start, frames, rate, 0, clip.fileName);

        auto loudness = test::measureLoudness(*out);
        ASSERT_TRUE(loudness) << clip.fileName;
        EXPECT_NEAR(loudness->integrated, -14.0, 0.5) << clip.fileName;
        EXPECT_LE(loudness->truePeak, -1.0) << clip.fileName;
    }
}

}  // namespace
}  // namespace qv
