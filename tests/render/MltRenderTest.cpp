// The MLT export as melt renders it, read back from the pictures: each frame
// of a montage shows its plan's camera at the set time, a zoom follows its
// curve, a graded camera looks as in our own render, and a vertical export
// is full HD standing with the crop where Reframe puts it.
#include <gtest/gtest.h>

#include <cmath>

#include "export/MltExport.h"
#include "looks/GradeMath.h"
#include "platform/Paths.h"
#include "render/RenderFixtures.h"
#include "support/TempHome.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::frameAt;

const fs::path meltProgram = "/usr/bin/melt";

// Writes the montage of `job` as MLT and renders it with melt; the video, or
// an empty path with the failure recorded.
fs::path meltMontage(const VideoRender::Job& job, const fs::path& dir, const TimelineLook& look,
                     bool trackPerCamera = true) {
    auto timeline = PremiereExport::montageTimeline(
        job.sources, job.result, job.segments, job.cameraSources, job.range, job.levels, job.audio, job.effects,
        [&](const Segment& s) {
            auto at = std::find_if(job.segments.begin(), job.segments.end(),
                                   [&](const Segment& x) { return x.start == s.start; }) -
                      job.segments.begin();
            return static_cast<size_t>(at) < job.planEffects.size() ? job.planEffects[static_cast<size_t>(at)]
                                                                    : ResolvedEffect{};
        },
        trackPerCamera);
    const fs::path mlt = dir / "montage l'été.mlt", video = dir / "melt.mp4";
    test::writeText(mlt, MltExport::write("montage", job.sources, timeline, job.muted, look, {}));
    auto run = process::run(meltProgram, {"-silent", "-quiet", mlt.string(), "-consumer", "avformat:" + video.string(),
                                          "vcodec=libx264", "crf=0", "preset=ultrafast", "pix_fmt=yuv444p",
                                          "acodec=aac", "real_time=0"});
    EXPECT_TRUE(run.ok() && run->exitCode == 0) << "melt failed";
    return fs::exists(video) ? video : fs::path();
}

TEST(MeltRender, EveryFrameOfAMontageIsItsPlansCameraAtTheSetTime) {
    if (!fs::exists(meltProgram)) GTEST_SKIP() << "melt missing";
    fs::path set = test::generatedSet("render", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    VideoRender::Job job = test::jobAt(set, test::truthStarts(set));
    ASSERT_EQ(job.cameraSources.size(), 3u);
    // Camera 1 leaves its first file at 9.5 s and starts its second at 10.
    job.segments = test::plans({{0, 0}, {3.01, 1}, {6.5, 2}, {9.3, 0}, {12.7, 1}}, job.result.duration());
    job.range = {2.3, 13.3};

    test::TempDir dir;
    fs::path out = meltMontage(job, dir.path(), {});
    ASSERT_FALSE(out.empty());

    const long frames = std::lround((13.3 - 2.3) * 25);
    EXPECT_EQ(test::probeField(out, "v", "nb_frames"), std::to_string(frames));
    EXPECT_EQ(test::probeField(out, "v", "r_frame_rate"), "25/1");
    // melt may round a camera's frame to its neighbour.
    const int black = test::checkFrameCodes(out, job, 2.3, frames, 25, 1.0);
    EXPECT_EQ(black, 13);  // set times 9.5 to 10.0 s on camera 1
}

// A name XML cannot hold (bytes that are not UTF-8, control characters)
// reaches melt through a link of a plain name; the link lives in the cache.
TEST(MeltRender, FilesWhoseNamesXmlCannotHoldAreFoundThroughALink) {
    if (!fs::exists(meltProgram)) GTEST_SKIP() << "melt missing";
    fs::path generated = test::generatedSet("render", 1);
    if (generated.empty()) GTEST_SKIP() << "generator missing";
    TempHome home;
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const std::optional<std::string> kept = cache ? std::optional<std::string>(cache) : std::nullopt;
    setenv("XDG_CACHE_HOME", (home.root() / "cache").c_str(), 1);
    struct Restore {
        const std::optional<std::string>& value;
        ~Restore() { value ? setenv("XDG_CACHE_HOME", value->c_str(), 1) : unsetenv("XDG_CACHE_HOME"); }
    } restore{kept};
    const fs::path set = home.root() / "set";
    const std::string odd = "clip\xff\x01\t\n 1.mp4";
    fs::create_directories(set / "Cam 1");
    fs::copy_file(generated / "Cam 1" / "clip 1.mp4", set / "Cam 1" / odd);
    VideoRender::Job job = test::jobAt(set, {{"Cam 1/" + odd, 0}});
    ASSERT_EQ(job.result.placed.size(), 1u);
    job.segments = test::plans({{0, 0}}, job.result.duration());
    job.range = {0.5, 1.5};

    TimelineLook look;
    look.aliases = paths::plainNameLinks(MltExport::unnameable(job.sources));
    ASSERT_EQ(look.aliases.size(), 1u);
    const fs::path link = look.aliases.begin()->second;
    EXPECT_EQ(link.parent_path(), paths::cacheHome() / "quorvel" / "liens");
    EXPECT_TRUE(fs::equivalent(link, set / "Cam 1" / odd));
    // Asked again, the same link.
    EXPECT_EQ(paths::plainNameLink(set / "Cam 1" / odd), link);

    test::TempDir dir;
    fs::path out = meltMontage(job, dir.path(), look);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(test::checkFrameCodes(out, job, 0.5, 25, 25, 1.0), 0);
}

class MeltPicture : public test::OneCameraPicture {
protected:
    void SetUp() override {
        if (!fs::exists(meltProgram)) GTEST_SKIP() << "melt missing";
        OneCameraPicture::SetUp();
    }
};

TEST_F(MeltPicture, AZoomInARangeStandsWhereItsCurveIsAtTheSetTime) {
    camera("black", "drawbox=x=140:y=70:w=40:h=40:color=white:t=fill");
    VideoRender::Job j = job();
    j.range = {1, 3};
    j.effects.zoomMax = 200;
    j.planEffects[0].zoom = 1;
    TimelineLook look;
    look.effects = j.effects;
    auto f = frameAt(meltMontage(j, dir_.path(), look), 0.62);
    ASSERT_EQ(f.width, 320);
    // Output time 0.6 is set time 1.6 of the 4 s plan.
    EXPECT_NEAR(litWidth(f, 90) / 40.0, MotionFX::sample(j.planEffects[0], 1.6, 4, j.effects).scale, 0.05);
}

TEST_F(MeltPicture, AVerticalMontageIsFullHdStandingWithTheCropWhereReframeSaysIt) {
    camera("black", "drawbox=x=40:y=0:w=10:h=180:color=white:t=fill");
    VideoRender::Job j = job();
    const CameraFrame left{1, -1, 0};
    TimelineLook look;
    look.format = OutputFormat::portrait;
    look.framing[j.sources[0].id] = left;
    j.range = {0.5, 0.7};  // a few frames: full-HD pictures are slow to place
    fs::path out = meltMontage(j, dir_.path(), look);
    EXPECT_EQ(test::probeField(out, "v", "width"), "1080");
    EXPECT_EQ(test::probeField(out, "v", "height"), "1920");
    auto f = frameAt(out, 0.1);
    ASSERT_EQ(f.width, 1080);
    const auto p = Reframe::place({320, 180}, {1080, 1920}, left);
    EXPECT_NEAR(firstLit(f, 960), 540 + p.x * 1080 + (40 - 160) * p.scale, 3);
}

TEST_F(MeltPicture, AGradedCameraLooksAsInOurOwnRender) {
    bars();
    VideoRender::Job j = job();
    const ColorGrade grade = someGrade();
    j.range = {0.8, 1.4};
    j.looks.enabled = true;
    j.looks.grades[0] = grade;

    // The cube the XML export writes beside its file.
    TimelineLook look;
    look.cubes[j.sources[0].id] = dir_ / "montage - Cam 1 l'été.cube";
    test::writeText(look.cubes.begin()->second, GradeMath::cubeLUT(grade, GradeMath::kCubeSize).text("Cam 1"));
    auto melted = frameAt(meltMontage(j, dir_.path(), look), 0.2);

    auto ours = test::renderNow(j, VideoCodec::prores, dir_ / "ours.mov");
    ASSERT_TRUE(ours.ok());
    auto own = frameAt(*ours, 0.2);
    ASSERT_EQ(melted.width, 320);
    ASSERT_EQ(own.width, 320);
    for (int x : {40, 120, 200, 280}) {
        const size_t i = (static_cast<size_t>(90) * 320 + x) * 4;
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(melted.pixels[i + c], own.pixels[i + c], 4) << "x=" << x << " c=" << c;
    }
}

}  // namespace
}  // namespace qv
