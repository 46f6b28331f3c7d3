// Frame-exact cuts read back from the frame code of the generated set: each
// output frame shows its plan's camera at that camera's frame for the set
// time, across files of one camera, from cameras at 23.976 and 29.97 fps in
// a 25 fps output, over a range that starts in the middle of files; and the
// same through melt reading the MLT export.
#include <gtest/gtest.h>

#include <cmath>

#include "render/RenderFixtures.h"

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
    auto out = test::renderNow(job, VideoCodec::h264, dir / "cuts.mp4");
    ASSERT_TRUE(out.ok()) << out.error().message;

    const long frames = std::lround((17.3 - 2.3) * 25);
    const int black = test::checkFrameCodes(*out, job, 2.3, frames, 25);
    EXPECT_EQ(black, 13);  // set times 9.5 to 10.0 s on camera 1

    // melt reading the MLT export of the montage's first five plans: the
    // same frames, but that it may round a camera's frame to its neighbour.
    if (fs::exists(test::meltProgram)) {
        job.range = {2.3, 13.3};
        const long shorter = std::lround((13.3 - 2.3) * 25);
        const fs::path melted = test::meltMontage(job, dir.path(), {});
        ASSERT_FALSE(melted.empty());
        EXPECT_EQ(test::probeField(melted, "v", "nb_frames"), std::to_string(shorter));
        EXPECT_EQ(test::probeField(melted, "v", "r_frame_rate"), "25/1");
        EXPECT_EQ(test::checkFrameCodes(melted, job, 2.3, shorter, 25, 1.0, "melt"), 13);
    }

    // What ffprobe reads beyond the session's own checks: pixels, colours, every frame.
    EXPECT_EQ(test::probeField(*out, "v", "pix_fmt"), "yuv420p");
    EXPECT_EQ(test::probeField(*out, "v", "color_primaries"), "bt709");
    EXPECT_EQ(test::probeField(*out, "v", "nb_frames"), std::to_string(frames));
}

}  // namespace
}  // namespace qv
