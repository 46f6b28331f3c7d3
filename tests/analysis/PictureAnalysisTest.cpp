// The picture analysis on a generated set whose cameras film faults with
// truth (preset "vision"): what it finds, what it wrongly flags, and the
// automatic edit that follows from it, read from the originals or from
// preview chunks.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "edit/AutoEditor.h"
#include "entry/PictureScore.h"
#include "playback/PreviewRoad.h"
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

// Chunks of every camera file of the set, at its own size, as the player's maker cuts them.
void makeChunks(const VisionSet& s, const ProxyCache& cache) {
    media::ProxyOptions options;
    options.width = 0;
    std::filesystem::create_directories(cache.folder());
    const std::atomic<bool> cancel{false};
    for (const PlacedItem& p : s.job.result.placed) {
        if (!p.item.hasVideo) continue;
        auto writer = media::ProxyWriter::open(p.item.url, options);
        ASSERT_TRUE(writer);
        for (int k = 0; k < cache.chunkCount(p.item.duration); ++k)
            ASSERT_TRUE(writer->write(cache.chunkPath(*cache.stem(p.item.url), k), cache.chunkStart(k),
                                      cache.chunkStart(k + 1), cancel).made());
    }
}

TEST(PictureAnalysis, ReadsPreviewChunksOnceMadeAndTheOriginalWhenTheyFail) {
    const VisionSet* s = visionSet();
    ASSERT_TRUE(s) << "jeu « vision » introuvable";
    test::TempDir dir;
    const ProxyCache cache(dir.path());
    ProxyOutlook outlook;
    std::vector<std::filesystem::path> files;
    for (const PlacedItem& p : s->job.result.placed)
        if (p.item.hasVideo) files.push_back(p.item.url);
    outlook.set(files);

    // While the chunks are on their way the analysis waits for them, says
    // so, and reads them once made.
    analysis::MeasureOptions options;
    options.roadOf = [&](const MediaItem& item) { return previewRoad(cache, item, &outlook); };
    int pauses = 0, waitingReports = 0;
    options.pause = [&] {
        if (pauses++ > 0) return;
        makeChunks(*s, cache);
        outlook.set({});
    };
    options.progress = [&](double, bool waiting) {
        waitingReports += waiting;
        return true;
    };
    const auto measures = analysis::measureCameras(s->job.result, s->job.cameraSources, {}, options);
    EXPECT_EQ(pauses, 1);
    EXPECT_EQ(waitingReports, 1);
    ASSERT_EQ(measures.size(), 3u);
    for (const auto& [path, m] : measures) {
        // Re-encoded pictures measure a little differently: these are the chunks'.
        EXPECT_NE(m, s->measures.at(path)) << path;
        EXPECT_NEAR(static_cast<double>(m.halves.size()), static_cast<double>(s->measures.at(path).halves.size()), 1);
    }
    const PictureScore score = scorePictures(s->truth, s->folder, s->job, measures);
    EXPECT_GE(score.foundShare(), 0.95);
    EXPECT_LE(score.falseShare(), 0.05);

    // A damaged chunk sends its file back to the original; a stop while
    // waiting ends the run with nothing measured.
    const std::filesystem::path first = files.front();
    std::ofstream(*cache.findChunk(first, 3), std::ios::trunc) << "abîmé";
    const auto again = analysis::measureCameras(s->job.result, s->job.cameraSources, {}, options);
    EXPECT_EQ(again.at(first.string()), s->measures.at(first.string()));
    outlook.set(files);
    std::filesystem::remove_all(cache.folder());
    options.progress = [](double, bool waiting) { return !waiting; };
    EXPECT_TRUE(analysis::measureCameras(s->job.result, s->job.cameraSources, {}, options).empty());
}

}  // namespace
}  // namespace qv
