#include "music/DropDetector.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

// A bass envelope built from runs: {frames, value}, 10 frames per second.
std::vector<float> runs(std::initializer_list<std::pair<int, float>> parts) {
    std::vector<float> out;
    for (auto [count, value] : parts) out.insert(out.end(), count, value);
    return out;
}

struct Set {
    std::vector<MediaSource> sources;
    SyncResult result;

    int addSource(SourceKind kind) {
        MediaSource s;
        s.id = Uuid::make();
        s.kind = kind;
        sources.push_back(s);
        return static_cast<int>(sources.size()) - 1;
    }
    void place(int source, double start, std::vector<float> bass, double duration = -1) {
        PlacedItem p;
        p.sourceIndex = source;
        p.start = start;
        p.item.duration = duration >= 0 ? duration : static_cast<double>(bass.size()) / 10;
        p.bass = std::move(bass);
        result.placed.push_back(std::move(p));
    }
};

// One camera: quiet break, then the bass at full level from frame 300 (30 s).
Set breakThenDrop(float quiet = 0.1f, float loud = 1.0f) {
    Set set;
    set.place(set.addSource(SourceKind::camera), 0, runs({{300, quiet}, {301, loud}}));
    return set;
}

TEST(DropDetector, FindsTheRiseOnTheRawLevel) {
    Set set = breakThenDrop();
    auto drops = DropDetector::detect(set.result, set.sources, 0.5);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[0].id, 0);
    EXPECT_DOUBLE_EQ(drops[0].time, 30.0);
    EXPECT_EQ(drops[0].strength, 1.0);
}

TEST(DropDetector, ConstantKickHasNoDrop) {
    Set set;
    set.place(set.addSource(SourceKind::camera), 0, runs({{900, 0.8f}}));
    EXPECT_TRUE(DropDetector::detect(set.result, set.sources, 1.0).empty());
}

TEST(DropDetector, ShortestSetIsThirtySeconds) {
    // A drop at 15 s, the only place a 301-frame set can hold one.
    auto bass = runs({{150, 0.1f}, {151, 1.0f}});
    Set full, short_;
    full.place(full.addSource(SourceKind::camera), 0, bass, 30.0);
    short_.place(short_.addSource(SourceKind::camera), 0, bass, 29.9);
    auto drops = DropDetector::detect(full.result, full.sources, 0.5);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_DOUBLE_EQ(drops[0].time, 15.0);
    EXPECT_TRUE(DropDetector::detect(short_.result, short_.sources, 1.0).empty());
}

TEST(DropDetector, OfTwoDropsThirtySecondsApartTheStrongerStays) {
    Set set;
    set.place(set.addSource(SourceKind::camera), 0,
              runs({{300, 0.1f}, {200, 0.6f}, {100, 0.1f}, {201, 1.0f}}));
    auto drops = DropDetector::detect(set.result, set.sources, 1.0);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_DOUBLE_EQ(drops[0].time, 60.0);
    EXPECT_EQ(drops[0].strength, 1.0);

    // Far enough apart, both stay and the weaker scores below 1.
    Set apart;
    apart.place(apart.addSource(SourceKind::camera), 0,
                runs({{300, 0.1f}, {300, 0.6f}, {200, 0.1f}, {301, 1.0f}}));
    drops = DropDetector::detect(apart.result, apart.sources, 1.0);
    ASSERT_EQ(drops.size(), 2u);
    EXPECT_DOUBLE_EQ(drops[0].time, 30.0);
    EXPECT_DOUBLE_EQ(drops[1].time, 80.0);
    EXPECT_EQ(drops[1].id, 1);
    EXPECT_LT(drops[0].strength, 0.7);
    EXPECT_EQ(drops[1].strength, 1.0);
}

TEST(DropDetector, SensitivitySetsTheScoreThreshold) {
    // With the loud part as the file's reference, the score is 1 - quiet:
    // at sensitivity 0 the threshold is 0.57.
    Set pass = breakThenDrop(0.425f), fail = breakThenDrop(0.435f);
    EXPECT_EQ(DropDetector::detect(pass.result, pass.sources, 0.0).size(), 1u);
    EXPECT_TRUE(DropDetector::detect(fail.result, fail.sources, 0.0).empty());

    // A weak drop (0.3 to 0.5 of a louder intro, score 0.2) passes only at
    // high sensitivity: 0.165 at 0.9, 0.21 at 0.8.
    Set weak;
    weak.place(weak.addSource(SourceKind::camera), 0, runs({{40, 1.0f}, {260, 0.3f}, {301, 0.5f}}));
    EXPECT_EQ(DropDetector::detect(weak.result, weak.sources, 1.0).size(), 1u);
    EXPECT_EQ(DropDetector::detect(weak.result, weak.sources, 0.9).size(), 1u);
    EXPECT_TRUE(DropDetector::detect(weak.result, weak.sources, 0.8).empty());
    EXPECT_TRUE(DropDetector::detect(weak.result, weak.sources, 0.5).empty());
}

TEST(DropDetector, HoleInCoverageExcludesACandidate) {
    // Two files of one camera, each with loud material so each scales to 1.
    // Unrecorded frames 270 to 289 lie in the windows of every candidate
    // near the rise at 30 s.
    auto intro = runs({{40, 1.0f}, {230, 0.1f}});
    Set joined, gapped;
    int cam = joined.addSource(SourceKind::camera);
    joined.place(cam, 0, intro);
    joined.place(cam, 27.0, runs({{30, 0.1f}, {301, 1.0f}}));
    cam = gapped.addSource(SourceKind::camera);
    gapped.place(cam, 0, intro);
    gapped.place(cam, 29.0, runs({{10, 0.1f}, {301, 1.0f}}));

    auto drops = DropDetector::detect(joined.result, joined.sources, 0.5);
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_DOUBLE_EQ(drops[0].time, 30.0);
    EXPECT_TRUE(DropDetector::detect(gapped.result, gapped.sources, 1.0).empty());
}

TEST(DropDetector, RecorderEnvelopesReplaceTheCameras) {
    Set set = breakThenDrop();
    int recorder = set.addSource(SourceKind::audio);
    set.place(recorder, 0, runs({{601, 0.7f}}));
    EXPECT_TRUE(DropDetector::detect(set.result, set.sources, 1.0).empty());
    EXPECT_TRUE(DropDetector::onsets(set.result, set.sources).empty());

    // A recorder whose envelope is missing leaves the cameras in charge.
    set.result.placed.back().bass.clear();
    EXPECT_EQ(DropDetector::detect(set.result, set.sources, 0.5).size(), 1u);
}

TEST(DropDetector, OnsetsAreSteepestSingleRises) {
    Set set;
    int cam = set.addSource(SourceKind::camera);
    // Hits at frames 3, 8 and 19; a slow swell in steps of 0.1 (frames 10 to
    // 14) gives none; of a rise in two steps (16, 17) only the steeper counts.
    set.place(cam, 2.0, {0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f,
                         0, 0.2f, 0.6f, 0, 1, 0});
    set.place(cam, 2.5, {0, 0, 0, 1, 0});  // frame 3: 2.8 s, as the first file's frame 8
    set.place(cam, 9.0, {0, 1, 0});        // 3 values: too few

    auto times = DropDetector::onsets(set.result, set.sources);
    ASSERT_EQ(times.size(), 5u);
    EXPECT_DOUBLE_EQ(times[0], 2.3);
    EXPECT_DOUBLE_EQ(times[1], 2.8);
    EXPECT_DOUBLE_EQ(times[2], 2.8);
    EXPECT_DOUBLE_EQ(times[3], 3.7);
    EXPECT_DOUBLE_EQ(times[4], 3.9);
}

TEST(DropDetector, MovingAverageKeepsShortInputs) {
    std::vector<double> x{1, 2, 3, 4};
    EXPECT_EQ(DropDetector::movingAverage(x, 4), x);
    EXPECT_EQ(DropDetector::movingAverage(x, 1), x);
    EXPECT_EQ(DropDetector::movingAverage(x, 2), (std::vector<double>{1, 1.5, 2.5, 3.5}));
}

}  // namespace
}  // namespace qv
