#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "support/TempHome.h"
#include "base/SplitMix64.h"
#include "persistence/ProjectStore.h"

namespace fs = std::filesystem;
using qv::json::Json;
namespace store = qv::ProjectStore;

namespace {

// A set as the scanner would give it: one source per sub-folder, files in
// name order; files named "broken*" stand for ones the scanner could not read.
std::vector<qv::MediaSource> scan(const fs::path& set) {
    std::vector<fs::path> folders;
    for (const auto& e : fs::directory_iterator(set)) folders.push_back(e.path());
    std::sort(folders.begin(), folders.end());
    std::vector<qv::MediaSource> sources;
    for (const auto& folder : folders) {
        qv::MediaSource source;
        source.name = folder.filename().string();
        std::vector<fs::path> files;
        for (const auto& e : fs::directory_iterator(folder)) files.push_back(e.path());
        std::sort(files.begin(), files.end());
        for (const auto& f : files) {
            if (f.filename().string().rfind("broken", 0) == 0) {
                source.unreadable.push_back(f);
                continue;
            }
            qv::MediaItem item;
            item.id = qv::Uuid::make();
            item.url = f;
            item.duration = 300;
            source.items.push_back(item);
        }
        sources.push_back(source);
    }
    return sources;
}

struct SetFixture : ::testing::Test {
    SetFixture() {
        for (const char* f : {"Cam 1/A001.mp4", "Cam 1/A002.mp4", "Cam 2/B001.mp4", "Cam 2/broken.mp4", "Son 1/REC.wav"})
            TempHome::writeText(set / f, std::string(f));
        auto sources = scan(set);
        auto item = [&](int s, int i) { return sources[s].items[i]; };
        // Stored out of order: the restored list comes back sorted by start.
        result.placed.push_back({2, item(2, 0), 2.5, 0.8f, "A001.mp4", false, {0.5f, -0.0f, 1e-40f}, {3, 4}, 104.25});
        result.placed.push_back({0, item(0, 0), 0, std::nullopt, std::nullopt, false, {1, 0}, {}, std::nullopt});
        result.placed.push_back({0, item(0, 1), 120, 0.6f, "REC.wav", true, {}, {7}, 0.0});
        result.unsynced.push_back({1, item(1, 0), "", {{-4.25, 9.5f}, {61.5, 9.0f}}});
        result.placed[2].candidates = {{120, 11.5f}, {118.75, 10.25f}};
    }

    // The cache of `result` under the files' stamps as they are now.
    qv::SyncCache cacheNow() const { return store::cache(result, store::stamps(scan(set))); }

    TempHome home;
    fs::path set = home.root() / "Soirée";
    qv::SyncResult result;
};

void setModified(const fs::path& file, double seconds) {
    timespec times[2];
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(seconds);
    times[1].tv_nsec = static_cast<long>((seconds - static_cast<double>(times[1].tv_sec)) * 1e9);
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

}  // namespace

TEST_F(SetFixture, RoundTripThroughItsFile) {
    // A001/A002 as one take (the second muted), A002 continuing A001, the
    // recorder heard on its fourth channel of its second stream.
    result.placed[1].take = result.placed[2].take = 1;
    result.placed[1].lane = "LR";
    result.placed[2].lane = "Tr1";
    result.placed[2].heard = false;
    result.placed[2].follows = result.placed[1].item.url;
    result.placed[0].sound = {1, 0b1000};
    result.placed[0].placedBy = qv::PlacedBy::clock;
    store::saveSync(cacheNow(), set);
    auto loaded = store::loadSync(set);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(*loaded, cacheNow());

    auto restored = store::restore(*loaded, scan(set));
    ASSERT_TRUE(restored);
    ASSERT_EQ(restored->placed.size(), 3u);
    std::vector<double> starts;
    for (const auto& p : restored->placed) starts.push_back(p.start);
    EXPECT_EQ(starts, (std::vector<double>{0, 2.5, 120}));
    const auto& rec = restored->placed[1];
    EXPECT_EQ(rec.sourceIndex, 2);
    EXPECT_EQ(rec.item.url, set / "Son 1/REC.wav");
    EXPECT_EQ(rec.score, 0.8f);
    EXPECT_EQ(rec.anchorName, "A001.mp4");
    EXPECT_EQ(rec.waveform, result.placed[0].waveform);
    EXPECT_EQ(rec.bass, result.placed[0].bass);
    EXPECT_TRUE(std::signbit(rec.waveform[1]));
    EXPECT_FALSE(restored->placed[0].score);
    EXPECT_TRUE(restored->placed[2].ambiguous);
    EXPECT_EQ(rec.drift, 104.25);
    EXPECT_FALSE(restored->placed[0].drift);
    EXPECT_EQ(restored->placed[2].drift, 0.0);
    ASSERT_EQ(restored->unsynced.size(), 1u);
    EXPECT_EQ(restored->unsynced[0].sourceIndex, 1);
    // The proposed starts of every file come back, placed or not.
    EXPECT_EQ(restored->placed[2].candidates, result.placed[2].candidates);
    EXPECT_TRUE(restored->placed[0].candidates.empty());
    EXPECT_EQ(restored->unsynced[0].candidates, result.unsynced[0].candidates);

    const auto& first = restored->placed[0];
    const auto& second = restored->placed[2];
    EXPECT_EQ(first.take, 1);
    EXPECT_EQ(first.lane, "LR");
    EXPECT_TRUE(first.heard);
    EXPECT_EQ(second.lane, "Tr1");
    EXPECT_FALSE(second.heard);
    EXPECT_EQ(second.follows, first.item.url);
    EXPECT_EQ(rec.sound, (qv::SoundPick{1, 0b1000}));
    EXPECT_EQ(rec.placedBy, qv::PlacedBy::clock);
}

TEST_F(SetFixture, ACacheWithoutCandidatesStillLoadsAndDamagedOnesRefuseIt) {
    Json j = cacheNow().toJson();
    ASSERT_TRUE(j.contains("candidates"));
    Json older = j;
    older.erase("candidates");
    auto loaded = qv::SyncCache::fromJson(older);
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(loaded->candidates.empty());
    j["candidates"][(set / "Cam 1/A002.mp4").string()] = Json::array({Json::array({1.0})});
    EXPECT_FALSE(qv::SyncCache::fromJson(j));
}

TEST_F(SetFixture, OutOfBoundsValuesRefuseTheCache) {
    // Read back, every value is held to what a synchronisation can give.
    result.placed[1].take = result.placed[2].take = 1;
    result.placed[2].follows = result.placed[1].item.url;
    const Json good = cacheNow().toJson();
    auto damaged = [&](const char* key, const Json& value) {
        Json j = good;
        j["placed"][0][key] = value;
        return qv::SyncCache::fromJson(j).has_value();
    };
    EXPECT_TRUE(damaged("take", 3));
    EXPECT_FALSE(damaged("take", -1));
    EXPECT_FALSE(damaged("take", 1e12));
    EXPECT_FALSE(damaged("soundStream", 64));
    EXPECT_FALSE(damaged("soundChannels", -5));
    EXPECT_FALSE(damaged("lane", std::string(5000, 'x')));
    EXPECT_FALSE(damaged("placedBy", "magie"));
    EXPECT_FALSE(damaged("heard", "oui"));
    // A piece that follows a file the cache does not place is no cache.
    Json stray = good;
    for (auto& p : stray["placed"])
        if (p.contains("follows")) p["follows"] = (set / "Cam 2/B001.mp4").string();
    auto strayCache = qv::SyncCache::fromJson(stray);
    ASSERT_TRUE(strayCache);
    EXPECT_FALSE(store::restore(*strayCache, scan(set)));
}

TEST(SyncCache, StoresFloatsAsLittleEndianBase64) {
    qv::SyncCache cache;
    cache.placed.push_back(
        {{"/a.wav", 12, 1.5}, 0, std::nullopt, std::nullopt, false, store::binary({1.0f}), {}, std::nullopt});
    Json j = cache.toJson();
    EXPECT_FALSE(j["placed"][0].contains("drift"));
    EXPECT_EQ(j["placed"][0]["waveform"], "AACAPw==");
    EXPECT_EQ(j["placed"][0]["bass"], "");
    EXPECT_FALSE(j["placed"][0].contains("score"));
    EXPECT_EQ(store::floats({0, 0, 0x80, 0x3F, 0xFF}), std::vector<float>{1.0f});  // a stray byte is dropped

    // A cache written before drift was measured loads; a drift of the
    // wrong kind refuses the cache like any other damaged key.
    j["placed"][0]["drift"] = -12.5;
    auto withDrift = qv::SyncCache::fromJson(j);
    ASSERT_TRUE(withDrift);
    EXPECT_EQ(withDrift->placed[0].drift, -12.5);
    j["placed"][0]["drift"] = "vite";
    EXPECT_FALSE(qv::SyncCache::fromJson(j));
    j["placed"][0].erase("drift");

    j["placed"][0]["waveform"] = "AACAPw";  // padding is required
    EXPECT_FALSE(qv::SyncCache::fromJson(j));
}

TEST_F(SetFixture, AnyChangeToTheSetRefusesTheCache) {
    auto cache = cacheNow();
    fs::path a001 = set / "Cam 1/A001.mp4";
    double modified = qv::SyncCache::FileStamp::of(a001)->modified;
    ASSERT_TRUE(store::restore(cache, scan(set)));

    setModified(a001, modified + 1);
    EXPECT_FALSE(store::restore(cache, scan(set)));
    setModified(a001, modified);
    EXPECT_TRUE(store::restore(cache, scan(set)));

    TempHome::writeText(a001, "same time, other size");
    setModified(a001, modified);
    EXPECT_FALSE(store::restore(cache, scan(set)));
    cache = cacheNow();

    TempHome::writeText(set / "Cam 1/A003.mp4", "new");
    EXPECT_FALSE(store::restore(cache, scan(set)));
    fs::remove(set / "Cam 1/A003.mp4");
    fs::rename(set / "Cam 2/B001.mp4", home.root() / "B001.mp4");
    EXPECT_FALSE(store::restore(cache, scan(set)));
    fs::rename(home.root() / "B001.mp4", set / "Cam 2/B001.mp4");
    EXPECT_TRUE(store::restore(cache, scan(set)));

    fs::rename(set, home.root() / "Moved");
    EXPECT_FALSE(store::restore(cache, scan(home.root() / "Moved")));
}

// Damaged caches and projects must be refused quietly, never crash.
TEST_F(SetFixture, RandomDamageNeverCrashes) {
    const std::string valid = cacheNow().toJson().dump();
    const auto sources = scan(set);
    const fs::path projectFile = store::directory() / "projet-abime.json";
    const Json replacements[] = {nullptr, true, 3, -1.5, "x", Json::array(), Json::object(), 1e300,
                                 "@@@=", 18446744073709551615ull, -9223372036854775807ll};
    qv::SplitMix64 rng(0x5eed);
    auto below = [&](size_t n) { return static_cast<size_t>(rng.next() % std::max<size_t>(n, 1)); };
    int decoded = 0, restored = 0;

    for (int round = 0; round < 1000; ++round) {
        std::string text = valid;
        switch (round % 3) {
            case 0: text.resize(below(text.size())); break;
            case 1:
                for (size_t k = 1 + below(4); k > 0; --k)
                    text[below(text.size())] ^= static_cast<char>(1 + below(255));
                break;
            case 2: {
                Json j = Json::parse(valid);
                std::vector<Json::json_pointer> nodes;
                const Json leaves = j.flatten();
                for (const auto& leaf : leaves.items()) {
                    Json::json_pointer p(leaf.key());
                    for (; !p.empty(); p = p.parent_pointer()) nodes.push_back(p);
                }
                j[nodes[below(nodes.size())]] = replacements[below(std::size(replacements))];
                text = j.dump();
                break;
            }
        }
        TempHome::writeText(store::syncFile(set), text);
        if (auto cache = store::loadSync(set)) {
            ++decoded;
            if (auto r = store::restore(*cache, sources)) {
                ++restored;
                EXPECT_EQ(r->placed.size() + r->unsynced.size(), 4u);
            }
        }
        TempHome::writeText(projectFile, text);
        auto parsed = qv::json::parse(text);
        EXPECT_EQ(store::documents().size(), parsed && parsed->is_object() ? 1u : 0u) << text;
    }
    // The damage must really hit both sides of the decoder.
    EXPECT_GT(decoded, 20);
    EXPECT_LT(decoded, 900);
    EXPECT_GT(restored, 0);
}
