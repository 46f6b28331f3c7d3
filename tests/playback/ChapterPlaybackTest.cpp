// The player's camera reader over a recording in chapters from a clock
// 400 ppm fast: at each chapter's end it shows the earlier chapter to its
// last frames, then the next one from its first, every picture in turn.
#include "PlaybackRig.h"
#include "playback/TimelineTracks.h"
#include "support/DevicesSet.h"

namespace qv {
namespace {

TEST(ChapterPlayback, EachChapterShowsToItsEndAndTheNextFromItsStart) {
    const test::DevicesSet* d = test::DevicesSet::get();
    if (!d) GTEST_SKIP() << "generator or ffmpeg unavailable";
    std::vector<PlacedItem> chapters;
    for (const auto& p : d->result.placed)
        if (d->sources[static_cast<size_t>(p.sourceIndex)].name == "Cam 1") chapters.push_back(p);
    ASSERT_EQ(chapters.size(), 3u);
    for (size_t k = 1; k < chapters.size(); ++k) {
        const double boundary = chapters[k].start;
        auto reader = timelineTracks().video(chapters, d->result.duration());
        ASSERT_TRUE(reader);
        // A plan over the boundary, as the edit gives the player.
        reader->keepInStep({{boundary - 2, boundary + 2}});
        reader->seek(boundary - 0.2);
        std::optional<setgen::framecode::Code> last;
        int changes = 0;
        for (double t = boundary - 0.2; t < boundary + 0.2;) {
            auto frame = reader->read(t);
            ASSERT_TRUE(frame) << t;
            auto code = test::codeOf(*frame);
            ASSERT_TRUE(code) << t;
            if (last && code->clip == last->clip) {
                EXPECT_GE(code->frame - last->frame, 1) << t;
                EXPECT_LE(code->frame - last->frame, 2) << t;
            } else if (last) {
                ++changes;
                EXPECT_EQ(code->clip, last->clip + 1);
                EXPECT_GE(last->frame, std::lround(chapters[k - 1].item.duration * 25) - 2);
                EXPECT_LE(code->frame, 1);
                EXPECT_NEAR(frame->start, boundary, 0.041);
            }
            last = code;
            t = frame->end;
        }
        EXPECT_EQ(changes, 1);
    }
}

}  // namespace
}  // namespace qv
