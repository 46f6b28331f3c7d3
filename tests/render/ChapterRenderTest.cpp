// A camera that cut one recording in chapters, from a clock 400 ppm fast:
// rendered across each chapter's end, every frame shows a picture, and the
// frame codes run on from the last frames of one chapter to the first of the
// next with no gap or repeat beyond one frame.
#include <gtest/gtest.h>

#include <cmath>

#include "render/RenderFixtures.h"
#include "support/DevicesSet.h"

namespace qv {
namespace {

TEST(ChapterRender, FrameCodesRunOnAcrossEveryChapterBoundary) {
    const test::DevicesSet* d = test::DevicesSet::get();
    if (!d) GTEST_SKIP() << "generator or ffmpeg unavailable";
    for (const char* later : {"Cam 1/GX020050.MP4", "Cam 1/GX030050.MP4"}) {
        const PlacedItem* next = d->placed(later);
        ASSERT_NE(next, nullptr) << later;
        const double boundary = next->start;
        VideoRender::Job job;
        job.sources = d->sources;
        job.result = d->result;
        job.cameraSources = d->cameraSources();
        job.segments = test::plans({{0, 0}}, d->result.duration());  // camera 1 throughout
        job.planEffects.resize(job.segments.size());
        job.range = {boundary - 1, boundary + 1};
        job.audio.mode = AudioSettings::Mode::table;

        test::TempDir dir;
        auto out = test::renderNow(job, VideoCodec::h264, dir / "chapitre.mp4");
        ASSERT_TRUE(out.ok()) << out.error().message;

        auto reader = media::VideoReader::open(*out);
        ASSERT_TRUE(reader);
        std::optional<setgen::framecode::Code> last;
        int changes = 0, repeats = 0;
        for (long n = 0; n < 50; ++n) {
            auto picture = reader->frameAt((n + 0.5) / 25);
            ASSERT_TRUE(picture) << later << " frame " << n;
            auto code = test::codeOf((*picture)->frame);
            ASSERT_TRUE(code) << later << " frame " << n << " is black";
            EXPECT_EQ(code->camera, 1);
            if (last && code->clip == last->clip) {
                EXPECT_GE(code->frame - last->frame, 0) << later << " frame " << n;
                EXPECT_LE(code->frame - last->frame, 2) << later << " frame " << n;
                repeats = code->frame == last->frame ? repeats + 1 : 0;
                EXPECT_LE(repeats, 1) << later << " frozen at frame " << n;
            } else if (last) {
                // The earlier chapter's last frame or the one before, then
                // the next chapter's first or second.
                ++changes;
                const long frames = std::lround(d->placed(std::string("Cam 1/GX0") + std::to_string(last->clip) +
                                                          "0050.MP4")->item.duration * 25);
                EXPECT_EQ(code->clip, last->clip + 1);
                EXPECT_GE(last->frame, frames - 2) << later;
                EXPECT_LE(code->frame, 1) << later;
            }
            last = code;
        }
        EXPECT_EQ(changes, 1) << later;
    }
}

}  // namespace
}  // namespace qv
