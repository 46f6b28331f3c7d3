// The MLT export as melt renders it, read back from the pictures: each frame
// of a montage shows its plan's camera at the set time, a zoom follows its
// curve, a graded camera looks as in our own render, and a vertical export
// is full HD standing with the crop where Reframe puts it.
#include <gtest/gtest.h>

#include <cmath>

#include "export/MltExport.h"
#include "looks/GradeMath.h"
#include "render/RenderFixtures.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

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

    struct File {
        int camera, clip;
        double at, fps, duration;
    };
    std::vector<File> files;
    for (const PlacedItem& p : job.result.placed) {
        if (!p.item.hasVideo) continue;
        int camera = static_cast<int>(std::find(job.cameraSources.begin(), job.cameraSources.end(), p.sourceIndex) -
                                      job.cameraSources.begin());
        files.push_back({camera + 1, p.item.fileName() == "clip 2.mp4" ? 2 : 1, p.start, p.item.frameRate,
                         p.item.duration});
    }
    const long frames = std::lround((13.3 - 2.3) * 25);
    EXPECT_EQ(test::probeField(out, "v", "nb_frames"), std::to_string(frames));
    EXPECT_EQ(test::probeField(out, "v", "r_frame_rate"), "25/1");

    auto reader = media::VideoReader::open(out);
    ASSERT_TRUE(reader.ok());
    int black = 0;
    for (long n = 0; n < frames; ++n) {
        const double setTime = n / 25.0 + 2.3;
        auto pic = reader->frameAt(n / 25.0 + 0.02);
        ASSERT_TRUE(pic.ok());
        const auto& f = (*pic)->frame;
        auto code = setgen::framecode::read(f.pixels.data(), f.width, f.height, f.width * 4);
        const Segment* plan = nullptr;
        for (const Segment& s : job.segments)
            if (s.start <= setTime + 0.0005) plan = &s;
        const File* file = nullptr;
        for (const File& x : files)
            if (x.camera == plan->camera + 1 && x.at <= setTime && setTime < x.at + x.duration) file = &x;
        if (!file) {
            EXPECT_FALSE(code.has_value()) << "frame " << n << " should be black";
            ++black;
            continue;
        }
        ASSERT_TRUE(code.has_value()) << "frame " << n;
        EXPECT_EQ(code->camera, file->camera) << "frame " << n;
        EXPECT_EQ(code->clip, file->clip) << "frame " << n;
        EXPECT_NEAR(code->frame, (setTime - file->at) * file->fps, 1.0) << "frame " << n;
    }
    EXPECT_EQ(black, 13);  // set times 9.5 to 10.0 s on camera 1
}

class MeltPicture : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        if (!fs::exists(meltProgram)) GTEST_SKIP() << "melt missing";
        fs::create_directories(dir_ / "set" / "Cam 1");
    }
    // A 4 s camera file at 320×180 drawn by `boxes`, in a folder whose name
    // an XML writer must escape.
    void camera(const std::string& background, const std::string& boxes) {
        ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=" + background + ":s=320x180:r=25:d=4", "-f", "lavfi",
                                  "-i", "anullsrc=r=48000:cl=stereo", "-vf", boxes, "-c:v", "libx264", "-crf", "0",
                                  "-pix_fmt", "yuv444p", "-c:a", "aac", "-t", "4",
                                  (dir_ / "set" / "Cam 1" / "a & \"é\".mp4").string()}));
    }
    VideoRender::Job job() {
        auto j = test::jobAt(dir_ / "set", {{"Cam 1/a & \"é\".mp4", 0}});
        j.segments = test::plans({{0, 0}}, 4);
        j.planEffects.resize(j.segments.size());
        return j;
    }
    media::RgbaFrame frameAt(const fs::path& video, double t) {
        auto reader = media::VideoReader::open(video);
        if (!reader) return {};
        auto f = reader->frameAt(t);
        return f ? (*f)->frame : media::RgbaFrame{};
    }
    static int green(const media::RgbaFrame& f, int x, int y) {
        return f.pixels[(static_cast<size_t>(y) * f.width + x) * 4 + 1];
    }
    test::TempDir dir_;
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
    int width = 0;
    for (int x = 0; x < f.width; ++x) width += green(f, x, 90) > 128;
    // Output time 0.6 is set time 1.6 of the 4 s plan.
    EXPECT_NEAR(width / 40.0, MotionFX::sample(j.planEffects[0], 1.6, 4, j.effects).scale, 0.05);
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
    int first = -1;
    for (int x = 0; x < f.width && first < 0; ++x)
        if (green(f, x, 960) > 128) first = x;
    const auto p = Reframe::place({320, 180}, {1080, 1920}, left);
    EXPECT_NEAR(first, 540 + p.x * 1080 + (40 - 160) * p.scale, 3);
}

TEST_F(MeltPicture, AGradedCameraLooksAsInOurOwnRender) {
    camera("0x808080", "drawbox=x=0:y=0:w=80:h=180:color=0xc04020:t=fill,"
                       "drawbox=x=80:y=0:w=80:h=180:color=0x20a060:t=fill,"
                       "drawbox=x=160:y=0:w=80:h=180:color=0x3050c0:t=fill");
    VideoRender::Job j = job();
    ColorGrade grade;
    grade.contrast = 25;
    grade.saturation = 140;
    grade.temperature = 20;
    grade.exposure = 0.3;
    j.range = {0.8, 1.4};
    j.looks.enabled = true;
    j.looks.grades[0] = grade;

    // The cube the XML export writes beside its file.
    TimelineLook look;
    look.cubes[j.sources[0].id] = dir_ / "montage - Cam 1 l'été.cube";
    test::writeText(look.cubes.begin()->second, GradeMath::cubeLUT(grade, GradeMath::kCubeSize).text("Cam 1"));
    auto melted = frameAt(meltMontage(j, dir_.path(), look), 0.2);

    test::ManualScheduler scheduler;
    VideoExportSession exporter(scheduler);
    auto ours = test::exportNow(exporter, scheduler, j, VideoCodec::prores, dir_ / "ours.mov");
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
