// Whole generated sets through the synchronisation: repeatable, sane on sets
// where nothing can be placed, and where the hard sets must land: a phone's
// late clips its clock puts outside every recording, a short clip in looped
// music, every codec's delay, and devices as they really write.
#include <gtest/gtest.h>

#include <cmath>

#include "base/Json.h"
#include "support/DevicesSet.h"
#include "support/Fixtures.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

TEST(GeneratedSetEdges, TheSameFolderTwiceGivesTheSameStartsWhateverTheThreads) {
    fs::path set = test::generatedSet("test", 3);
    if (set.empty()) GTEST_SKIP() << "generator or ffmpeg unavailable";
    auto first = FolderSync::run(MediaScanner::scan(set), nullptr);
    FolderSync::Options serial = FolderSync::defaultOptions();
    serial.threads = 1;
    auto again = FolderSync::run(MediaScanner::scan(set), nullptr, serial);
    ASSERT_GT(first.placed.size(), 3u);
    ASSERT_EQ(again.placed.size(), first.placed.size());
    for (size_t i = 0; i < again.placed.size(); ++i) {
        EXPECT_EQ(again.placed[i].item.url, first.placed[i].item.url);
        EXPECT_EQ(again.placed[i].start, first.placed[i].start);
        EXPECT_EQ(again.placed[i].score, first.placed[i].score);
    }
}

TEST(GeneratedSetEdges, NothingCorrelatingOrSilentSetsKeepOnlyTheReference) {
    for (const char* preset : {"nocorr", "silent"}) {
        fs::path set = test::generatedSet(preset, 1);
        if (set.empty()) GTEST_SKIP() << "generator or ffmpeg unavailable";
        auto sources = MediaScanner::scan(set);
        size_t files = 0;
        for (const auto& s : sources) files += s.items.size();
        auto result = FolderSync::run(sources, nullptr);
        EXPECT_EQ(result.placed.size(), 1u) << preset;  // the reference, and nothing else
        EXPECT_EQ(result.placed.size() + result.unsynced.size(), files) << preset;
    }
}

// Every file where the set's truth says: placed within 1 ms at its middle
// (2 ms behind a filtering microphone), or left aside.
void expectAsTheTruth(const std::string& preset) {
    fs::path set = test::generatedSet(preset, 1);
    if (set.empty()) GTEST_SKIP() << "generator or ffmpeg unavailable";
    auto truth = json::parse(test::readText(set / "truth.json"));
    ASSERT_TRUE(truth);
    FolderSync::Options options = FolderSync::defaultOptions();
    options.trace = false;
    const SyncResult r = FolderSync::run(MediaScanner::scan(set), nullptr, options);
    auto find = [&](const std::string& path) -> const PlacedItem* {
        for (const auto& p : r.placed)
            if (fs::relative(p.item.url, set).generic_string() == path) return &p;
        return nullptr;
    };
    const PlacedItem* reference = find("Son 1/table.wav");
    ASSERT_NE(reference, nullptr) << preset;
    for (const auto& f : (*truth)["files"]) {
        const std::string path = json::string(f, "path", "");
        const std::string expect = json::string(f, "expect", "");
        const PlacedItem* p = find(path);
        if (expect != "placed") {
            EXPECT_EQ(p, nullptr) << preset << " " << path;
            continue;
        }
        ASSERT_NE(p, nullptr) << preset << " " << path;
        const double middle = json::number(f, "duration", 0, limits::signedSetTime) / 2, drift = json::number(f, "drift", 0, {-1e4, 1e4});
        const double truthAt = json::number(f, "start", 0, limits::signedSetTime) + middle / (1 + drift * 1e-6);
        const double placedAt = p->lineTime(middle) - reference->start;
        EXPECT_NEAR(placedAt, truthAt, json::boolean(f, "filtered", false) ? 0.002 : 0.001) << preset << " " << path;
    }
}

TEST(GeneratedSetEdges, HardSetsLandWhereTheirTruthSays) {
    for (const char* preset : {"lateclip", "loop", "codecs"}) expectAsTheTruth(preset);
}

TEST(DevicesSet, EveryFileLandsWithinAMillisecondAndKnowsItsTakeAndItsPiece) {
    const test::DevicesSet* d = test::DevicesSet::get();
    if (!d) GTEST_SKIP() << "generator or ffmpeg unavailable";
    EXPECT_TRUE(d->result.unsynced.empty());
    for (const auto& source : d->sources) EXPECT_TRUE(source.unreadable.empty()) << source.name;
    std::map<std::string, int> takes;
    for (const auto& [path, f] : d->truth) {
        const PlacedItem* p = d->placed(path);
        ASSERT_NE(p, nullptr) << path;
        EXPECT_NEAR(d->placedAt(path, f.duration / 2), d->truthAt(path, f.duration / 2), 0.001) << path;
        // A take's files share one start, one number, and their lanes.
        EXPECT_EQ(p->take != 0, !f.take.empty()) << path;
        if (!f.take.empty()) {
            takes.emplace(f.take, p->take);
            EXPECT_EQ(p->take, takes.at(f.take)) << path;
            EXPECT_EQ(p->lane, f.lane) << path;
            EXPECT_EQ(p->heard, f.lane == "LR") << path;
            EXPECT_DOUBLE_EQ(p->start, d->placed("Son 2/ZOOM0001_LR.WAV")->start) << path;
        }
        const std::string follows = p->follows.empty() ? "" : fs::relative(p->follows, d->folder).generic_string();
        EXPECT_EQ(follows, f.follows) << path;
    }
    // What placed the files the sound could not: the recorder's stamps.
    EXPECT_EQ(d->placed("Son 4/REC0002.WAV")->placedBy, PlacedBy::clock);
    EXPECT_EQ(d->placed("Son 3/LIVE0002.WAV")->placedBy, PlacedBy::clock);
    // One drift for the camera's three chapters, measured or shared.
    for (const char* chapter : {"Cam 1/GX010050.MP4", "Cam 1/GX020050.MP4", "Cam 1/GX030050.MP4"})
        EXPECT_NEAR(d->placed(chapter)->drift.value_or(0), 400, 5) << chapter;
    // The sound where it lies: channel 4 of 6, the camera's second stream.
    EXPECT_EQ(d->placed("Son 5/poly.wav")->sound, (SoundPick{0, 0b1000}));
    EXPECT_EQ(d->placed("Cam 2/C0001.MOV")->sound.stream, 1);
    // The clocks the devices wrote.
    const MediaItem& stamped = d->placed("Son 4/REC0001.WAV")->item;
    ASSERT_TRUE(stamped.clock);
    EXPECT_EQ(stamped.clock->kind, DeviceClock::Kind::samples);
    const MediaItem& chapter = d->placed("Cam 1/GX020050.MP4")->item;
    ASSERT_TRUE(chapter.clock);
    EXPECT_EQ(chapter.clock->kind, DeviceClock::Kind::timecode);
}

}  // namespace
}  // namespace qv
