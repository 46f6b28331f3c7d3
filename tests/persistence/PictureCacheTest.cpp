// The picture analysis kept beside the sync cache: a file measured once is
// not measured again while it keeps its stamp, a touched one is, and values
// read back from a damaged or edited file stay within what the analysis can
// give.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>

#include "persistence/PictureCache.h"
#include "persistence/ProjectStore.h"
#include "support/TempHome.h"

namespace fs = std::filesystem;
using qv::PictureCache;
using qv::analysis::FileMeasures;
using qv::analysis::SlotMeasures;

namespace {

FileMeasures measures(float level) {
    FileMeasures m;
    m.halves.push_back(SlotMeasures{level, 0.1f, 0.02f, 812.5f, 40.f, 21.f, 3.5f, 0.004f});
    m.halves.push_back(SlotMeasures{});  // a half-second without a picture
    return m;
}

}  // namespace

TEST(PictureCache, KeepsTheMeasuresOfUnchangedFilesOnly) {
    TempHome home;
    const fs::path set = home.root() / "set";
    fs::create_directories(set / "Cam 1");
    const fs::path a = set / "Cam 1" / "a.mp4", b = set / "Cam 1" / "b.mp4";
    std::ofstream(a) << "a";
    std::ofstream(b) << "b";
    PictureCache::of({{a.string(), measures(60)}, {b.string(), measures(90)}}).save(set);

    auto fresh = PictureCache::load(set).fresh();
    ASSERT_EQ(fresh.size(), 2u);
    EXPECT_EQ(fresh[a.string()], measures(60));
    EXPECT_EQ(fresh[b.string()], measures(90));
    // Not a project: the list of projects never shows it.
    EXPECT_TRUE(qv::ProjectStore::list().empty());

    // A touched file is measured again; the other is still trusted.
    fs::last_write_time(b, fs::last_write_time(b) + std::chrono::seconds(5));
    fresh = PictureCache::load(set).fresh();
    EXPECT_EQ(fresh.size(), 1u);
    EXPECT_TRUE(fresh.count(a.string()));
}

TEST(PictureCache, ValuesReadBackAreBounded) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    FileMeasures wild;
    wild.halves.push_back(SlotMeasures{900, -3, 7, inf, nan, 1e9f, 400, 5});
    wild.halves.push_back(SlotMeasures{nan, nan, nan, -inf, -1, -1, nan, nan});
    PictureCache cache;
    cache.files.push_back({{"/nowhere/a.mp4", 1, 2}, wild});
    const PictureCache back = PictureCache::fromJson(cache.toJson());
    ASSERT_EQ(back.files.size(), 1u);
    const auto& h = back.files[0].measures.halves;
    ASSERT_EQ(h.size(), 2u);
    EXPECT_EQ(h[0], (SlotMeasures{255, 0, 1, 0, 0, 255, 255, 1}));
    // Nothing measurable is read as "no picture here", never as a fault.
    EXPECT_FALSE(h[1].measured());
    EXPECT_EQ(h[1].change, -1);
    EXPECT_EQ(h[1].jitter, -1);

    // Entries that do not decode are dropped, the others kept.
    auto j = cache.toJson();
    j["files"].push_back({{"file", "?"}, {"halves", "!!"}});
    EXPECT_EQ(PictureCache::fromJson(j).files.size(), 1u);
    EXPECT_TRUE(PictureCache::fromJson(qv::json::Json::array()).files.empty());
}
