// The picture of an export measured in the file: a zoom stands at the point
// of its curve for the set time, a vertical crop where Reframe puts it, and
// a graded camera as GradeMath grades its colours.
#include <gtest/gtest.h>

#include <cmath>

#include "looks/GradeMath.h"
#include "render/RenderFixtures.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

class ExportPicture : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        fs::create_directories(dir_ / "set" / "Cam 1");
    }
    // A 4 s camera file at 320×180 drawn by `boxes` (drawbox filters).
    void camera(const std::string& background, const std::string& boxes) {
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=" + background + ":s=320x180:r=25:d=4", "-f", "lavfi",
                                  "-i", "anullsrc=r=48000:cl=stereo", "-vf", boxes, "-c:v", "libx264", "-crf", "0",
                                  "-pix_fmt", "yuv444p", "-c:a", "aac", "-t", "4",
                                  (dir_ / "set" / "Cam 1" / "a.mp4").string()}));
    }
    VideoRender::Job job() {
        auto j = test::jobAt(dir_ / "set", {{"Cam 1/a.mp4", 0}});
        j.segments = test::plans({{0, 0}}, 4);
        j.planEffects.resize(j.segments.size());
        return j;
    }
    media::RgbaFrame frameOf(VideoRender::Job j, VideoCodec codec, double t) {
        test::ManualScheduler scheduler;
        VideoExportSession exporter(scheduler);
        fs::path target = dir_ / (codec == VideoCodec::prores ? "out.mov" : "out.mp4");
        auto out = test::exportNow(exporter, scheduler, std::move(j), codec, target);
        EXPECT_TRUE(out.ok()) << (out.ok() ? "" : out.error().message);
        if (!out) return {};
        auto reader = media::VideoReader::open(*out);
        return reader->frameAt(t).value()->frame;
    }
    static int green(const media::RgbaFrame& f, int x, int y) { return f.pixels[(static_cast<size_t>(y) * f.width + x) * 4 + 1]; }
    test::TempDir dir_;
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
    int width = 0;
    for (int x = 0; x < f.width; ++x) width += green(f, x, 90) > 128;
    const double expected = MotionFX::sample(j.planEffects[0], 1.6, 4, j.effects).scale;
    const double early = MotionFX::sample(j.planEffects[0], 0.6, 4, j.effects).scale;
    ASSERT_GT(expected - early, 0.2);  // the two readings are far apart
    EXPECT_NEAR(width / 40.0, expected, 0.05);
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
    int first = -1;
    for (int x = 0; x < f.width && first < 0; ++x)
        if (green(f, x, 960) > 128) first = x;
    const auto p = Reframe::place({320, 180}, {1080, 1920}, left);
    const double expected = 540 + p.x * 1080 + (40 - 160) * p.scale;
    EXPECT_NEAR(first, expected, 3);
}

TEST_F(ExportPicture, AGradedCameraMatchesTheGradeMathWithinTwoLevels) {
    camera("0x808080", "drawbox=x=0:y=0:w=80:h=180:color=0xc04020:t=fill,"
                       "drawbox=x=80:y=0:w=80:h=180:color=0x20a060:t=fill,"
                       "drawbox=x=160:y=0:w=80:h=180:color=0x3050c0:t=fill");
    auto source = media::decodeVideoFrame(dir_ / "set" / "Cam 1" / "a.mp4", 1.0);
    ASSERT_TRUE(source.ok());
    VideoRender::Job j = job();
    ColorGrade grade;
    grade.contrast = 25;
    grade.saturation = 140;
    grade.temperature = 20;
    grade.exposure = 0.3;
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
