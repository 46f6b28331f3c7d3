// Whole generated sets through the synchronisation: repeatable, and sane on
// sets where nothing can be placed. (Accuracy against each set's truth is
// the self check's job, tested with the entry.)
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace qv
