// The render's own rules, without media: sizes and rate, the volume curves.
#include <gtest/gtest.h>

#include "render/VideoRender.h"

namespace qv {
namespace {

VideoRender::Job jobWith(std::vector<std::pair<int, int>> cameraSizes) {
    VideoRender::Job job;
    for (size_t c = 0; c < cameraSizes.size(); ++c) {
        MediaSource s;
        s.kind = SourceKind::camera;
        s.id = Uuid::make();
        job.sources.push_back(s);
        job.cameraSources.push_back(static_cast<int>(c));
        PlacedItem p;
        p.sourceIndex = static_cast<int>(c);
        p.item.hasVideo = cameraSizes[c].first > 0;
        p.item.width = cameraSizes[c].first;
        p.item.height = cameraSizes[c].second;
        p.item.frameRate = 29.97;
        p.item.duration = 10;
        job.result.placed.push_back(p);
    }
    job.range = {0, 10};
    return job;
}

TEST(VideoRender, SizeAndRateFollowTheCamerasOrTheFormat) {
    auto none = VideoRender::build(jobWith({{0, 0}}));
    EXPECT_EQ(none.width, 1920);
    EXPECT_EQ(none.height, 1080);
    EXPECT_EQ(none.rateNum, 25);
    EXPECT_EQ(none.frameCount, 250);

    auto job = jobWith({{1280, 720}, {640, 360}, {640, 360}});
    auto size = VideoRender::outputSize(job);
    EXPECT_EQ(size.width, 640);
    EXPECT_EQ(size.height, 360);
    auto built = VideoRender::build(job);
    EXPECT_EQ(built.rateNum, 30000);
    EXPECT_EQ(built.rateDen, 1001);
    job.format = OutputFormat::portrait;
    EXPECT_EQ(VideoRender::outputSize(job).height, 1920);

    // Odd sources give an even picture to encode.
    auto odd = VideoRender::build(jobWith({{161, 91}}));
    EXPECT_EQ(odd.width, 162);
    EXPECT_EQ(odd.height, 92);
}

TEST(VideoRender, AStepInsideARampHasNoEffectAndNothingStartsBeforeZero) {
    // Ramp 1.0-1.5; a step at 1.2 falls inside it; a step at 3 stands.
    auto curve = VideoRender::apply(0.5f, 10, {{1.0, 0.5, 0.5f, 0.0f}, {-0.5, 0.2, 1, 1}}, {{11.2, 0.9f}, {13, 0.7f}});
    ASSERT_EQ(curve.entries.size(), 2u);
    EXPECT_FLOAT_EQ(curve.at(0.5), 0.5f);
    EXPECT_FLOAT_EQ(curve.at(1.25), 0.25f);
    EXPECT_FLOAT_EQ(curve.at(2.0), 0.0f);
    EXPECT_FLOAT_EQ(curve.at(3.5), 0.7f);
}

TEST(VideoRender, APlanAfterAGapTakesItsVolumeByAStepWithoutRamp) {
    auto job = jobWith({{64, 36}, {64, 36}});
    for (auto& p : job.result.placed) p.item.audioChannels = 2;
    job.levels[job.sources[1].id] = -6;
    job.audio.mode = AudioSettings::Mode::camera;
    job.audio.rushFade = 0;
    Segment a{0, 0, 4, 0, {}, {}, {}}, b{1, 6, 10, 1, {}, {}, {}};
    job.segments = {a, b};
    auto built = VideoRender::build(job);
    ASSERT_EQ(built.sound.size(), 1u);
    const auto& curve = built.sound[0].volume;
    EXPECT_FLOAT_EQ(curve.at(3.99), 1.0f);
    EXPECT_NEAR(curve.at(6.0), 0.501f, 1e-3);
    for (const auto& e : curve.entries) EXPECT_EQ(e.duration, 0);
}

}  // namespace
}  // namespace qv
