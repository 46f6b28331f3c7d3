#include "edit/EditModel.h"

#include <gtest/gtest.h>

#include "Fakes.h"
#include "base/SplitMix64.h"
#include "support/MontageSet.h"

namespace qv {
namespace {

using test::cutAt;

SyncResult setOf(double duration) {
    SyncResult result;
    result.placed.emplace_back().item.duration = duration;
    return result;
}

// A 100 s set with three cameras; the third films only from 50 s.
class EditModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        model.setResult(setOf(100));
        player->angleList = {{"Cam 1", true, {{0, 100}}}, {"Cam 2", true, {{0, 100}}}, {"Cam 3", true, {{50, 100}}}};
        model.setPlayer(player);
    }
    void at(double t, bool playing) {
        player->time = t;
        player->playing = playing;
    }
    std::vector<double> times() const {
        std::vector<double> out;
        for (const Cut& c : model.cuts()) out.push_back(c.time);
        return out;
    }

    test::ManualScheduler scheduler;
    EditModel model{scheduler};
    std::shared_ptr<test::FakePlayer> player = std::make_shared<test::FakePlayer>();
};

TEST(Segment, ImplicitFirstPlanOnlyWithoutACutAtTheStart) {
    auto plans = Segment::build({}, 60);
    ASSERT_EQ(plans.size(), 1u);
    EXPECT_EQ(plans[0].end, 60);
    EXPECT_FALSE(plans[0].cutIndex);

    plans = Segment::build({cutAt(0.0005, 2)}, 60);
    ASSERT_EQ(plans.size(), 1u);
    EXPECT_EQ(plans[0].cutIndex, 0);

    plans = Segment::build({cutAt(0.002, 2)}, 60);
    ASSERT_EQ(plans.size(), 2u);
    EXPECT_EQ(plans[0].camera, 0);
    EXPECT_EQ(plans[0].end, 0.002);
}

TEST_F(EditModelTest, LiveCutReplacesCutsWithinTwentyMilliseconds) {
    Cut zoomed = cutAt(10, 1, PlanEffect::zoomIn);
    model.setCuts({zoomed});
    at(10.02, true);
    model.pressCamera(0);
    ASSERT_EQ(model.cuts().size(), 1u);
    EXPECT_NE(model.cuts()[0].id, zoomed.id);
    EXPECT_EQ(model.cuts()[0].effect, PlanEffect::automatic);

    at(10.041, true);  // 21 ms after: a cut of its own
    model.pressCamera(1);
    EXPECT_EQ(times(), (std::vector<double>{10.02, 10.041}));

    // Within 20 ms of 0: the cut at 0 goes, the implicit first plan returns.
    model.setCuts({cutAt(0, 1)});
    at(0.015, true);
    model.pressCamera(0);
    EXPECT_FALSE(model.segments()[0].cutIndex);
}

TEST_F(EditModelTest, LivePressWithoutEffect) {
    model.setCuts({cutAt(5, 1)});
    int changes = 0;
    model.setOnChange([&](EditModel::Change c) { changes += c == EditModel::Change::cuts; });
    at(20, true);
    model.pressCamera(1);  // already on air
    model.pressCamera(7);  // no such angle
    model.pressCamera(2);  // films only from 50 s
    EXPECT_EQ(model.toast(), "Cam 3 n'a pas de flux à ce moment");
    EXPECT_EQ(model.cuts().size(), 1u);
    EXPECT_TRUE(model.history().empty());
    EXPECT_EQ(changes, 0);
}

TEST_F(EditModelTest, StoppedPressMakesTheFirstPlanRealButNeverDeletable) {
    at(3, false);
    model.pressCamera(1);
    EXPECT_EQ(times(), std::vector<double>{0});
    EXPECT_EQ(model.selectedSegment(), 0);
    model.deleteSegmentCut();
    EXPECT_EQ(model.toast(), "Le premier plan reste : change sa caméra avec 1 à 8");
    EXPECT_EQ(model.history().size(), 1u);

    model.setCuts({cutAt(0, 1), cutAt(45, 0)});
    model.select(std::nullopt);
    at(47, false);
    model.pressCamera(2);  // probe at the playhead: camera 3 starts at 50
    EXPECT_EQ(model.toast(), "Cam 3 n'a pas de flux sur ce plan");
    model.deleteSegmentCut();
    EXPECT_EQ(times(), std::vector<double>{0});
    EXPECT_FALSE(model.selectedSegment());
}

TEST_F(EditModelTest, SplitsAndDragsKeepFortyMilliseconds) {
    model.setCuts({cutAt(30, 1, PlanEffect::zoomIn)});
    for (double t : {0.04, 100 - 0.04, 30.03, 29.97}) model.addEdit(t);
    EXPECT_TRUE(model.history().empty());
    model.addEdit(50);
    ASSERT_EQ(model.cuts().size(), 2u);
    EXPECT_EQ(model.cuts()[1].camera, 1);  // same picture, no inherited effect
    EXPECT_EQ(model.cuts()[1].effect, PlanEffect::automatic);
    EXPECT_EQ(model.selectedSegment(), 2);

    model.setCuts({cutAt(10, 1), cutAt(20, 0), cutAt(30, 1)});
    model.moveCut(1, 35);
    model.moveCut(0, -5);
    model.moveCut(2, 500);
    EXPECT_EQ(times(), (std::vector<double>{0.04, 30 - 0.04, 100 - 0.04}));
    model.setCuts({cutAt(10, 1), cutAt(10.03, 0), cutAt(10.06, 1)});
    model.moveCut(1, 0);  // bounds cross: the upper one wins
    EXPECT_DOUBLE_EQ(model.cuts()[1].time, 10.06 - 0.04);
}

TEST_F(EditModelTest, HistoryKeepsThreeHundredSteps) {
    for (int i = 0; i < 301; ++i) {
        model.record();
        model.setCuts({cutAt(10 + i * 0.1, i % 2)});
    }
    for (int i = 0; i < 300; ++i) model.undo();
    EXPECT_EQ(model.cuts().size(), 1u);  // the empty edit before step 1 is gone
    EXPECT_FALSE(model.toast());
    model.undo();
    EXPECT_EQ(model.toast(), "Rien à annuler");
}

// Steps keep only what differs, yet any mix of edits, drags, outside
// assignments and undos gives back exactly the cuts each step began with.
TEST_F(EditModelTest, UndoBringsBackEveryEarlierEditExactly) {
    std::vector<Cut> many;
    for (int i = 0; i < 2000; ++i) many.push_back(cutAt(0.04 * i, i % 3 == 2 ? 1 : i % 2));
    model.setCuts(many);
    std::vector<std::vector<Cut>> expected;  // the cuts at each step's start
    SplitMix64 rng(0x5eed);
    auto below = [&](int n) { return static_cast<int>(rng.next() % static_cast<uint64_t>(n)); };
    for (int round = 0; round < 280; ++round) {  // fewer steps than the history keeps
        const std::vector<Cut> before = model.cuts();
        const size_t steps = model.history().size();
        const double t = 0.5 + below(7900) * 0.01;
        switch (below(7)) {
            case 0: at(t, true), model.pressCamera(below(2)); break;
            case 1: at(t, false), model.select(std::nullopt), model.pressCamera(below(2)); break;
            case 2: model.addEdit(t); break;
            case 3: at(t, false), model.select(std::nullopt), model.deleteSegmentCut(); break;
            case 4: {  // a drag: one step, several moves
                model.record();
                const int cut = 1 + below(static_cast<int>(model.cuts().size()) - 1);
                for (int k = 0; k < 3; ++k) model.moveCut(cut, model.cuts()[size_t(cut)].time + 0.01 * (k - 1));
                break;
            }
            case 5:
                if (!expected.empty()) {
                    model.undo();
                    EXPECT_EQ(model.cuts(), expected.back()) << "round " << round;
                    expected.pop_back();
                }
                continue;
            case 6: {  // changed from outside, with no step of its own
                std::vector<Cut> cuts = model.cuts();
                cuts[size_t(below(static_cast<int>(cuts.size())))].camera = 2;
                model.setCuts(cuts);
                continue;
            }
        }
        if (model.history().size() > steps) expected.push_back(before);
    }
    while (!expected.empty()) {
        model.undo();
        ASSERT_EQ(model.cuts(), expected.back());
        expected.pop_back();
    }
}

// With a million cuts, three hundred whole copies would not fit in memory.
TEST_F(EditModelTest, StepsHoldTheCutsTheyChangedNotTheWholeEdit) {
    std::vector<Cut> many;
    for (int i = 0; i < 20000; ++i) many.push_back(cutAt(0.004 * i + 0.002, i % 2));
    model.setCuts(many);
    for (int i = 0; i < 100; ++i) {
        const double t = 0.3 + 0.79 * i;
        at(t, true);
        model.pressCamera(model.activeCamera(t) == 0 ? 1 : 0);  // a live cut replacing the nearby ones
        model.record();                // a drag
        model.moveCut(5 * i + 1, model.cuts()[size_t(5 * i + 1)].time + 0.001);
    }
    ASSERT_EQ(model.history().size(), 200u);
    size_t held = 0;
    for (const auto& step : model.history()) held += step.middle.size() + (step.whole ? step.whole->size() : 0);
    EXPECT_LE(held, many.size() + 20 * model.history().size());
}

TEST_F(EditModelTest, HandPlacementsAreUndoneWithTheCuts) {
    model.setCuts({cutAt(0, 0), cutAt(40, 1)});
    model.setHand({{"Cam 2/b.mp4", 5}});  // as read from a project: no undo step
    EXPECT_TRUE(model.history().empty());
    model.placeByHand("Cam 1/a.mp4", 12.5);
    model.placeByHand("Cam 1/a.mp4", 12.5);  // already there: no step
    model.moveCut(1, 45);
    model.revertToAutomatic("Cam 2/b.mp4");
    model.revertToAutomatic("Cam 3/c.mp4");  // never placed by hand: no step
    EXPECT_EQ(model.history().size(), 2u);
    EXPECT_EQ(model.hand(), (HandPlacements{{"Cam 1/a.mp4", 12.5}}));
    model.undo();
    EXPECT_EQ(model.hand(), (HandPlacements{{"Cam 1/a.mp4", 12.5}, {"Cam 2/b.mp4", 5}}));
    EXPECT_EQ(times(), (std::vector<double>{0, 45}));
    model.undo();
    EXPECT_EQ(model.hand(), (HandPlacements{{"Cam 2/b.mp4", 5}}));
    model.placeByHand("Cam 1/a.mp4", -3);  // never before the line's start
    EXPECT_EQ(model.hand().at("Cam 1/a.mp4"), 0.0);
}

TEST(HandPlacement, LaidOverTheSoundsPlacement) {
    const std::filesystem::path set = "/sets/Soirée";
    auto item = [&](const char* path, double duration) {
        MediaItem m;
        m.url = set / path;
        m.duration = duration;
        return m;
    };
    SyncResult automatic;
    automatic.placed.resize(2);
    automatic.placed[0].item = item("Son 1/rec.wav", 100);
    automatic.placed[1].sourceIndex = 1;
    automatic.placed[1].item = item("Cam 1/a.mp4", 20);
    automatic.placed[1].start = 30;
    automatic.placed[1].ambiguous = true;
    automatic.unsynced.push_back({2, item("Cam 2/b.mp4", 10), "pas de son commun trouvé", {{55, 12}}});
    EXPECT_EQ(HandPlacement::keyOf(set / "Cam 2/b.mp4", set), "Cam 2/b.mp4");
    EXPECT_EQ(HandPlacement::keyOf("/elsewhere/x.mp4", set), "/elsewhere/x.mp4");

    const SyncResult r = HandPlacement::apply(automatic, {{"Cam 2/b.mp4", 10}, {"Cam 1/a.mp4", -2}, {"Cam 9/gone.mp4", 1}},
                                              set);
    ASSERT_EQ(r.placed.size(), 3u);
    EXPECT_TRUE(r.unsynced.empty());
    // Sorted by start again; the moved file is no longer in doubt.
    EXPECT_EQ(r.placed[1].item.url, set / "Cam 1/a.mp4");
    EXPECT_EQ(r.placed[1].start, 0.0);
    EXPECT_TRUE(r.placed[1].byHand && !r.placed[1].ambiguous);
    EXPECT_EQ(r.placed[2].start, 10.0);
    EXPECT_EQ(r.placed[2].candidates, automatic.unsynced[0].candidates);
    EXPECT_FALSE(r.placed[0].byHand);

    const std::vector<SyncCandidate> candidates = {{10, 9}, {10.4, 12}};
    EXPECT_EQ(HandPlacement::snap(10.25, candidates, 0.2), 10.4);
    EXPECT_EQ(HandPlacement::snap(10.15, candidates, 0.2), 10.0);
    EXPECT_EQ(HandPlacement::snap(11, candidates, 0.2), 11.0);
}

TEST_F(EditModelTest, PlanEffectsAndLooksWithTheirToasts) {
    EffectSettings effects;
    effects.lensEnabled = true;
    Uuid cam0 = Uuid::make();
    effects.lensCameras = {cam0};
    model.setEffects(effects);
    model.setCameraIds({cam0, Uuid::make(), Uuid::make()});
    at(5, false);

    model.toggleLook(LookKind::lens);  // the draw shows lens blur: switch it off
    EXPECT_EQ(model.toast(), "Plan 1 : flou d'objectif coupé");
    EXPECT_EQ(model.cuts().at(0).looks.lens, false);
    model.toggleLook(LookKind::vhs);
    EXPECT_EQ(model.toast(), "Plan 1 : effet VHS activé");
    model.cycleZoom();
    EXPECT_EQ(model.toast(), "Plan 1 : zoom avant");
    model.cycleZoom();
    EXPECT_EQ(model.cuts()[0].effect, PlanEffect::zoomOut);
    EXPECT_EQ(model.cuts()[0].looks.vhs, true);
    model.setEffect(PlanEffect::shake);
    EXPECT_EQ(model.toast(), "Plan 1 : effet épaule");
    model.setEffect(PlanEffect::automatic);  // back to the global looks too
    EXPECT_EQ(model.cuts()[0].looks, PlanLooks{});
    model.select(9);  // stale: nothing
    model.cycleZoom();
    EXPECT_EQ(model.cuts()[0].effect, PlanEffect::automatic);
}

TEST_F(EditModelTest, ExportRangeAndMarks) {
    model.setRange(40, 40.2);
    EXPECT_EQ(model.exportRange(), (TimeRange{40, 41}));
    model.setRange(-3, 99.97);  // marks near the ends are dropped
    EXPECT_FALSE(model.inPoint() || model.outPoint());
    model.setMarks(70, 20);  // crossed, as a hand-edited project may hold
    EXPECT_EQ(model.exportRange(), (TimeRange{0, 100}));
    model.setMarks(30, std::nullopt);
    at(25, false);
    model.markOut();
    EXPECT_FALSE(model.inPoint());

    model.setResult(setOf(0.6));
    model.setRange(0.2, 0.3);
    EXPECT_FALSE(model.inPoint() || model.outPoint());
    EXPECT_EQ(model.exportRange(), (TimeRange{0, 0.6}));
}

TEST_F(EditModelTest, SnapTimeReachesTenPoints) {
    model.setCuts({cutAt(20, 1), cutAt(22, 0)});
    at(99, false);
    EXPECT_EQ(model.snapTime(20.09, 100), 20);
    EXPECT_EQ(model.snapTime(20.11, 100), 20.11);
    EXPECT_EQ(model.snapTime(20.9, 10), 20);
    EXPECT_EQ(model.snapTime(99.5, 10), 100);  // tie: the set's end precedes the playhead
    EXPECT_EQ(model.snapTime(98.9, 10), 99);
    model.setSnapEnabled(false);
    EXPECT_EQ(model.snapTime(20.01, 100), 20.01);
}

TEST_F(EditModelTest, JumpsAndFocusOnDrops) {
    model.jumpToDrop(true);
    EXPECT_EQ(model.toast(), "Aucun drop repéré dans ce set");
    model.setDrops({{0, 30, 1}, {1, 70, 0.5}});
    at(29.6, true);
    model.jumpToDrop(true);  // 0.4 s before a drop goes on to the next
    EXPECT_EQ(player->time, 70);
    model.jumpToDrop(true);
    EXPECT_EQ(model.toast(), "Plus de drop dans ce sens");
    model.setCuts({cutAt(40, 1)});
    model.jumpToCut(true);
    EXPECT_EQ(player->time, 100);

    model.focusDrop(model.drops()[0]);
    EXPECT_EQ(model.exportRange(), (TimeRange{15, 60}));
    EXPECT_FALSE(player->playing);
    EXPECT_EQ(player->time, 15);
    EXPECT_DOUBLE_EQ(model.zoom(), 100 / (45 * 1.3));
    EXPECT_EQ(model.toast(), "Drop 1 : export de 0:15 à 1:00");
}

TEST_F(EditModelTest, ToastLivesItsTimeFromTheLastOne) {
    model.showToast("un");
    scheduler.advance(2.0);
    model.showToast("deux");
    scheduler.advance(2.0);
    EXPECT_EQ(model.toast(), "deux");
    scheduler.advance(0.6);
    EXPECT_FALSE(model.toast());
    EXPECT_EQ(scheduler.pendingCount(), 0u);
}

}  // namespace
}  // namespace qv
