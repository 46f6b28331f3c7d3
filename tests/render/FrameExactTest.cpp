// Frame-exact cuts read back from the frame code of the generated set: each
// output frame shows its plan's camera at that camera's frame for the set
// time, across files of one camera, from cameras at 23.976 and 29.97 fps in
// a 25 fps output, over a range that starts in the middle of files.
#include <gtest/gtest.h>

#include <cmath>

#include "render/RenderFixtures.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

TEST(FrameExact, EveryOutputFrameIsItsPlansCameraAtTheSetTime) {
    fs::path set = test::generatedSet("render", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    auto starts = test::truthStarts(set);
    VideoRender::Job job = test::jobAt(set, starts);
    ASSERT_EQ(job.cameraSources.size(), 3u);
    const double duration = job.result.duration();
    // Camera 1 leaves its first file at 9.5 s and starts its second at 10.
    job.segments = test::plans({{0, 0}, {3.01, 1}, {6.5, 2}, {9.3, 0}, {12.7, 1}, {15.2, 2}}, duration);
    job.range = {2.3, 17.3};
    job.audio.mode = AudioSettings::Mode::table;

    test::TempDir dir;
    test::ManualScheduler scheduler;
    VideoExportSession exporter(scheduler);
    auto out = test::exportNow(exporter, scheduler, job, VideoCodec::h264, dir / "cuts.mp4");
    ASSERT_TRUE(out.ok()) << out.error().message;

    // What each camera's files are: rate and place.
    struct File {
        int camera, clip;
        double at, fps, duration;
    };
    std::vector<File> files;
    for (const PlacedItem& p : job.result.placed) {
        if (!p.item.hasVideo) continue;
        int camera = static_cast<int>(std::find(job.cameraSources.begin(), job.cameraSources.end(), p.sourceIndex) -
                                      job.cameraSources.begin());
        int clip = p.item.fileName() == "clip 2.mp4" ? 2 : 1;
        files.push_back({camera + 1, clip, p.start, p.item.frameRate, p.item.duration});
    }

    auto reader = media::VideoReader::open(*out);
    ASSERT_TRUE(reader.ok());
    const long frames = std::lround((17.3 - 2.3) * 25);
    int black = 0;
    for (long n = 0; n < frames; ++n) {
        const double t = n / 25.0, setTime = t + 2.3;
        auto pic = reader->frameAt(t + 0.02);
        ASSERT_TRUE(pic.ok());
        const auto& f = (*pic)->frame;
        auto code = setgen::framecode::read(f.pixels.data(), f.width, f.height, f.width * 4);
        // The plan on screen and that camera's file under the set time.
        const Segment* plan = nullptr;
        for (const Segment& s : job.segments)
            if (s.start <= setTime + 0.0005) plan = &s;
        ASSERT_NE(plan, nullptr);
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
        EXPECT_EQ(code->frame, static_cast<long>(std::floor((setTime - file->at) * file->fps + 1e-4))) << "frame " << n;
    }
    EXPECT_EQ(black, 13);  // set times 9.5 to 10.0 s on camera 1

    // What ffprobe reads: codec, size, rate, length within a frame, stereo.
    EXPECT_EQ(test::probeField(*out, "v", "codec_name"), "h264");
    EXPECT_EQ(test::probeField(*out, "v", "width"), "320");
    EXPECT_EQ(test::probeField(*out, "v", "height"), "180");
    EXPECT_EQ(test::probeField(*out, "v", "r_frame_rate"), "25/1");
    EXPECT_EQ(test::probeField(*out, "v", "pix_fmt"), "yuv420p");
    EXPECT_EQ(test::probeField(*out, "v", "color_primaries"), "bt709");
    EXPECT_EQ(test::probeField(*out, "v", "nb_frames"), std::to_string(frames));
    EXPECT_EQ(test::probeField(*out, "a", "codec_name"), "aac");
    EXPECT_EQ(test::probeField(*out, "a", "channels"), "2");
}

}  // namespace
}  // namespace qv
