// Placement rules on signals made in memory: each test builds the sources it
// needs from slices of one noise "set", so true starts are known exactly.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "sync/FolderSync.h"
#include "sync/Signals.h"

namespace qv {
namespace {

using namespace test;

TEST(FolderSync, LoneCameraIsTheReference) {
    auto r = place({entry(0, SourceKind::camera, "cam.mp4", noise(1, 20))});
    ASSERT_EQ(r.placed.size(), 1u);
    EXPECT_EQ(r.placed[0].start, 0.0);
    EXPECT_FALSE(r.placed[0].score.has_value());
    EXPECT_FALSE(r.placed[0].anchorName.has_value());
    EXPECT_EQ(r.placed[0].waveform.size(), 20u * 20);
    EXPECT_EQ(r.placed[0].bass.size(), 20u * 10);
}

TEST(FolderSync, PlacesSlicesAtTheirTrueStartsWithTheEarliestAtZero) {
    auto set = noise(2, 120);
    auto r = place({entry(0, SourceKind::audio, "rec.wav", slice(set, 10, 100)),
                    entry(1, SourceKind::camera, "a.mp4", slice(set, 3, 30)),
                    entry(1, SourceKind::camera, "b.mp4", slice(set, 50.25, 40)),
                    entry(2, SourceKind::camera, "c.mp4", slice(set, 60, 50))});
    ASSERT_EQ(r.placed.size(), 4u);
    EXPECT_TRUE(r.unsynced.empty());
    EXPECT_EQ(find(r, "a.mp4")->start, 0.0);
    EXPECT_DOUBLE_EQ(find(r, "rec.wav")->start, 7.0);
    EXPECT_DOUBLE_EQ(find(r, "b.mp4")->start, 47.25);
    EXPECT_DOUBLE_EQ(find(r, "c.mp4")->start, 57.0);
    for (const auto& p : r.placed) {
        if (p.item.fileName() != "rec.wav") {
            EXPECT_FALSE(p.anchorName.value_or("").empty()) << p.item.fileName();
        }
    }
    for (size_t i = 1; i < r.placed.size(); ++i) EXPECT_LE(r.placed[i - 1].start, r.placed[i].start);
}

TEST(FolderSync, TwoHourRecorderAndFiveSecondClipStayWithinTheBudget) {
    auto set = noise(9, 7200);
    FolderSync::Stats stats;
    FolderSync::Options options = FolderSync::defaultOptions();
    options.trace = false;
    options.spectrumBudget = 400'000'000;  // two spectra, their plans and one working buffer of 2^24
    options.stats = &stats;
    auto clip = slice(set, 3600.5, 5);
    auto r = FolderSync::place({entry(0, SourceKind::audio, "long.wav", std::move(set)),
                                entry(1, SourceKind::camera, "clip.mp4", std::move(clip))},
                               {}, nullptr, options);
    ASSERT_EQ(r.placed.size(), 2u);
    EXPECT_DOUBLE_EQ(find(r, "clip.mp4")->start, 3600.5);
    EXPECT_GT(stats.budgetPeak, 200'000'000);  // two spectra and one working buffer at least
    EXPECT_LE(stats.budgetPeak, options.spectrumBudget);
}

TEST(FolderSync, ClipsOfOneSourceAreNeverMatchedTogether) {
    // Two clips of one camera share 10 s of sound, but nothing else links them.
    auto set = noise(3, 60);
    auto r = place({entry(0, SourceKind::camera, "a.mp4", slice(set, 0, 30)),
                    entry(0, SourceKind::camera, "b.mp4", slice(set, 20, 25))});
    ASSERT_EQ(r.placed.size(), 1u);
    EXPECT_EQ(r.placed[0].item.fileName(), "a.mp4");
    ASSERT_EQ(r.unsynced.size(), 1u);
    EXPECT_EQ(r.unsynced[0].item.fileName(), "b.mp4");
}

TEST(FolderSync, SiblingOverlapOfOneSecondIsAllowedAndMoreIsNot) {
    auto set = noise(4, 80);
    for (auto [from, allowed] : {std::pair{19.0, true}, std::pair{18.99, false}}) {
        auto r = place({entry(0, SourceKind::audio, "rec.wav", slice(set, 0, 80)),
                        entry(1, SourceKind::camera, "a.mp4", slice(set, 0, 20)),
                        entry(1, SourceKind::camera, "b.mp4", slice(set, from, 15))});
        EXPECT_EQ(find(r, "b.mp4") != nullptr, allowed) << "b starts at " << from;
    }
}

TEST(FolderSync, SecondAgreeingAnchorBeatsABetterScoringWrongBar) {
    // rec1 holds the clip's sound twice: at its true place under noise, and
    // cleanly 2 s later. Alone, rec1 would pick the clean copy; rec2 heard
    // the true place, agrees with it and stays silent at the wrong one.
    auto set = noise(5, 120);
    auto clip = slice(set, 40, 20);
    auto rec1 = mix(set, 1.0f, 50, 1.5f);
    std::copy(clip.begin(), clip.end(), rec1.begin() + 42 * kRate);
    auto rec2 = mix(slice(set, 10, 90), 1.0f, 51, 0.3f);

    auto alone = place({entry(0, SourceKind::audio, "rec1.wav", rec1), entry(2, SourceKind::camera, "cam.mp4", clip)});
    ASSERT_NE(find(alone, "cam.mp4"), nullptr);
    EXPECT_NEAR(find(alone, "cam.mp4")->start, 42.0, 1e-9);

    auto both = place({entry(0, SourceKind::audio, "rec1.wav", rec1), entry(1, SourceKind::audio, "rec2.wav", rec2),
                       entry(2, SourceKind::camera, "cam.mp4", clip)});
    ASSERT_NE(find(both, "cam.mp4"), nullptr);
    EXPECT_NEAR(find(both, "cam.mp4")->start, 40.0, 1e-9);
    EXPECT_FALSE(find(both, "cam.mp4")->ambiguous);
}

TEST(FolderSync, SiblingDateChoosesTheNearStartWithoutAmbiguity) {
    // b's sound lies at 100 s past a, as the dates say, and once more, cleaner,
    // far away in the recording.
    auto set = noise(6, 300);
    auto a = slice(set, 10, 30), b = slice(set, 110, 30);
    auto rec = mix(set, 1.0f, 60, 1.0f);
    std::copy(b.begin(), b.end(), rec.begin() + 250 * kRate);
    auto ea = entry(1, SourceKind::camera, "a.mp4", a), eb = entry(1, SourceKind::camera, "b.mp4", b);
    Date base{};
    ea.item.recordedAt = base;
    eb.item.recordedAt = base + std::chrono::seconds(100);
    auto r = place({entry(0, SourceKind::audio, "rec.wav", rec), ea, eb});
    ASSERT_NE(find(r, "b.mp4"), nullptr);
    EXPECT_NEAR(find(r, "b.mp4")->start - find(r, "a.mp4")->start, 100.0, 1e-9);
    EXPECT_FALSE(find(r, "b.mp4")->ambiguous);
}

TEST(FolderSync, DoubtIsMarkedOnlyWhenNoLaterAnchorSettlesIt) {
    // rec holds u's sound twice, exactly alike: alone, u is a genuine doubt.
    auto set = noise(7, 300);
    auto u = slice(set, 20, 60);
    auto rec = set;
    std::copy(u.begin(), u.end(), rec.begin() + 200 * kRate);
    auto doubt = place({entry(0, SourceKind::audio, "rec.wav", rec), entry(1, SourceKind::camera, "u.mp4", u)});
    ASSERT_NE(find(doubt, "u.mp4"), nullptr);
    EXPECT_TRUE(find(doubt, "u.mp4")->ambiguous);
    // Both starts stay on offer for the user's hand, on the result's line.
    const auto& offered = find(doubt, "u.mp4")->candidates;
    ASSERT_GE(offered.size(), 2u);
    std::vector<double> starts;
    for (const auto& c : offered) starts.push_back(c.start - find(doubt, "rec.wav")->start);
    std::sort(starts.begin(), starts.end());
    EXPECT_NEAR(starts[0], 20.0, 1e-9);
    EXPECT_NEAR(starts[1], 200.0, 1e-9);

    // x covers the second half of u's true place and beyond: it is placed in
    // the first sweep while u waits, and settles u in the next one.
    auto x = slice(set, 50, 50);
    auto settled = place({entry(0, SourceKind::audio, "rec.wav", rec), entry(1, SourceKind::camera, "u.mp4", u),
                          entry(2, SourceKind::camera, "x.mp4", x)});
    ASSERT_NE(find(settled, "u.mp4"), nullptr);
    EXPECT_NEAR(find(settled, "u.mp4")->start - find(settled, "rec.wav")->start, 20.0, 1e-9);
    EXPECT_FALSE(find(settled, "u.mp4")->ambiguous);
}

// A run no longer wanted decodes no further file and gives no placement,
// whether it is stopped before it starts or while its first file decodes.
TEST(FolderSync, AStoppedRunEndsWithoutPlacingAnything) {
    auto set = noise(12, 60);
    std::vector<MediaSource> sources;
    for (int s = 0; s < 3; ++s) {
        MediaSource source{Uuid::make(), "Cam " + std::to_string(s + 1), SourceKind::camera, {}, {}};
        for (int f = 0; f < 3; ++f) {
            MediaItem item;
            item.url = "/set/" + source.name + "/c" + std::to_string(f) + ".mp4";
            item.duration = 15;
            item.audioChannels = 2;
            source.items.push_back(item);
        }
        sources.push_back(source);
    }
    for (bool fromTheStart : {true, false}) {
        std::atomic<bool> stop{fromTheStart};
        int loads = 0;
        FolderSync::Options options;
        options.threads = 1;
        options.stop = &stop;
        options.primary = [&](const std::filesystem::path&, media::SoundLevels*) -> Result<std::vector<float>> {
            ++loads;
            stop = true;  // the window closes while this file decodes
            return slice(set, 5.0 * loads, 15);
        };
        options.fallback = options.primary;
        SyncResult r = FolderSync::run(sources, nullptr, options);
        EXPECT_EQ(loads, fromTheStart ? 0 : 1);
        EXPECT_TRUE(r.placed.empty());
    }
}

}  // namespace
}  // namespace qv
