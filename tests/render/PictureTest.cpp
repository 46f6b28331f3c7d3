// The picture of an export measured in the file: a zoom stands at the point
// of its curve for the set time, a vertical crop where Reframe puts it, and
// a graded camera as GradeMath grades its colours.
#include <gtest/gtest.h>

#include <cmath>

#include "looks/GradeMath.h"
#include "render/RenderFixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::frameAt;

class ExportPicture : public test::OneCameraPicture {
protected:
    media::RgbaFrame frameOf(VideoRender::Job j, VideoCodec codec, double t) {
        auto out = test::renderNow(std::move(j), codec, dir_ / (codec == VideoCodec::prores ? "out.mov" : "out.mp4"));
        EXPECT_TRUE(out.ok()) << (out.ok() ? "" : out.error().message);
        return out ? frameAt(*out, t) : media::RgbaFrame{};
    }
};

TEST_F(ExportPicture, AZoomInARangeStandsWhereItsCurveIsAtTheSetTime) {
    camera("black", "drawbox=x=140:y=70:w=40:h=40:color=white:t=fill");
    VideoRender::Job j = job();
    j.range = {1, 3};
    j.effects.zoomMax = 200;
    j.planEffects[0].zoom = 1;
    const double t = 0.6;  // output time; the set is at 1.6 s of the 4 s plan
    auto f = frameOf(j, VideoCodec::h264, t + 0.02);
    ASSERT_EQ(f.width, 320);
    const double expected = MotionFX::sample(j.planEffects[0], 1.6, 4, j.effects).scale;
    const double early = MotionFX::sample(j.planEffects[0], 0.6, 4, j.effects).scale;
    ASSERT_GT(expected - early, 0.2);  // the two readings are far apart
    EXPECT_NEAR(litWidth(f, 90) / 40.0, expected, 0.05);
}

TEST_F(ExportPicture, AVerticalExportIsFullHdStandingWithTheCropWhereReframeSaysIt) {
    camera("black", "drawbox=x=40:y=0:w=10:h=180:color=white:t=fill");
    VideoRender::Job j = job();
    j.format = OutputFormat::portrait;
    const CameraFrame left{1, -1, 0};
    j.framing[j.sources[0].id] = left;
    j.range = {0.5, 1.0};  // a few frames: full-HD encoding is slow
    auto f = frameOf(j, VideoCodec::h264, 0.2);
    ASSERT_EQ(f.width, 1080);
    ASSERT_EQ(f.height, 1920);
    const auto p = Reframe::place({320, 180}, {1080, 1920}, left);
    const double expected = 540 + p.x * 1080 + (40 - 160) * p.scale;
    EXPECT_NEAR(firstLit(f, 960), expected, 3);
}

TEST_F(ExportPicture, AGradedCameraMatchesTheGradeMathWithinTwoLevels) {
    bars();
    auto source = media::decodeVideoFrame(dir_ / "set" / kFile, 1.0);
    ASSERT_TRUE(source.ok());
    VideoRender::Job j = job();
    const ColorGrade grade = someGrade();
    j.looks.enabled = true;
    j.looks.grades[0] = grade;
    auto f = frameOf(j, VideoCodec::prores, 1.0);
    ASSERT_EQ(f.width, 320);
    for (int x : {40, 120, 200, 280}) {
        const size_t i = (static_cast<size_t>(90) * 320 + x) * 4;
        const Rgb want = GradeMath::apply(source->pixels[i] / 255.0, source->pixels[i + 1] / 255.0,
                                          source->pixels[i + 2] / 255.0, grade);
        EXPECT_NEAR(f.pixels[i], want.r * 255, 2) << "x=" << x;
        EXPECT_NEAR(f.pixels[i + 1], want.g * 255, 2) << "x=" << x;
        EXPECT_NEAR(f.pixels[i + 2], want.b * 255, 2) << "x=" << x;
    }
}

}  // namespace
}  // namespace qv
