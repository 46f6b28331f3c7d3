#include "edit/AutoEditor.h"

#include <gtest/gtest.h>

namespace qv {
namespace {

using Ranges = std::vector<std::vector<TimeRange>>;

AutoSettings plain() {
    AutoSettings s;
    s.snapToBeat = s.fasterOnDrops = false;
    return s;
}

// All cameras of `ranges` allowed unless told otherwise.
std::vector<Cut> run(TimeRange range, const Ranges& ranges, const AutoSettings& s, std::set<int> allowed = {},
                     const std::vector<Drop>& drops = {}, const std::vector<double>& onsets = {},
                     const std::map<int, double>& weights = {}) {
    if (allowed.empty())
        for (int c = 0; c < static_cast<int>(ranges.size()); ++c) allowed.insert(c);
    return AutoEditor::generate(range, ranges, allowed, drops, onsets, s, weights);
}

std::vector<std::pair<double, int>> shape(const std::vector<Cut>& cuts) {
    std::vector<std::pair<double, int>> out;
    for (const Cut& c : cuts) out.emplace_back(c.time, c.camera);
    return out;
}

TEST(AutoEditor, RepeatsFromTheSeedAndTheRangeStart) {
    // Seed 7 from 12.345 s: state 7 * 0x9E3779B97F4A7C15 xor 12345. Plan
    // lengths 2 + 4u from the 1st and 3rd draws, worked out independently.
    AutoSettings s = plain();
    s.seed = 7;
    Ranges both{{{0, 1000}}, {{0, 1000}}};
    auto cuts = run({12.345, 500}, both, s);
    ASSERT_GE(cuts.size(), 3u);
    EXPECT_EQ(cuts[0].time, 12.345);
    EXPECT_EQ(cuts[0].camera, 0);  // 2nd draw 0.32 of two equal weights
    EXPECT_DOUBLE_EQ(cuts[1].time, 12.345 + 4.363419569118251);
    EXPECT_DOUBLE_EQ(cuts[2].time, cuts[1].time + 3.737538584270117);

    EXPECT_EQ(shape(run({12.345, 500}, both, s)), shape(cuts));
    EXPECT_NEAR(run({12.3451, 500}, both, s)[1].time - 12.3451, 4.363419569118251, 1e-9);  // same ms
    s.seed = 8;
    EXPECT_NE(shape(run({12.345, 500}, both, s)), shape(cuts));
    EXPECT_TRUE(run({10, 10.03}, both, s).empty());
}

TEST(AutoEditor, PlansStayOnFilmingCamerasAndAlternate) {
    // At least two cameras film at every moment, so every draw is a cut.
    Ranges ranges{{{0, 400}, {450, 600}}, {{0, 600}}, {{100, 500}}};
    std::vector<double> onsets;
    for (double t = 0.25; t < 600; t += 0.5) onsets.push_back(t);
    auto plans = Segment::build(run({0, 600}, ranges, AutoSettings{}, {}, {{0, 200, 1}}, onsets), 600);
    ASSERT_GT(plans.size(), 100u);
    for (const Segment& p : plans) {
        EXPECT_TRUE(std::any_of(ranges[p.camera].begin(), ranges[p.camera].end(), [&](const TimeRange& r) {
            return r.start - 0.01 <= p.start && p.end <= r.end + 0.01;
        })) << "camera " << p.camera << " at " << p.start;
        if (p.id == 0) continue;
        EXPECT_NE(p.camera, plans[p.id - 1].camera);
        EXPECT_LE(plans[p.id - 1].end - plans[p.id - 1].start, 6.4 + 1e-9);
    }
    auto alone = run({0, 600}, {{{0, 600}}, {{0, 600}}}, plain(), {1});
    EXPECT_EQ(shape(alone), (std::vector<std::pair<double, int>>{{0, 1}}));
}

TEST(AutoEditor, WeightsSteerTheChoice) {
    // At 0 %, camera 1 is taken only where camera 0 doesn't film or has less
    // than half a second left.
    Ranges ranges{{{0, 100}, {200, 300}}, {{0, 300}}};
    int used = 0;
    for (const Cut& c : run({0, 300}, ranges, plain(), {}, {}, {}, {{1, 0}})) {
        if (c.camera != 1) continue;
        ++used;
        EXPECT_TRUE(c.time >= 99.5 && c.time < 200) << c.time;
    }
    EXPECT_EQ(used, 1);

    Ranges three{{{0, 1800}}, {{0, 1800}}, {{0, 1800}}};
    std::map<int, double> shown;
    auto cuts = run({0, 1800}, three, AutoSettings{}, {}, {}, {}, {{0, 100}, {1, 20}, {2, 20}});
    for (const Segment& s : Segment::build(cuts, 1800)) shown[s.camera] += s.end - s.start;
    EXPECT_GT(shown[0], 1.5 * std::max(shown[1], shown[2]));
}

TEST(AutoEditor, NoCutInsideAGap) {
    Ranges ranges{{{0, 100}, {150, 300}}, {{0, 100}, {200, 300}}};
    auto cuts = run({0, 300}, ranges, plain());
    for (const Cut& c : cuts) EXPECT_FALSE(c.time >= 99.95 && c.time < 150) << c.time;
    auto plans = Segment::build(cuts, 300);
    EXPECT_EQ(std::find_if(plans.begin(), plans.end(), [](const Segment& p) { return p.end > 150; })->camera, 0);
    EXPECT_EQ(run({0, 300}, ranges, plain(), {0}).size(), 1u);  // the camera in use comes back alone
}

TEST(AutoEditor, PlansAfterADropAreAboutHalfAsLong) {
    std::vector<Drop> drops;
    for (int i = 0; i < 12; ++i) drops.push_back({i, 50.0 + 100 * i, 1});
    AutoSettings s = plain();
    s.fasterOnDrops = true;
    auto plans = Segment::build(run({0, 1200}, {{{0, 1200}}, {{0, 1200}}}, s, {}, drops), 1200);
    double sum[2] = {0, 0};
    int count[2] = {0, 0};
    for (size_t i = 0; i + 1 < plans.size(); ++i) {
        const Segment& p = plans[i];
        int near = std::any_of(drops.begin(), drops.end(),
                               [&](const Drop& d) { return d.time - 0.1 <= p.start && p.start < d.time + 16; });
        sum[near] += p.end - p.start;
        ++count[near];
    }
    ASSERT_GT(count[1], 50);
    const double ratio = (sum[1] / count[1]) / (sum[0] / count[0]);
    EXPECT_GT(ratio, 0.4);
    EXPECT_LT(ratio, 0.6);
}

TEST(AutoEditor, PlanLengthLimits) {
    Ranges both{{{0, 60}}, {{0, 60}}};
    AutoSettings s = plain();
    s.minPlan = 3;
    s.maxPlan = 1;  // below minPlan: every plan is exactly minPlan...
    auto cuts = run({0, 60}, both, s);
    ASSERT_EQ(cuts.size(), 20u);
    for (size_t i = 0; i < cuts.size(); ++i) EXPECT_NEAR(cuts[i].time, 3.0 * i, 1e-9);
    s.snapToBeat = true;  // ...but for snapping
    EXPECT_DOUBLE_EQ(run({0, 60}, both, s, {}, {}, {3.3})[1].time, 3.3);

    s = plain();
    s.minPlan = s.maxPlan = 0.1;  // acts as 0.5
    cuts = run({0, 10}, both, s);
    ASSERT_EQ(cuts.size(), 20u);
    EXPECT_NEAR(cuts[7].time, 3.5, 1e-9);
}

TEST(AutoEditor, CameraRangesMergeSmallGaps) {
    SyncResult result;
    for (auto [source, start, duration, video] :
         {std::tuple{2, 20.4, 10.0, true}, {2, 0.0, 20.0, true}, {2, 31.0, 5.0, true}, {2, 60.0, 5.0, false},
          {0, 0.0, 100.0, true}}) {
        PlacedItem& p = result.placed.emplace_back();
        p.sourceIndex = source;
        p.start = start;
        p.item.duration = duration;
        p.item.hasVideo = video;
    }
    auto ranges = AutoEditor::cameraRanges(result, {2, 5});
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0], (std::vector<TimeRange>{{0, 30.4}, {31, 36}}));  // 0.4 s joins, 0.6 s doesn't
    EXPECT_TRUE(ranges[1].empty());
}

// The picture analysis as the editor takes it: unusable stretches are not
// filming (with their margin), weak ones are drawn less, and a camera is not
// chased afterwards for the time it lost.
TEST(AutoEditor, PicturesSteerTheEdit) {
    using analysis::PictureFault;
    using analysis::PictureGrade;
    const Ranges three{{{0, 600}}, {{0, 600}}, {{0, 600}}};
    analysis::CameraPictures pictures(3);
    pictures[0] = {{100, 160, PictureGrade::unusable, PictureFault::black},
                   {300, 420, PictureGrade::weak, PictureFault::soft}};
    const std::set<int> all = {0, 1, 2};
    const auto cuts = AutoEditor::generate({0, 600}, three, all, {}, {}, AutoSettings{}, {}, pictures);
    std::map<int, double> after, weak;
    for (const Segment& s : Segment::build(cuts, 600)) {
        if (s.camera == 0) {
            EXPECT_TRUE(s.end <= 100 - AutoEditor::unusableMargin + 1e-9 || s.start >= 160 + AutoEditor::unusableMargin)
                << s.start << " → " << s.end;
        }
        auto part = [&](double a, double b) { return std::max(0.0, std::min(s.end, b) - std::max(s.start, a)); };
        after[s.camera] += part(160, 300) + part(420, 600);
        weak[s.camera] += part(300, 420);
    }
    // Back from its black stretch, camera 0 takes its third, not the time lost.
    EXPECT_NEAR(after[0] / 320, 1.0 / 3, 0.1);
    EXPECT_LT(weak[0], 0.6 * (weak[1] + weak[2]) / 2);

    // Unusable everywhere: nothing films; the same without the analysis cuts.
    analysis::CameraPictures blind(1, {{0, 600, PictureGrade::unusable, PictureFault::frozen}});
    EXPECT_TRUE(AutoEditor::generate({0, 600}, {{{0, 600}}}, {0}, {}, {}, AutoSettings{}, {}, blind).empty());
    EXPECT_EQ(AutoEditor::without({{0, 10}, {20, 30}}, {{5, 22, PictureGrade::unusable, PictureFault::blur}}),
              (std::vector<TimeRange>{{0, 5}, {22, 30}}));
}

}  // namespace
}  // namespace qv
