// DropDetector: finds the drops of a set (the bass coming back after a
// break) and its single bass hits (onsets), from the `bass` envelopes stored
// in a SyncResult (10 values per second), never from the sound itself, so it
// runs at once on a cached synchronisation.
//
// Which envelopes count: when any placed file of a sound recorder has a bass
// envelope, only recorder files are read; otherwise only camera files. Each
// file is scaled by its own 95th percentile, so a quiet camera and a loud one
// weigh the same.
//
// Pure functions of their inputs; callable from any thread. Nothing fails:
// too short a set, no envelope or no qualifying rise gives an empty list.
#pragma once

#include <vector>

#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv {

struct Drop {
    int id = 0;           // position in the returned list, from 0
    double time = 0;      // seconds on the set's time line, on the 0.1 s grid
    double strength = 0;  // score relative to the set's strongest drop (1.0)

    bool operator==(const Drop&) const = default;
};

namespace DropDetector {

// Sensitivity 0 to 1; higher finds more (it only lowers the score threshold).
// Sorted by time. A set under 30.0 s (301 frames) has none.
std::vector<Drop> detect(const SyncResult& result, const std::vector<MediaSource>& sources,
                         double sensitivity);

// Seconds on the time line, ascending; hits of different files that fall
// together are all kept.
std::vector<double> onsets(const SyncResult& result, const std::vector<MediaSource>& sources);

// Trailing mean over the last min(i + 1, window) values. A window below 2,
// or not smaller than the array, returns the array unchanged.
std::vector<double> movingAverage(const std::vector<double>& x, int window);

}  // namespace DropDetector
}  // namespace qv
