#include "persistence/ProjectStore.h"

#include <gtest/gtest.h>

#include "support/TempHome.h"

namespace fs = std::filesystem;
using qv::json::Json;
namespace store = qv::ProjectStore;

namespace {

std::vector<std::string> ids(const std::vector<Json>& docs) {
    std::vector<std::string> out;
    for (const auto& d : docs) out.push_back(d.value("id", ""));
    return out;
}

}  // namespace

TEST(ProjectStore, ListsNewestFirstAndSkipsWhatIsNotAProject) {
    TempHome home;
    EXPECT_TRUE(store::documents().empty());  // the folder does not exist yet

    ASSERT_TRUE(store::saveDocument({{"id", "projet-a"}, {"folder", "/tmp/set-a"}, {"savedAt", 10.0}}));
    ASSERT_TRUE(store::saveDocument({{"id", "projet-b"}, {"folder", "/tmp/set-b"}, {"savedAt", 20.0}}));
    ASSERT_TRUE(store::saveDocument({{"id", "projet-c"}, {"folder", "/tmp/set-a/"}, {"savedAt", 30.0}}));
    EXPECT_FALSE(store::saveDocument({{"folder", "/tmp/set-a"}}));  // no id: not written
    fs::path dir = store::directory();
    TempHome::writeText(dir / "ancien.json", R"({"folder":"/tmp/set-a","savedAt":5})");
    TempHome::writeText(dir / "liste.json", "[1, 2]");
    TempHome::writeText(dir / "coupe.json", R"({"id":"projet-x","savedAt":)");
    TempHome::writeText(dir / "nombre.json", "42");
    TempHome::writeText(dir / "notes.txt", "{}");
    store::saveSync(qv::SyncCache{}, "/tmp/set-a");

    EXPECT_EQ(ids(store::documents()), (std::vector<std::string>{"projet-c", "projet-b", "projet-a", "ancien"}));

    // Writes go through a temporary file that must not stay behind.
    for (const auto& entry : fs::directory_iterator(dir))
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();

    // Two spellings of one folder name the same set.
    auto latest = store::latestDocument("/tmp/./set-b/../set-a");
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->value("id", ""), "projet-c");

    store::remove("projet-c");
    EXPECT_EQ(store::latestDocument("/tmp/set-a")->value("id", ""), "projet-a");
    EXPECT_EQ(store::documents().size(), 3u);
    EXPECT_TRUE(fs::exists(store::syncFile("/tmp/set-a")));  // the cache outlives its projects
    EXPECT_FALSE(store::latestDocument("/tmp/set-c"));
}

TEST(ProjectStore, SavesPrettyWithSortedKeysAndReferenceDates) {
    TempHome home;
    ASSERT_TRUE(store::saveDocument({{"id", "projet-1"}, {"zoom", 1.5}, {"folder", "/x"}, {"savedAt", 0.25}}));
    EXPECT_EQ(TempHome::readText(store::directory() / "projet-1.json"),
              "{\n  \"folder\": \"/x\",\n  \"id\": \"projet-1\",\n  \"savedAt\": 0.25,\n  \"zoom\": 1.5\n}");

    // "savedAt": 0 is 2001-01-01 00:00:00 UTC.
    EXPECT_EQ(std::chrono::system_clock::to_time_t(store::dateFromReference(0)), 978307200);
    EXPECT_DOUBLE_EQ(store::referenceSeconds(store::dateFromReference(12.5)), 12.5);
}

TEST(ProjectStore, CacheKeyKeepsLettersAndHashesThePath) {
    EXPECT_EQ(store::key("/tmp/set"), "set 6ccd8f71a75a9714");
    EXPECT_EQ(store::key("/tmp/./set/"), store::key("/tmp/set"));
    EXPECT_NE(store::key("/a/Soirée"), store::key("/b/Soirée"));

    std::string key = store::key("/tmp/Soirée à l'Usine — Lyon, 12.03 (partie 1)");
    EXPECT_EQ(key.substr(0, key.rfind(' ')), "Soirée à lUsine  Lyon 1203 partie 1");
    // A decomposed "é" (e + combining accent) counts as one character.
    std::string decomposed = store::key("/tmp/" + std::string(39, 'a') + "e\u0301b");
    EXPECT_EQ(decomposed.substr(0, decomposed.rfind(' ')), std::string(39, 'a') + "e\u0301");
    std::string longKey = store::key("/tmp/Concert de clôture au Transbordeur - partie deux, caméras");
    EXPECT_EQ(longKey.substr(0, longKey.rfind(' ')), "Concert de clôture au Transbordeur - par");
}
