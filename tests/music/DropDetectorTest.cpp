#include "music/DropDetector.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

// A bass envelope from runs of {frames, value}, 10 frames per second.
std::vector<float> runs(std::initializer_list<std::pair<int, float>> parts) {
    std::vector<float> out;
    for (auto [count, value] : parts) out.insert(out.end(), count, value);
    return out;
}

struct Set {
    std::vector<MediaSource> sources;
    SyncResult result;

    // A file of source `source`, made when it does not exist yet.
    Set& place(size_t source, SourceKind kind, double start, std::vector<float> bass, double duration = -1) {
        if (source >= sources.size()) sources.resize(source + 1);
        sources[source].kind = kind;
        PlacedItem p;
        p.sourceIndex = static_cast<int>(source);
        p.start = start;
        p.item.duration = duration >= 0 ? duration : static_cast<double>(bass.size()) / 10;
        p.bass = std::move(bass);
        result.placed.push_back(std::move(p));
        return *this;
    }
    std::vector<Drop> detect(double sensitivity) const { return DropDetector::detect(result, sources, sensitivity); }
};

Set camera(std::vector<float> bass, double duration = -1) {
    return Set{}.place(0, SourceKind::camera, 0, std::move(bass), duration);
}

TEST(DropDetector, FindsARiseAfterABreakInSetsOfThirtySecondsOrMore) {
    auto drops = camera(runs({{300, 0.1f}, {301, 1.0f}})).detect(0.5);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[0], (Drop{0, 30.0, 1.0}));  // on the raw step, not the smoothed one

    EXPECT_TRUE(camera(runs({{900, 0.8f}})).detect(1.0).empty());  // constant kick

    // 301 frames hold candidates 80 to 240 only; a drop at 15 s fits.
    auto bass = runs({{150, 0.1f}, {151, 1.0f}});
    ASSERT_EQ(camera(bass, 30.0).detect(0.5).size(), 1u);
    EXPECT_DOUBLE_EQ(camera(bass, 30.0).detect(0.5)[0].time, 15.0);
    EXPECT_TRUE(camera(bass, 29.9).detect(1.0).empty());
}

TEST(DropDetector, KeepsTheStrongerOfTwoCloseDrops) {
    auto drops = camera(runs({{300, 0.1f}, {200, 0.6f}, {100, 0.1f}, {201, 1.0f}})).detect(1.0);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[0], (Drop{0, 60.0, 1.0}));

    // 50 s apart, both stay and the weaker scores relative to the stronger.
    drops = camera(runs({{300, 0.1f}, {300, 0.6f}, {200, 0.1f}, {301, 1.0f}})).detect(1.0);
    ASSERT_EQ(drops.size(), 2u);
    EXPECT_DOUBLE_EQ(drops[0].time, 30.0);
    EXPECT_NEAR(drops[0].strength, 0.5 / 0.9, 1e-6);
    EXPECT_EQ(drops[1], (Drop{1, 80.0, 1.0}));
}

TEST(DropDetector, SensitivitySetsTheScoreThreshold) {
    // Scaled by its loud part, the score is 1 - quiet; at sensitivity 0 the
    // threshold is 0.57.
    EXPECT_EQ(camera(runs({{300, 0.425f}, {301, 1.0f}})).detect(0.0).size(), 1u);
    EXPECT_TRUE(camera(runs({{300, 0.435f}, {301, 1.0f}})).detect(0.0).empty());

    // 0.3 to 0.5 under a louder intro scores 0.2: above 0.165 at 0.9 (and
    // 0.12 at 1), below 0.21 at 0.8.
    Set weak = camera(runs({{40, 1.0f}, {260, 0.3f}, {301, 0.5f}}));
    EXPECT_EQ(weak.detect(1.0).size(), 1u);
    EXPECT_EQ(weak.detect(0.9).size(), 1u);
    EXPECT_TRUE(weak.detect(0.8).empty());
}

TEST(DropDetector, HoleInCoverageExcludesACandidate) {
    // Frames 270 to 289 unrecorded lie in the windows of every candidate
    // near the rise at 30 s. Each file has loud material, so scales to 1.
    auto intro = runs({{40, 1.0f}, {230, 0.1f}});
    Set joined = camera(intro).place(0, SourceKind::camera, 27.0, runs({{30, 0.1f}, {301, 1.0f}}));
    Set gapped = camera(intro).place(0, SourceKind::camera, 29.0, runs({{10, 0.1f}, {301, 1.0f}}));
    ASSERT_EQ(joined.detect(0.5).size(), 1u);
    EXPECT_DOUBLE_EQ(joined.detect(0.5)[0].time, 30.0);
    EXPECT_TRUE(gapped.detect(1.0).empty());
}

TEST(DropDetector, RecorderEnvelopesReplaceTheCameras) {
    Set set = camera(runs({{300, 0.1f}, {301, 1.0f}})).place(1, SourceKind::audio, 0, runs({{601, 0.7f}}));
    EXPECT_TRUE(set.detect(1.0).empty());
    EXPECT_TRUE(DropDetector::onsets(set.result, set.sources).empty());

    set.result.placed.back().bass.clear();  // a recorder without envelope doesn't count
    EXPECT_EQ(set.detect(0.5).size(), 1u);
}

TEST(DropDetector, OnsetsAreSteepestSingleRises) {
    // Hits at frames 3, 8 and 19; a slow swell in steps of 0.1 (10 to 14)
    // gives none; of a rise in two steps (16, 17) only the steeper counts.
    Set set = camera({0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0, 0.2f, 0.6f, 0, 1, 0});
    set.result.placed[0].start = 2.0;
    set.place(0, SourceKind::camera, 2.5, {0, 0, 0, 1, 0});  // 2.8 s, with the first file's frame 8
    set.place(0, SourceKind::camera, 9.0, {0, 1, 0});        // 3 values: too few
    EXPECT_EQ(DropDetector::onsets(set.result, set.sources), (std::vector<double>{2.3, 2.8, 2.8, 3.7, 3.9}));
}

}  // namespace
}  // namespace qv
