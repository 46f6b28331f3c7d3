// Signals made in memory for the placement tests: slices of one noise "set"
// so true starts are known exactly, and entries ready for FolderSync::place.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/SplitMix64.h"
#include "sync/FolderSync.h"

namespace qv::test {

constexpr int kRate = 2000;

inline std::vector<float> noise(uint64_t seed, double seconds, float amount = 1.0f) {
    SplitMix64 rng(seed);
    std::vector<float> x(static_cast<size_t>(std::llround(seconds * kRate)));
    for (auto& v : x) v = amount * static_cast<float>(rng.unit() * 2 - 1);
    return x;
}

constexpr double kPhrase = 15.0;  // one 8-bar phrase, seconds

// A track that repeats one phrase, with a room of its own over it.
inline std::vector<float> club(double seconds, float room, uint64_t seed = 1) {
    auto phrase = noise(seed, kPhrase);
    auto out = noise(seed + 1, seconds, room);
    for (size_t i = 0; i < out.size(); ++i) out[i] += phrase[i % phrase.size()];
    return out;
}

// `x` as a microphone hears it: at `gain`, under hiss of its own.
inline std::vector<float> mix(std::vector<float> x, float gain, uint64_t seed, float hiss) {
    SplitMix64 rng(seed);
    for (auto& v : x) v = gain * v + hiss * static_cast<float>(rng.unit() * 2 - 1);
    return x;
}

inline std::vector<float> slice(const std::vector<float>& x, double from, double seconds) {
    auto a = x.begin() + std::lround(from * kRate);
    return std::vector<float>(a, a + std::lround(seconds * kRate));
}

inline FolderSync::Entry entry(int source, SourceKind kind, const std::string& name, std::vector<float> signal) {
    FolderSync::Entry e;
    e.sourceIndex = source;
    e.kind = kind;
    e.item.id = Uuid::make();
    e.item.url = "/set/" + name;
    e.item.duration = static_cast<double>(signal.size()) / kRate;
    e.item.audioChannels = 1;
    e.signal = std::move(signal);
    return e;
}

inline SyncResult place(std::vector<FolderSync::Entry> entries, int threads = 1) {
    FolderSync::Options options = FolderSync::defaultOptions();
    options.trace = false;
    options.threads = threads;
    return FolderSync::place(std::move(entries), {}, nullptr, options);
}

// One thread and two must give the same answer, to the bit.
inline void expectSameWithTwoThreads(const std::vector<FolderSync::Entry>& entries) {
    auto one = place(entries, 1), two = place(entries, 2);
    ASSERT_EQ(one.placed.size(), two.placed.size());
    for (size_t i = 0; i < one.placed.size(); ++i) {
        EXPECT_EQ(one.placed[i].item.fileName(), two.placed[i].item.fileName());
        EXPECT_EQ(one.placed[i].start, two.placed[i].start);
        EXPECT_EQ(one.placed[i].score, two.placed[i].score);
        EXPECT_EQ(one.placed[i].drift, two.placed[i].drift);
    }
}

inline const PlacedItem* find(const SyncResult& r, const std::string& name) {
    for (const auto& p : r.placed)
        if (p.item.fileName() == name) return &p;
    return nullptr;
}

inline const UnsyncedItem* findUnsynced(const SyncResult& r, const std::string& name) {
    for (const auto& u : r.unsynced)
        if (u.item.fileName() == name) return &u;
    return nullptr;
}

}  // namespace qv::test
