// What the scanner reads of pictures as cameras write them, on generated
// sets: a phone's variable rate, a camcorder's fields, HDV's wide pixels,
// an action camera's chapters with their light copies, and every file left
// aside named with why, thumbnails quietly.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/Fixtures.h"
#include "sync/MediaScanner.h"

namespace qv {
namespace {

const MediaItem* itemNamed(const std::vector<MediaSource>& sources, const std::string& name) {
    for (const MediaSource& s : sources)
        for (const MediaItem& item : s.items)
            if (item.fileName() == name) return &item;
    return nullptr;
}

TEST(PictureIntake, FieldsPixelsChaptersAndFilesLeftAside) {
    const auto set = test::generatedSet("fields", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    std::vector<MediaScanner::Refusal> refused;
    std::vector<MediaScanner::SetAside> aside;
    const auto sources = MediaScanner::scan(set, &refused, &aside);
    EXPECT_TRUE(refused.empty());

    const MediaItem* mts = itemNamed(sources, "00001.MTS");
    ASSERT_TRUE(mts);
    EXPECT_EQ(mts->picture.fields, media::FieldOrder::topFirst);
    EXPECT_FALSE(mts->picture.anamorphic());
    EXPECT_FALSE(mts->picture.variableRate());

    const MediaItem* hdv = itemNamed(sources, "clip 1.m2t");
    ASSERT_TRUE(hdv);
    EXPECT_NEAR(hdv->picture.pixelAspect, 4.0 / 3, 1e-9);
    EXPECT_EQ(hdv->width, 1920);
    EXPECT_EQ(hdv->storedWidth(), 1440);
    EXPECT_FALSE(hdv->picture.interlaced());

    // Each chapter takes its light copy; no copy is an item of its own.
    const MediaSource& action = sources[2];
    ASSERT_EQ(action.name, "Cam 3");
    ASSERT_EQ(action.items.size(), 2u);
    EXPECT_EQ(action.items[0].previewCopy.filename(), "GL010031.LRV");
    EXPECT_EQ(action.items[1].previewCopy.filename(), "GL020031.LRV");

    // The note, the stray copy and the generator's truth are named with
    // why; the thumbnails are not.
    std::vector<std::string> lines;
    for (const auto& a : aside) lines.push_back(a.message());
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "Fichier écarté : Cam 3/GL090031.LRV (copie légère sans chapitre du même nom)",
                         "Fichier écarté : Cam 3/notes.txt (format non pris en charge)",
                         "Fichier écarté : truth.json (format non pris en charge)"}));
}

TEST(PictureIntake, OnlyThePhonesVariableRateClipIsMarked) {
    const auto set = test::generatedSet("rates", 1);
    if (set.empty()) GTEST_SKIP() << "generator missing";
    const auto sources = MediaScanner::scan(set);
    int variable = 0;
    for (const MediaSource& s : sources)
        for (const MediaItem& item : s.items) {
            if (!item.hasVideo) continue;
            if (item.picture.variableRate()) {
                ++variable;
                EXPECT_EQ(s.name + "/" + item.fileName(), "Cam 1/clip 2.mp4");
                EXPECT_GT(item.picture.frameSpread, 0.3);  // 33 to 50 ms around 40
            } else {
                EXPECT_LT(item.picture.frameSpread, media::variableRateSpread);
            }
        }
    EXPECT_EQ(variable, 1);
}

}  // namespace
}  // namespace qv
