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

struct PlacedItem {
    int sourceIndex = 0;
    MediaItem item;
    double start = 0;                       // seconds on the time line
    std::optional<float> score;             // nothing for the reference
    std::optional<std::string> anchorName;  // file the best score came from
    bool ambiguous = false;
    std::vector<float> waveform;            // 20 per second, 0..1
    std::vector<float> bass;                // 10 per second, unscaled

    double end() const { return start + item.duration; }
};

struct UnsyncedItem {
    int sourceIndex = 0;
    MediaItem item;
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
