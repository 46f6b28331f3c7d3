// SyncResult: every file of a set placed on one time line (seconds, earliest
// file at 0), with the envelopes that later analysis and display need, so a
// stored result never requires decoding again.
#pragma once

#include <algorithm>
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

    // Seconds the file's picture is shown later than its sound, for a camera
    // far from the speakers (its sound comes late, so placing it by sound
    // puts its picture early). Set by the application from the project; 0
    // from the synchronisation.
    double pictureOffset = 0;

    double end() const { return start + item.duration; }
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
