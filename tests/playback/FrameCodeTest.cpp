// The generated sets carry a frame code in every camera picture; reading it
// back through the per-source reader proves both ends: every frame of every
// rate comes out at its own time, and the code survives compression.
#include <gtest/gtest.h>

#include <cmath>

#include "PlaybackRig.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

TEST(FrameCode, EveryFrameOfEveryRateReadsBackAtItsOwnTime) {
    fs::path set = test::generatedSet("render", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    struct File {
        const char* path;
        int camera;
        double fps;
    };
    for (File f : {File{"Cam 1/clip 2.mp4", 1, 25.0}, File{"Cam 2/clip 1.mp4", 2, 24000.0 / 1001},
                   File{"Cam 3/clip 1.mp4", 3, 30000.0 / 1001}}) {
        auto reader = media::VideoReader::open(set / f.path);
        ASSERT_TRUE(reader.ok()) << f.path;
        // Middle of each frame for the first 100, then a jump back.
        for (long n : {0L, 1L, 2L, 50L, 99L, 100L, 7L, 230L, 3L}) {
            auto pic = reader->frameAt((n + 0.5) / f.fps);
            ASSERT_TRUE(pic.ok());
            auto code = test::codeOf((*pic)->frame);
            ASSERT_TRUE(code.has_value()) << f.path << " frame " << n;
            EXPECT_EQ(code->camera, f.camera);
            EXPECT_EQ(code->frame, n) << f.path;
        }
    }
}

}  // namespace
}  // namespace qv
