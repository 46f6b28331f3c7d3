// Whole sets made by the generator, with their true starts: every file with
// usable sound lands within a millisecond of the truth (two where its
// microphone filters the sound, since a filter delays it), and every hard
// case ends where it should.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>

#include "base/Json.h"
#include "support/Fixtures.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

struct Truth {
    double start = 0;
    bool filtered = false;
    std::string expect;
};

std::map<std::string, Truth> readTruth(const fs::path& set) {
    std::ifstream in(set / "truth.json");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto j = json::parse(text);
    std::map<std::string, Truth> truth;
    if (!j) return truth;
    for (const auto& f : (*j)["files"])
        truth[json::string(f, "path", "")] = {json::number(f, "start", 0), json::boolean(f, "filtered", false),
                                             json::string(f, "expect", "")};
    return truth;
}

std::string inSet(const fs::path& set, const fs::path& file) { return fs::relative(file, set).string(); }

class GeneratedSet : public ::testing::TestWithParam<const char*> {};

TEST_P(GeneratedSet, EveryFileLandsOnItsTrueStart) {
    fs::path set = test::generatedSet(GetParam(), 3);
    if (set.empty()) GTEST_SKIP() << "generator or ffmpeg unavailable";
    auto truth = readTruth(set);
    ASSERT_FALSE(truth.empty());

    auto sources = MediaScanner::scan(set);
    auto result = FolderSync::run(sources, nullptr);
    ASSERT_FALSE(result.placed.empty());
    EXPECT_EQ(result.placed.front().start, 0.0);

    // Compare offsets against an unfiltered placed file where there is one,
    // so that only the other file's filter delay counts.
    const PlacedItem* reference = &result.placed.front();
    for (auto it = result.placed.rbegin(); it != result.placed.rend(); ++it)
        if (!truth[inSet(set, it->item.url)].filtered) reference = &*it;
    const Truth& ref = truth[inSet(set, reference->item.url)];

    for (const auto& p : result.placed) {
        const Truth& t = truth[inSet(set, p.item.url)];
        EXPECT_EQ(t.expect, "placed") << p.item.url;
        double error = (p.start - reference->start) - (t.start - ref.start);
        EXPECT_LT(std::fabs(error), t.filtered || ref.filtered ? 0.002 : 0.001) << p.item.url;
        EXPECT_FALSE(p.ambiguous) << p.item.url;
    }
    for (const auto& u : result.unsynced) EXPECT_EQ(truth[inSet(set, u.item.url)].expect, "unsynced") << u.item.url;
    for (const auto& s : sources)
        for (const auto& u : s.unreadable) EXPECT_EQ(truth[inSet(set, u)].expect, "unreadable") << u;

    size_t expectedPlaced = 0;
    for (const auto& [path, t] : truth) expectedPlaced += t.expect == "placed";
    EXPECT_EQ(result.placed.size(), expectedPlaced);

    // The same folder again, one thread this time: the same starts.
    FolderSync::Options serial = FolderSync::defaultOptions();
    serial.threads = 1;
    auto again = FolderSync::run(MediaScanner::scan(set), nullptr, serial);
    ASSERT_EQ(again.placed.size(), result.placed.size());
    for (size_t i = 0; i < again.placed.size(); ++i) {
        EXPECT_EQ(again.placed[i].item.url, result.placed[i].item.url);
        EXPECT_EQ(again.placed[i].start, result.placed[i].start);
    }
}

INSTANTIATE_TEST_SUITE_P(Presets, GeneratedSet, ::testing::Values("tiny", "test", "hard"));

TEST(GeneratedSetEdges, NothingCorrelatingOrSilentSetsKeepOnlyTheReference) {
    for (const char* preset : {"nocorr", "silent"}) {
        fs::path set = test::generatedSet(preset, 1);
        if (set.empty()) GTEST_SKIP() << "generator or ffmpeg unavailable";
        auto sources = MediaScanner::scan(set);
        size_t files = 0;
        for (const auto& s : sources) files += s.items.size();
        auto result = FolderSync::run(sources, nullptr);
        EXPECT_LE(result.placed.size(), 1u) << preset;
        EXPECT_EQ(result.placed.size() + result.unsynced.size(), files) << preset;
    }
}

}  // namespace
}  // namespace qv
