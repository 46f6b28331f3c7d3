// What real club footage brings to the placement, on signals made in memory:
// music that repeats its phrases, phones that hear the room faintly, cameras
// that date their files when they close, clips filmed while nothing else
// ran, and recorders whose clocks drift.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

#include "sync/Drift.h"
#include "sync/FolderSync.h"
#include "sync/Signals.h"

namespace qv {
namespace {

using namespace test;

double startOf(const SyncResult& r, const std::string& name, const std::string& reference) {
    return find(r, name)->start - find(r, reference)->start;
}

TEST(ClubSync, ShortClipLandsWhereTheClearRecorderSaysNotWhereFaintPhonesAgree) {
    // The phones are drowned out (someone shouts into them) during the
    // clip's 4 s, so all they hear of it is the phrase a bar later: two weak
    // anchors agree on the repeat, one strong one hears the truth.
    auto set = club(300, 1.5f);
    auto clip = mix(slice(set, 121.3, 4), 1.0f, 70, 0.3f);
    auto phone = [&](uint64_t seed) {
        auto p = mix(slice(set, 90, 80), 0.15f, seed, 0.3f);
        auto shout = noise(seed + 5, 4.4, 3.0f);
        std::copy(shout.begin(), shout.end(), p.begin() + std::lround((121.1 - 90) * kRate));
        return p;
    };
    auto r = place({entry(0, SourceKind::audio, "table.wav", mix(set, 1.0f, 71, 0.2f)),
                    entry(1, SourceKind::camera, "phone1.mp4", phone(72)),
                    entry(2, SourceKind::camera, "phone2.mp4", phone(73)),
                    entry(3, SourceKind::camera, "court.mp4", clip)});
    ASSERT_NE(find(r, "court.mp4"), nullptr);
    EXPECT_NEAR(startOf(r, "court.mp4", "table.wav"), 121.3, 1e-9);
    EXPECT_FALSE(find(r, "court.mp4")->ambiguous);
}

TEST(ClubSync, UnclearShortClipIsPlacedAmbiguousWhereTheRecorderHearsItFirst) {
    // A clip drowned in the crowd; three phones filmed the next bars only,
    // so they hear the phrase's repeat and vote for it. The table's own best
    // peak is the truth and leads its next one clearly: unclear, not absent.
    auto set = club(300, 1.0f);
    auto clip = mix(slice(set, 121.3, 4), 1.0f, 170, 2.5f);
    std::vector<FolderSync::Entry> entries = {entry(0, SourceKind::audio, "table.wav", mix(set, 1.0f, 171, 0.2f)),
                                              entry(1, SourceKind::camera, "court.mp4", clip)};
    for (int k = 0; k < 3; ++k)
        entries.push_back(entry(2 + k, SourceKind::camera, "phone" + std::to_string(k) + ".mp4",
                                mix(slice(set, 128, 22), 0.6f, 172 + k, 0.3f)));
    auto r = place(entries);
    ASSERT_NE(find(r, "court.mp4"), nullptr);
    EXPECT_NEAR(startOf(r, "court.mp4", "table.wav"), 121.3, 1e-9);
    EXPECT_TRUE(find(r, "court.mp4")->ambiguous);
}

TEST(ClubSync, IsolatedClipIsRefusedWhileShortTrueOverlapsArePlaced) {
    // The recorder stops at 200 s; the track goes on repeating its phrase.
    auto set = club(300, 1.5f);
    auto r = place({entry(0, SourceKind::audio, "table.wav", mix(slice(set, 0, 200), 1.0f, 80, 0.1f)),
                    entry(1, SourceKind::camera, "court.mp4", mix(slice(set, 61.7, 4), 1.0f, 81, 0.2f)),
                    entry(2, SourceKind::camera, "seul.mp4", mix(slice(set, 230, 20), 1.0f, 82, 0.2f))});
    ASSERT_NE(find(r, "court.mp4"), nullptr);
    EXPECT_NEAR(startOf(r, "court.mp4", "table.wav"), 61.7, 1e-9);
    ASSERT_NE(findUnsynced(r, "seul.mp4"), nullptr);
    EXPECT_EQ(findUnsynced(r, "seul.mp4")->reason, "pas de son commun trouvé");

    // Over music that never repeats, 10 s shared at the end of a recording
    // are enough.
    auto plain = noise(83, 300);
    auto tail = place({entry(0, SourceKind::audio, "table.wav", slice(plain, 0, 200)),
                       entry(1, SourceKind::camera, "fin.mp4", mix(slice(plain, 190, 40), 1.0f, 84, 0.3f))});
    ASSERT_NE(find(tail, "fin.mp4"), nullptr);
    EXPECT_NEAR(startOf(tail, "fin.mp4", "table.wav"), 190.0, 1e-9);
}

TEST(ClubSync, EndOfRecordingDatesTeachTheCameraClock) {
    // Three clips carry room enough to be placed by sound; the fourth hears
    // the phrase loud and the room faintly, so its sound fits the repeats
    // nearly alike and only the camera's clock (dates written when a file
    // closes, 3 h ahead) can tell. Read as start dates, they would point
    // 15 s off: a phrase away.
    auto set = club(400, 1.5f);
    auto rec = mix(set, 1.0f, 90, 0.1f);
    auto phrase = club(400, 0.0f);
    for (size_t i = 0; i < phrase.size(); ++i) phrase[i] = 4 * phrase[i] + set[i];
    struct Clip {
        const char* name;
        double start, length;
        bool bare;
    };
    const Clip clips[] = {{"c1.mp4", 20, 40, false}, {"c2.mp4", 90, 55, false}, {"c3.mp4", 200, 25, false},
                          {"c4.mp4", 300, 40, true}};
    std::vector<FolderSync::Entry> entries = {entry(0, SourceKind::audio, "table.wav", rec)};
    const Date clock = Date{} + std::chrono::hours(3);
    for (const Clip& c : clips) {
        auto e = entry(1, SourceKind::camera, c.name,
                       mix(slice(c.bare ? phrase : set, c.start, c.length), 1.0f, 91, 0.05f));
        e.item.recordedAt = clock + std::chrono::seconds(std::lround(c.start + c.length));
        entries.push_back(std::move(e));
    }
    auto r = place(entries);
    for (const Clip& c : clips) {
        ASSERT_NE(find(r, c.name), nullptr) << c.name;
        EXPECT_NEAR(startOf(r, c.name, "table.wav"), c.start, 1e-9) << c.name;
        EXPECT_FALSE(find(r, c.name)->ambiguous) << c.name;
    }
}

// What a recorder whose clock runs `ppm` fast hears from `from` on.
std::vector<float> slowed(const std::vector<float>& x, double from, double seconds, double ppm) {
    std::vector<float> out(static_cast<size_t>(seconds * kRate));
    for (size_t i = 0; i < out.size(); ++i) {
        double at = from * kRate + static_cast<double>(i) / (1 + ppm * 1e-6);
        auto k = static_cast<size_t>(at);
        float f = static_cast<float>(at - static_cast<double>(k));
        out[i] = x[k] + (x[k + 1] - x[k]) * f;
    }
    return out;
}

TEST(ClubSync, DriftingRecorderIsMeasuredAndItsClipsFollowItsClock) {
    auto set = noise(100, 1400);
    auto rec = slowed(set, 100, 1200, 100);
    // A camera heard only by the drifting recorder, near its end: placed
    // by its clock, it lands where the set's line says.
    auto late = mix(slice(set, 1250, 30), 1.0f, 101, 0.3f);
    auto r = place({entry(0, SourceKind::audio, "table.wav", slice(set, 0, 1240)),
                    entry(1, SourceKind::audio, "enregistreur.wav", rec),
                    entry(2, SourceKind::camera, "late.mp4", late)},
                   2);
    const PlacedItem* drifting = find(r, "enregistreur.wav");
    ASSERT_NE(drifting, nullptr);
    ASSERT_TRUE(drifting->drift);
    EXPECT_NEAR(*drifting->drift, 100.0, 5.0);
    const double middle = 600;  // file seconds
    const double truth = 100 + middle / (1 + 100e-6);
    EXPECT_NEAR(drifting->lineTime(middle) - find(r, "table.wav")->start, truth, 0.001);
    ASSERT_NE(find(r, "late.mp4"), nullptr);
    EXPECT_NEAR(startOf(r, "late.mp4", "table.wav"), 1250.0, 0.001);
    EXPECT_FALSE(find(r, "late.mp4")->drift);  // too short to tell
}

TEST(ClubSync, SilenceAndShortSoundNeverMakeADrift) {
    // A recorder with ten minutes of digital silence, a file of pure
    // silence, and one shorter than a drift window: none crashes, none
    // drifts, and the true recorder keeps its place.
    auto set = noise(110, 1500);
    auto gapped = slice(set, 50, 1400);
    std::fill(gapped.begin() + 300 * kRate, gapped.begin() + 900 * kRate, 0.0f);
    auto r = place({entry(0, SourceKind::audio, "table.wav", set),
                    entry(1, SourceKind::audio, "trou.wav", gapped),
                    entry(2, SourceKind::audio, "muet.wav", std::vector<float>(200 * kRate, 0.0f)),
                    entry(3, SourceKind::camera, "bref.mp4", slice(set, 700, 3))});
    const PlacedItem* g = find(r, "trou.wav");
    ASSERT_NE(g, nullptr);
    EXPECT_NEAR(startOf(r, "trou.wav", "table.wav"), 50.0, 1e-9);
    ASSERT_TRUE(g->drift);
    EXPECT_EQ(*g->drift, 0.0);
    EXPECT_NE(findUnsynced(r, "muet.wav"), nullptr);
    ASSERT_NE(find(r, "bref.mp4"), nullptr);
    EXPECT_FALSE(find(r, "bref.mp4")->drift);

    // Straight to the measure: silence against music, and sound too short.
    auto quiet = std::vector<float>(300 * kRate, 0.0f);
    EXPECT_FALSE(Drift::measure(quiet, set, 100, 0, 1));
    EXPECT_FALSE(Drift::measure(slice(set, 10, 5), set, 10, 0, 1));
}

TEST(ClubSync, OneThreadAndTwoAgreeWithDriftAndClocks) {
    auto set = noise(120, 700);
    std::vector<FolderSync::Entry> entries = {entry(0, SourceKind::audio, "table.wav", set),
                                              entry(1, SourceKind::audio, "rec.wav", slowed(set, 40, 600, -80))};
    for (int i = 0; i < 5; ++i) {
        auto e = entry(2, SourceKind::camera, "c" + std::to_string(i) + ".mp4",
                       mix(slice(set, 20 + 130 * i, 60), 1.0f, 121 + i, 0.5f));
        e.item.recordedAt = Date{} + std::chrono::seconds(20 + 130 * i + 60);
        entries.push_back(std::move(e));
    }
    test::expectSameWithTwoThreads(entries);
}

}  // namespace
}  // namespace qv
