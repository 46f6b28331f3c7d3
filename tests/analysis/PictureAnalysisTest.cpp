// The picture analysis on a generated set whose cameras film faults with
// truth (preset "vision"): what it finds, what it wrongly flags, and the
// automatic edit that follows from it.
#include <gtest/gtest.h>

#include <cstdio>

#include "edit/AutoEditor.h"
#include "entry/PictureScore.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

struct VisionSet {
    std::filesystem::path folder;
    SetTruth truth;
    VideoRender::Job job;
    MeasuresByPath measures;
};

// Measured once for the whole suite: the analysis is the slow part.
const VisionSet* visionSet() {
    static const std::optional<VisionSet> set = []() -> std::optional<VisionSet> {
        const auto folder = test::generatedSet("vision", 1);
        if (folder.empty()) return std::nullopt;
        auto truth = SetTruth::read(folder);
        if (!truth) return std::nullopt;
        VisionSet s{folder, *truth, truth->placedJob(folder), {}};
        s.measures = analysis::measureCameras(s.job.result, s.job.cameraSources);
        return s;
    }();
    return set ? &*set : nullptr;
}

std::vector<Cut> autoEdit(const VisionSet& s, const analysis::CameraPictures& pictures, uint64_t seed = 1) {
    AutoSettings settings;
    settings.seed = seed;
    std::vector<Drop> drops;
    for (double d : s.truth.drops) drops.push_back({static_cast<int>(drops.size()), d, 1.0});
    const std::set<int> allowed = {0, 1, 2};
    return AutoEditor::generate({0, s.job.result.duration()}, AutoEditor::cameraRanges(s.job.result, s.job.cameraSources),
                                allowed, drops, {}, settings, {}, pictures);
}

TEST(PictureAnalysis, FindsTheFaultsAndLeavesGoodShotsAndPansAlone) {
    const VisionSet* s = visionSet();
    ASSERT_TRUE(s) << "jeu « vision » introuvable";
    ASSERT_EQ(s->measures.size(), 3u);
    const PictureScore score = scorePictures(s->truth, s->folder, s->job, s->measures);
    std::printf("inutilisables trouvées %d / %d, bonnes signalées %d / %d\n", score.found, score.unusable,
                score.falseAlarms, score.good);
    ASSERT_GT(score.unusable, 40);
    EXPECT_GE(score.foundShare(), 0.95);
    EXPECT_LE(score.falseShare(), 0.05);

    // Each fault is named for what it is, at least over most of its stretch.
    const auto pictures = analysis::picturesOf(s->job.result, s->job.cameraSources, s->measures);
    const std::map<std::string, analysis::PictureFault> named = {
        {"black", analysis::PictureFault::black}, {"blur", analysis::PictureFault::blur},
        {"shake", analysis::PictureFault::shake}, {"hand", analysis::PictureFault::blocked},
        {"frozen", analysis::PictureFault::frozen}};
    for (const PlacedItem& p : s->job.result.placed) {
        const auto camera = std::find(s->job.cameraSources.begin(), s->job.cameraSources.end(), p.sourceIndex);
        if (camera == s->job.cameraSources.end()) continue;
        const auto& stretches = pictures[static_cast<size_t>(camera - s->job.cameraSources.begin())];
        const auto& file = s->truth.files.at(std::filesystem::relative(p.item.url, s->folder).generic_string());
        for (const auto& e : file.events) {
            if (e.what == "pan") continue;
            double same = 0;
            for (const auto& st : stretches)
                if (st.fault == named.at(e.what))
                    same += std::max(0.0, std::min(p.start + e.to, st.end) - std::max(p.start + e.from, st.start));
            EXPECT_GT(same, 0.6 * (e.to - e.from)) << p.item.fileName() << " " << e.what << " à " << e.from;
        }
    }

    // A camera whose picture comes late carries its faults along with it.
    SyncResult late = s->job.result;
    for (PlacedItem& p : late.placed) p.pictureOffset = 0.4;
    const auto moved = analysis::picturesOf(late, s->job.cameraSources, s->measures);
    ASSERT_EQ(moved.size(), pictures.size());
    for (size_t c = 0; c < moved.size(); ++c) {
        ASSERT_EQ(moved[c].size(), pictures[c].size());
        for (size_t k = 0; k < moved[c].size(); ++k) EXPECT_NEAR(moved[c][k].start, pictures[c][k].start + 0.4, 1e-9);
    }
}

TEST(PictureAnalysis, TheAutomaticEditShowsNoFaultAndKeepsTheShares) {
    const VisionSet* s = visionSet();
    ASSERT_TRUE(s) << "jeu « vision » introuvable";
    const auto pictures = analysis::picturesOf(s->job.result, s->job.cameraSources, s->measures);
    const double duration = s->job.result.duration();
    const auto plans = Segment::build(autoEdit(*s, pictures), duration);
    const PlanScore score = scorePlans(s->truth, s->folder, s->job, plans);
    EXPECT_EQ(score.onFaults, 0.0);
    // Every camera loses as much to its faults: each keeps a third of the set.
    ASSERT_EQ(score.shown.size(), 3u);
    for (size_t c = 0; c < score.shown.size(); ++c)
        EXPECT_NEAR(score.shown[c] / duration, 1.0 / 3, 0.1) << "caméra " << c + 1;

    // Without the analysis the same edit lands on faults: the test can fail.
    const auto blind = Segment::build(autoEdit(*s, {}), duration);
    EXPECT_GT(scorePlans(s->truth, s->folder, s->job, blind).onFaults, 1.0);

    // Same inputs, same analysis, same seed: the same cuts; another seed, another edit.
    const auto again = autoEdit(*s, analysis::picturesOf(s->job.result, s->job.cameraSources, s->measures));
    const auto first = autoEdit(*s, pictures);
    ASSERT_EQ(again.size(), first.size());
    for (size_t i = 0; i < first.size(); ++i) {
        EXPECT_EQ(again[i].time, first[i].time);
        EXPECT_EQ(again[i].camera, first[i].camera);
    }
    const auto other = autoEdit(*s, pictures, 2);
    EXPECT_FALSE(other.size() == first.size() && std::equal(other.begin(), other.end(), first.begin(),
                                                            [](const Cut& a, const Cut& b) { return a.time == b.time; }));
}

}  // namespace
}  // namespace qv
