// Placement of files that belong together, on signals made in memory: a
// take placed as one, files of one device that overlap without being one
// take, a device clock that places a file its sound cannot, and the choices
// between two starts that the audit found wrong.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "base/SplitMix64.h"
#include "sync/FolderSync.h"
#include "sync/Signals.h"
#include "sync/SoundChoice.h"

namespace qv {
namespace {

using namespace test;

double startOf(const SyncResult& r, const std::string& name) { return find(r, name)->start - find(r, "table.wav")->start; }

TEST(DeviceSync, ATakeIsPlacedAsOneWhereNoMemberAloneCouldTell) {
    // Input 1 took the mixer's feed: the phrase alone, which fits every
    // repeat alike. Input 2, far in the room, hears the crowd that never
    // repeats, faintly. The mix holds both.
    auto set = club(300, 1.0f);
    auto phrase = club(300, 0.0f);
    auto feed = mix(slice(phrase, 100, 40), 1.0f, 2, 0.05f);
    auto room = mix(slice(set, 100, 40), 0.3f, 3, 0.3f);
    std::vector<float> both(feed.size());
    for (size_t i = 0; i < both.size(); ++i) both[i] = 0.5f * (feed[i] + room[i]);
    auto table = entry(0, SourceKind::audio, "table.wav", mix(set, 1.0f, 4, 0.1f));

    auto alone = place({table, entry(1, SourceKind::audio, "ZOOM0001_Tr1.WAV", feed)});
    const PlacedItem* lone = find(alone, "ZOOM0001_Tr1.WAV");
    EXPECT_TRUE(!lone || lone->ambiguous || std::fabs(startOf(alone, "ZOOM0001_Tr1.WAV") - 100) > 1)
        << "the feed alone should not tell its place";

    auto r = place({table, entry(1, SourceKind::audio, "ZOOM0001_LR.WAV", both),
                    entry(1, SourceKind::audio, "ZOOM0001_Tr1.WAV", feed),
                    entry(1, SourceKind::audio, "ZOOM0001_Tr2.WAV", room)});
    for (const char* name : {"ZOOM0001_LR.WAV", "ZOOM0001_Tr1.WAV", "ZOOM0001_Tr2.WAV"}) {
        ASSERT_NE(find(r, name), nullptr) << name;
        EXPECT_NEAR(startOf(r, name), 100.0, 1e-9) << name;
        EXPECT_EQ(find(r, name)->take, 1) << name;
    }
    EXPECT_EQ(find(r, "ZOOM0001_Tr2.WAV")->lane, "Tr2");
    EXPECT_EQ(find(r, "table.wav")->take, 0);
    test::expectSameWithTwoThreads({table, entry(1, SourceKind::audio, "ZOOM0001_LR.WAV", both),
                                    entry(1, SourceKind::audio, "ZOOM0001_Tr2.WAV", room)});
}

TEST(DeviceSync, OneDeviceOverlappingItselfIsOneTakeOnlyWhenSimultaneous) {
    auto set = noise(20, 200);
    auto table = entry(0, SourceKind::audio, "table.wav", slice(set, 0, 200));
    // Two files whose names say nothing, heard at one start: one take.
    auto r = place({table, entry(1, SourceKind::audio, "gauche.wav", mix(slice(set, 50, 60), 1.0f, 21, 0.3f)),
                    entry(1, SourceKind::audio, "droite.wav", mix(slice(set, 50, 60), 0.5f, 22, 0.3f))});
    ASSERT_NE(find(r, "gauche.wav"), nullptr);
    ASSERT_NE(find(r, "droite.wav"), nullptr);
    EXPECT_NEAR(startOf(r, "droite.wav"), startOf(r, "gauche.wav"), 0.001);
    EXPECT_NE(find(r, "droite.wav")->take, 0);
    EXPECT_EQ(find(r, "droite.wav")->take, find(r, "gauche.wav")->take);

    // Two clips of one camera that overlap by ten seconds: the second is
    // refused for what it is, a file heard while its sibling records.
    auto clash = place({table, entry(2, SourceKind::camera, "clip 1.mp4", mix(slice(set, 10, 40), 1.0f, 23, 0.3f)),
                        entry(2, SourceKind::camera, "clip 2.mp4", mix(slice(set, 40, 30), 1.0f, 24, 0.3f))});
    ASSERT_NE(find(clash, "clip 1.mp4"), nullptr);
    ASSERT_NE(findUnsynced(clash, "clip 2.mp4"), nullptr);
    EXPECT_EQ(findUnsynced(clash, "clip 2.mp4")->reason,
              "entendu pendant clip 1.mp4, du même appareil, sans être de la même prise");
}

TEST(DeviceSync, ARecorderClockPlacesAFileItsSoundCannotAndDatesNeverDo) {
    auto set = noise(30, 400);
    auto table = entry(0, SourceKind::audio, "table.wav", slice(set, 0, 400));
    auto stamped = [&](const char* name, double start, std::vector<float> signal, double clock) {
        auto e = entry(1, SourceKind::audio, name, std::move(signal));
        e.item.clock = DeviceClock{DeviceClock::Kind::samples, clock + start, false, 1.0 / 48000};
        return e;
    };
    // The recorder's clock stands 3 h off; its second file heard nothing.
    auto r = place({table, stamped("REC0001.WAV", 20, mix(slice(set, 20, 60), 1.0f, 31, 0.2f), 3 * 3600),
                    stamped("REC0002.WAV", 250.25, noise(32, 40, 0.01f), 3 * 3600)});
    ASSERT_NE(find(r, "REC0002.WAV"), nullptr);
    EXPECT_NEAR(startOf(r, "REC0002.WAV"), 250.25, 1e-6);
    EXPECT_EQ(find(r, "REC0002.WAV")->placedBy, PlacedBy::clock);
    EXPECT_EQ(find(r, "REC0002.WAV")->anchorName, "REC0001.WAV");

    // A camera's date, to the second, never places a file alone.
    auto dated = [&](const char* name, double start, std::vector<float> signal) {
        auto e = entry(2, SourceKind::camera, name, std::move(signal));
        e.item.recordedAt = Date{} + std::chrono::hours(5) + std::chrono::seconds(std::lround(start));
        return e;
    };
    auto d = place({table, dated("a.mp4", 20, mix(slice(set, 20, 60), 1.0f, 33, 0.2f)),
                    dated("b.mp4", 250, noise(34, 40, 0.01f))});
    EXPECT_EQ(find(d, "b.mp4"), nullptr);
}

TEST(DeviceSync, ACameraClockRefusesAWeakMatchItPutsElsewhere) {
    // A phone dates its clips truly. Its first clip is heard clearly; the
    // second's microphone was muffled: all it shares with the table is a
    // faint likeness of the moment at 200 s, while its clock puts it later,
    // inside the table's recording or past its end.
    struct Case {
        uint64_t seed;
        double tableEnd, late;
        const char* reason;
    };
    for (const Case& c : {Case{40, 400, 250, "son trop faible, la date de sa caméra le place ailleurs"},
                          Case{180, 300, 330, "la date de sa caméra le place hors de tout enregistrement"}}) {
        auto set = noise(c.seed, 400);
        auto late = noise(c.seed + 1, 22);
        auto likeness = slice(set, 200, 22);
        for (size_t i = 0; i < late.size(); ++i) late[i] += 0.09f * likeness[i];
        std::vector<FolderSync::Entry> entries = {entry(0, SourceKind::audio, "table.wav", slice(set, 0, c.tableEnd))};
        for (auto [name, start, signal] : {std::tuple{"a.mp4", 100.0, mix(slice(set, 100, 22), 1.0f, c.seed + 2, 0.3f)},
                                           std::tuple{"b.mp4", c.late, late}}) {
            auto e = entry(1, SourceKind::camera, name, signal);
            e.item.recordedAt = Date{} + std::chrono::hours(5) + std::chrono::seconds(std::lround(start));
            entries.push_back(std::move(e));
        }
        auto r = place(entries);
        ASSERT_NE(find(r, "a.mp4"), nullptr) << c.reason;
        EXPECT_NEAR(startOf(r, "a.mp4"), 100.0, 1e-9);
        ASSERT_NE(findUnsynced(r, "b.mp4"), nullptr) << c.reason;
        EXPECT_EQ(findUnsynced(r, "b.mp4")->reason, c.reason);

        // Without the dates the same weak match is all there is, and it stands.
        for (auto& e : entries) e.item.recordedAt.reset();
        EXPECT_NE(find(place(entries), "b.mp4"), nullptr) << c.reason;
    }
}

TEST(DeviceSync, AFileHeardClearlyAtOneOfTwoStartsIsPlacedWhenNoRecordingCoversBoth) {
    // A phrase played loud at 100 s comes back at 145, 160, 175 and 190 s.
    // The table ran until 135 s and hears the noisy clip at 100 s whole,
    // faintly but distinctly; six cameras ran from 121 s and hear only its
    // phrase, again and again, and their votes come near the table's one.
    // No recording covers both starts, yet one of them is plainly the moment.
    auto set = noise(50, 300, 0.7f);
    const auto phrase = noise(51, 6);
    for (double at : {100.0, 145.0, 160.0, 175.0, 190.0})
        for (size_t i = 0; i < phrase.size(); ++i) set[static_cast<size_t>(at * kRate) + i] += phrase[i];
    std::vector<FolderSync::Entry> entries = {entry(0, SourceKind::audio, "table.wav", mix(slice(set, 0, 135), 1.0f, 52, 0.1f)),
                                              entry(9, SourceKind::camera, "clip.mp4", mix(slice(set, 100, 6), 1.0f, 53, 6.0f))};
    for (int k = 1; k <= 6; ++k)
        entries.push_back(entry(k, SourceKind::camera, "salle" + std::to_string(k) + ".mp4",
                                mix(slice(set, 121, 179), 1.0f, 54 + k, 0.05f)));
    auto r = place(entries);
    ASSERT_NE(find(r, "clip.mp4"), nullptr);
    EXPECT_NEAR(startOf(r, "clip.mp4"), 100.0, 1e-9);

    // With no recording running at 100 s, the repeats are all there is: refused.
    entries.erase(entries.begin());
    EXPECT_EQ(find(place(entries), "clip.mp4"), nullptr);
}

TEST(DeviceSync, EightThreadsOnLongFilesStayWithinTheBudget) {
    // Eight recorders of ten minutes each on eight cores: as many pairs at
    // once as two spectra and a working buffer of their size fit, no more.
    auto set = noise(60, 700);
    std::vector<FolderSync::Entry> entries;
    for (int k = 0; k < 8; ++k)
        entries.push_back(entry(k, SourceKind::audio, "rec" + std::to_string(k) + ".wav",
                                mix(slice(set, 10.0 * k, 600), 1.0f, 61 + k, 0.3f)));
    FolderSync::Stats stats;
    FolderSync::Options options = FolderSync::defaultOptions();
    options.trace = false;
    options.threads = 8;
    options.spectrumBudget = 200'000'000;  // two pairs of 2^22 at a time, where eight would take twice that
    options.stats = &stats;
    auto r = FolderSync::place(entries, {}, nullptr, options);
    ASSERT_EQ(r.placed.size(), 8u);
    for (int k = 1; k < 8; ++k)
        EXPECT_NEAR(find(r, "rec" + std::to_string(k) + ".wav")->start - find(r, "rec0.wav")->start, 10.0 * k, 1e-9);
    EXPECT_LE(stats.budgetPeak, options.spectrumBudget);
}

TEST(DeviceSync, EightThreadsDecodeNoMoreLongFilesAtOnceThanTheBudgetHolds) {
    // Eight files of three hours: at the decoder's rate each holds 346 MB
    // until it is reduced, so a budget of 800 MB lets two decode at once.
    std::vector<const MediaItem*> items;
    std::vector<MediaItem> files(8);
    for (size_t k = 0; k < files.size(); ++k) {
        files[k].url = "/set/Son " + std::to_string(k + 1) + "/long.wav";
        files[k].duration = 3 * 3600;
        files[k].audioChannels = 2;
        items.push_back(&files[k]);
    }
    std::atomic<int> inFlight{0}, most{0}, loads{0};
    FolderSync::Options options;
    options.threads = 8;
    options.spectrumBudget = 800'000'000;
    options.primary = [&](const std::filesystem::path&, media::SoundLevels*) -> Result<std::vector<float>> {
        const int now = ++inFlight;
        for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {}
        // Long enough for the other threads to try their turn.
        for (int spin = 0; spin < 2000 && inFlight.load() < 8; ++spin) std::this_thread::yield();
        ++loads;
        --inFlight;
        return std::vector<float>(3000, 0.5f);
    };
    options.fallback = options.primary;
    auto signals = FolderSync::decodeAll(items, options);
    EXPECT_EQ(loads.load(), 8);
    EXPECT_EQ(signals.size(), 8u);
    EXPECT_LE(most.load(), 2);
}

TEST(DeviceSync, TheChannelChoiceHearsOneInputOfATakeOrOneChannelOfAFile) {
    // Son 1: a take of a mix and two inputs; Son 2: six channels, sound on
    // the fourth; Son 3: a plain stereo file.
    SyncResult r;
    auto file = [&](int source, const std::string& name, int channels, int take, std::string lane, bool heard) {
        PlacedItem p;
        p.sourceIndex = source;
        p.item.url = "/set/" + name;
        p.item.audioChannels = channels;
        p.take = take;
        p.lane = std::move(lane);
        p.heard = heard;
        r.placed.push_back(std::move(p));
    };
    file(0, "ZOOM0001_LR.WAV", 2, 1, "LR", true);
    file(0, "ZOOM0001_Tr2.WAV", 1, 1, "Tr2", false);
    file(0, "ZOOM0001_Tr1.WAV", 1, 1, "Tr1", false);
    file(1, "poly.wav", 6, 0, "", true);
    r.placed.back().sound.channels = 0b1000;
    file(2, "prise.wav", 2, 0, "", true);
    EXPECT_EQ(SoundChoice::inputs(r, 0), 2);
    EXPECT_EQ(SoundChoice::inputs(r, 1), 6);
    EXPECT_EQ(SoundChoice::inputs(r, 2), 2);

    auto heard = SoundChoice::apply(r, {{0, 2}, {1, 6}, {2, 0}});
    std::vector<bool> lanes;
    for (int k = 0; k < 3; ++k) lanes.push_back(heard.placed[static_cast<size_t>(k)].heard);
    EXPECT_EQ(lanes, (std::vector<bool>{false, true, false}));  // "2" is Tr2, whatever the file order
    EXPECT_EQ(heard.placed[3].sound.channels, uint64_t{1} << 5);
    EXPECT_EQ(heard.placed[4].sound, r.placed[4].sound);
    // Mélange keeps what the synchronisation chose; a choice beyond the
    // inputs leaves a file as it was.
    auto mixed = SoundChoice::apply(r, {{0, 0}, {1, 9}});
    EXPECT_TRUE(mixed.placed[0].heard);
    EXPECT_FALSE(mixed.placed[1].heard);
    EXPECT_EQ(mixed.placed[3].sound.channels, 0b1000u);
}

}  // namespace
}  // namespace qv
