// The player's readers over devices as they write: a recording in chapters
// from a clock 400 ppm fast, where at each chapter's end the earlier one
// shows to its last frames and the next from its first; and the stream and
// channel that carry a file's sound, heard at full level.
#include <cmath>

#include "PlaybackRig.h"
#include "playback/SourceTimeline.h"
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

// RMS of one second of a source's line from set time `at`, stereo at 48 kHz.
double loudnessOf(const test::DevicesSet& d, const std::string& source, double at, std::optional<SoundPick> pick) {
    std::vector<PlacedItem> files;
    for (auto p : d.result.placed)
        if (d.sources[static_cast<size_t>(p.sourceIndex)].name == source) {
            if (pick) p.sound = *pick;
            files.push_back(p);
        }
    SourceReader reader(SourceTimeline::composition(files, d.result.duration(), false));
    std::vector<float> out(48000 * 2);
    EXPECT_TRUE(reader.sound(std::llround(at * 48000), 48000, 48000, 2, out.data()));
    double sum = 0;
    for (float v : out) sum += static_cast<double>(v) * v;
    return std::sqrt(sum / static_cast<double>(out.size()));
}

TEST(DevicePlayback, TheStreamAndChannelThatCarrySoundAreHeard) {
    const test::DevicesSet* d = test::DevicesSet::get();
    if (!d) GTEST_SKIP() << "generator or ffmpeg unavailable";
    const double poly = d->placed("Son 5/poly.wav")->start + 20, camera = d->placed("Cam 2/C0001.MOV")->start + 20;
    // Channel 4 of six, as the synchronisation picked it, at full level;
    // all six mixed evenly would be a sixth of it.
    const double four = loudnessOf(*d, "Son 5", poly, std::nullopt);
    EXPECT_GT(four, 0.01);
    EXPECT_GT(four, 3 * loudnessOf(*d, "Son 5", poly, SoundPick{0, 0}));
    EXPECT_LT(loudnessOf(*d, "Son 5", poly, SoundPick{0, 0b1}), 1e-4);
    // The camera's second stream; its first is silence.
    EXPECT_GT(loudnessOf(*d, "Cam 2", camera, std::nullopt), 0.01);
    EXPECT_LT(loudnessOf(*d, "Cam 2", camera, SoundPick{0, 0}), 1e-4);
}

}  // namespace
}  // namespace qv
