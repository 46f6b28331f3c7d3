// SyncResult: every file of a set placed on one time line (seconds, earliest
// file at 0), with the envelopes that later analysis and display need, so a
// stored result never requires decoding again.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sync/Media.h"

namespace qv {

// A start that the sound proposes for a file, for the user to choose from:
// `strength` is the best correlation score found there.
struct SyncCandidate {
    double start = 0;  // seconds on the time line
    float strength = 0;
    bool operator==(const SyncCandidate&) const = default;
};

// The starts kept per file, strongest evidence first.
inline constexpr size_t maxCandidates = 5;

// Which sound of a file is heard: one of its sound streams (counted among
// those that carry usable sound, from 0) and some of its channels (bit k
// for channel k; 0 for all of them, as the file mixes them).
struct SoundPick {
    int stream = 0;
    uint64_t channels = 0;
    bool operator==(const SoundPick&) const = default;
};

// What placed a file when its own sound did not.
enum class PlacedBy {
    sound,       // its sound, against the files of other sources
    clock,       // its device's sample clock (bext, iXML), learnt from a sibling the sound placed
    neighbours,  // the pieces of its recording before and after it
};

struct PlacedItem {
    int sourceIndex = 0;
    MediaItem item;
    double start = 0;                       // seconds on the time line
    std::optional<float> score;             // nothing for the reference
    std::optional<std::string> anchorName;  // file the best score came from
    bool ambiguous = false;
    std::vector<float> waveform;            // 20 per second, 0..1
    std::vector<float> bass;                // 10 per second, unscaled
    // How fast the file's clock runs against the time line, in parts per
    // million (+ when fast); nothing when the file was too short to tell.
    // `start` is where its time 0 lies; later times follow the drift.
    std::optional<double> drift;
    std::vector<SyncCandidate> candidates{};  // the sync's best starts, at most maxCandidates
    bool byHand = false;                    // the user put it here, not the sound

    // How the file stands among its source's other files, decided by the
    // synchronisation and read as they are by the player, the render and
    // every writer:
    // - a take: files a device wrote at one moment (a mix, one file per
    //   input, a safety copy) share `take` (from 1; 0 for a file alone),
    //   stand at the same start, and each is a lane of its own named
    //   `lane` (its track); the lanes `heard` play, the others are muted;
    // - a recording in pieces: `follows` is the file of the piece before
    //   this one (empty for a first piece or a file alone); the earlier
    //   piece gives way at this one's start, and both share one drift;
    // - `sound`: the stream and channels that carry its sound.
    int take = 0;
    std::string lane{};
    bool heard = true;
    std::filesystem::path follows{};
    SoundPick sound{};
    PlacedBy placedBy = PlacedBy::sound;
    // Seconds the file's picture is shown later than its sound, for a camera
    // far from the speakers (its sound comes late, so placing it by sound
    // puts its picture early). Set by the application from the project; 0
    // from the synchronisation.
    double pictureOffset = 0;

    double end() const { return start + item.duration; }
    // Where the file's last sample lies on the line, by its own clock.
    double lineEnd() const { return lineTime(item.duration); }
    // File seconds per line second.
    double clockRate() const { return 1.0 + drift.value_or(0.0) * 1e-6; }
    // Where file time t lies on the line, and which file time is heard at
    // line time `at`.
    double lineTime(double t) const { return start + t / clockRate(); }
    double fileTime(double at) const { return (at - start) * clockRate(); }
    // In-point of the piece [from, to] of the line cut from this file, played
    // at the file's own rate: in step with the line at the piece's middle,
    // so a drifting camera is never out by more than half the piece's drift.
    double sourceIn(double from, double to) const {
        if (drift.value_or(0.0) == 0.0) return from - start;
        double middle = (from + to) / 2;
        double in = fileTime(middle) - (middle - from);
        return std::clamp(in, 0.0, std::max(0.0, item.duration - (to - from)));
    }
};

struct UnsyncedItem {
    int sourceIndex = 0;
    MediaItem item;
    std::string reason;  // French, e.g. "pas de son commun trouvé"; empty when not told
    std::vector<SyncCandidate> candidates{};  // starts the sound proposed, none were clear enough
};

struct SyncResult {
    std::vector<PlacedItem> placed;  // by start, ascending, stable
    std::vector<UnsyncedItem> unsynced;

    double duration() const {
        double d = 0;
        for (const auto& p : placed) d = std::max(d, p.end());
        return d;
    }
};

}  // namespace qv
