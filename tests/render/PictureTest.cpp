// The picture of an export measured in the file, from our own render and,
// where melt is installed, from melt reading the MLT export of the same
// montage: a zoom stands at the point of its curve for the set time, a
// vertical crop where Reframe puts it, and a graded camera as GradeMath
// grades its colours.
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
    media::RgbaFrame ours(VideoRender::Job j, VideoCodec codec, double t) {
        auto out = test::renderNow(std::move(j), codec, dir_ / (codec == VideoCodec::prores ? "out.mov" : "out.mp4"));
        EXPECT_TRUE(out.ok()) << (out.ok() ? "" : out.error().message);
        return out ? frameAt(*out, t) : media::RgbaFrame{};
    }
    // The same montage through its MLT file; nothing when melt is missing.
    std::optional<media::RgbaFrame> melted(const VideoRender::Job& j, double t, TimelineLook look = {}) {
        if (!fs::exists(test::meltProgram)) return std::nullopt;
        look.effects = j.effects;
        look.format = j.format;
        look.framing = j.framing;
        return frameAt(test::meltMontage(j, dir_.path(), look), t);
    }
};

TEST_F(ExportPicture, AZoomInARangeStandsWhereItsCurveIsAtTheSetTime) {
    camera("black", "drawbox=x=140:y=70:w=40:h=40:color=white:t=fill");
    VideoRender::Job j = job();
    j.range = {1, 3};
    j.effects.zoomMax = 200;
    j.planEffects[0].zoom = 1;
    // Output time 0.6 is set time 1.6 of the 4 s plan.
    const double expected = MotionFX::sample(j.planEffects[0], 1.6, 4, j.effects).scale;
    const double early = MotionFX::sample(j.planEffects[0], 0.6, 4, j.effects).scale;
    ASSERT_GT(expected - early, 0.2);  // the two readings are far apart
    std::vector<media::RgbaFrame> frames{ours(j, VideoCodec::h264, 0.62)};
    if (auto m = melted(j, 0.62)) frames.push_back(*m);
    for (const media::RgbaFrame& f : frames) {
        ASSERT_EQ(f.width, 320);
        EXPECT_NEAR(litWidth(f, 90) / 40.0, expected, 0.05);
    }
}

TEST_F(ExportPicture, AVerticalExportIsFullHdStandingWithTheCropWhereReframeSaysIt) {
    camera("black", "drawbox=x=40:y=0:w=10:h=180:color=white:t=fill");
    VideoRender::Job j = job();
    j.format = OutputFormat::portrait;
    const CameraFrame left{1, -1, 0};
    j.framing[j.sources[0].id] = left;
    j.range = {0.5, 0.7};  // a few frames: full-HD pictures are slow to encode and place
    const auto p = Reframe::place({320, 180}, {1080, 1920}, left);
    std::vector<media::RgbaFrame> frames{ours(j, VideoCodec::h264, 0.1)};
    if (auto m = melted(j, 0.1)) frames.push_back(*m);
    for (const media::RgbaFrame& f : frames) {
        ASSERT_EQ(f.width, 1080);
        ASSERT_EQ(f.height, 1920);
        EXPECT_NEAR(firstLit(f, 960), 540 + p.x * 1080 + (40 - 160) * p.scale, 3);
    }
}

TEST_F(ExportPicture, AGradedCameraMatchesTheGradeMathAndMeltThroughItsCube) {
    bars();
    auto source = media::decodeVideoFrame(dir_ / "set" / kFile, 1.0);
    ASSERT_TRUE(source.ok());
    VideoRender::Job j = job();
    const ColorGrade grade = someGrade();
    j.range = {0.8, 1.4};
    j.looks.enabled = true;
    j.looks.grades[0] = grade;
    const media::RgbaFrame own = ours(j, VideoCodec::prores, 0.2);  // set time 1.0
    ASSERT_EQ(own.width, 320);
    for (int x : {40, 120, 200, 280}) {
        const size_t i = (static_cast<size_t>(90) * 320 + x) * 4;
        const Rgb want = GradeMath::apply(source->pixels[i] / 255.0, source->pixels[i + 1] / 255.0,
                                          source->pixels[i + 2] / 255.0, grade);
        EXPECT_NEAR(own.pixels[i], want.r * 255, 2) << "x=" << x;
        EXPECT_NEAR(own.pixels[i + 1], want.g * 255, 2) << "x=" << x;
        EXPECT_NEAR(own.pixels[i + 2], want.b * 255, 2) << "x=" << x;
    }

    // melt grades through the cube the XML export writes beside its file.
    TimelineLook look;
    look.cubes[j.sources[0].id] = dir_ / "montage - Cam 1 l'été.cube";
    test::writeText(look.cubes.begin()->second, GradeMath::cubeLUT(grade, GradeMath::kCubeSize).text("Cam 1"));
    auto melt = melted(j, 0.2, look);
    if (!melt) return;
    ASSERT_EQ(melt->width, 320);
    for (int x : {40, 120, 200, 280}) {
        const size_t i = (static_cast<size_t>(90) * 320 + x) * 4;
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(melt->pixels[i + c], own.pixels[i + c], 4) << "x=" << x << " c=" << c;
    }
}

}  // namespace
}  // namespace qv
