// What the player suites share: virtual time for the output and the
// player's tick, a generated set placed where its generator put it, the
// frame code burnt into its pictures, and files placed by hand.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>

#include "../edit/Fakes.h"
#include "entry/SetTruth.h"
#include "platform/MediaReader.h"
#include "playback/MulticamPlayer.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"
#include "sync/MediaScanner.h"

namespace qv::test {

// Virtual time for the output and the player's tick; workers catch up
// (settle) before each tick, as they would on a fast enough machine.
struct Clocked {
    std::atomic<double> now{0};
    ManualScheduler scheduler;
    SilentAudioOutput* output = nullptr;
    std::atomic<int> wakeups{0};

    MulticamPlayer::Options options(TrackOpener opener) {
        MulticamPlayer::Options o;
        o.opener = std::move(opener);
        o.now = [this] { return now.load(); };
        auto out = std::make_unique<SilentAudioOutput>(o.now);
        output = out.get();
        o.output = std::move(out);
        o.scheduler = &scheduler;
        o.wakeup = [this] { ++wakeups; };
        return o;
    }
    template <class Check>
    void run(MulticamPlayer& player, double seconds, Check check) {
        for (double left = seconds; left > 1e-9; left -= 1.0 / 30) {
            double step = std::min(left, 1.0 / 30);
            now = now + step;
            player.settle();
            scheduler.advance(step);
            check();
        }
    }
    void run(MulticamPlayer& player, double seconds) {
        run(player, seconds, [] {});
    }
};

// A seek whose pictures have all arrived and been taken.
inline void seekSettled(MulticamPlayer& player, double t) {
    player.seek(t);
    player.settle();
    player.update();
}

// The frame code of a picture.
inline std::optional<setgen::framecode::Code> codeOf(const uint8_t* rgba, int width, int height) {
    return setgen::framecode::read(rgba, width, height, width * 4);
}
inline std::optional<setgen::framecode::Code> codeOf(const PreviewFrame& f) { return codeOf(f.rgba.data(), f.width, f.height); }
inline std::optional<setgen::framecode::Code> codeOf(const media::RgbaFrame& f) {
    return codeOf(f.pixels.data(), f.width, f.height);
}

// Scans a generated set into `sources` and places every file at its truth;
// `each` may change a placement (a drift). False when the set is missing.
template <class Each>
bool placeAtTruth(const std::filesystem::path& set, std::vector<MediaSource>& sources, SyncResult& result, Each each) {
    auto truth = SetTruth::read(set);
    if (set.empty() || !truth) return false;
    auto job = truth->placedJob(set);
    sources = std::move(job.sources);
    for (PlacedItem& p : job.result.placed) {
        each(p);
        result.placed.push_back(std::move(p));
    }
    return true;
}
inline bool placeAtTruth(const std::filesystem::path& set, std::vector<MediaSource>& sources, SyncResult& result) {
    return placeAtTruth(set, sources, result, [](PlacedItem&) {});
}

// Places a probed file at `start`, in a new source of `kind` unless `newSource` is false.
inline ::testing::AssertionResult place(std::vector<MediaSource>& sources, SyncResult& result, const std::string& name,
                                        SourceKind kind, const std::filesystem::path& file, double start,
                                        bool newSource = true) {
    auto item = MediaScanner::probe(file);
    if (!item) return ::testing::AssertionFailure() << "cannot probe " << name;
    if (newSource) sources.push_back({Uuid::make(), name, kind, {}, {}});
    sources.back().items.push_back(*item);
    PlacedItem p;
    p.sourceIndex = static_cast<int>(sources.size()) - 1;
    p.item = *item;
    p.start = start;
    result.placed.push_back(p);
    return ::testing::AssertionSuccess();
}

}  // namespace qv::test
