// The synthetic club set: an arrangement of grooves, breaks and drops drawn
// from a seed, rendered in memory as mono floats. By default nothing in it
// repeats exactly (bass notes per bar, hat velocities, stabs, a crowd bed,
// shouts), so any ten seconds of it lie at one place only; with `phrases`
// the music itself repeats every 8 bars, as real tracks do. Times are seconds from the
// start of the set; the render covers exactly `duration`.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace qv::setgen {

struct MusicRecipe {
    double duration = 60;  // seconds
    int drops = -1;        // how many drops; -1 lets the length decide
    int rate = 48000;      // samples per second of the render
    uint64_t seed = 1;
    // Club tracks: the kick, claps and bass line of each bar repeat every 8
    // bars within a part of a track (grooves, breaks and drops each have
    // their own phrase; a track lasts 128 bars); hats, stabs and the room
    // (crowd, shouts, claps) never repeat.
    bool phrases = false;
    double room = 1.0;  // loudness of the crowd, its shouts and claps
};

struct Music {
    int rate = 48000;
    double bpm = 0;
    double duration = 0;
    std::vector<double> drops;                      // seconds where the bass comes back
    std::vector<std::pair<double, double>> breaks;  // [start, end) with no kick nor bass
    std::vector<float> samples;                     // duration × rate, peak about 0.6
};

// Deterministic: the same recipe gives the same samples, bit for bit.
Music renderMusic(const MusicRecipe& recipe);

}  // namespace qv::setgen
