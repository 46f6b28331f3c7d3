// Bounds on what the program reads from its own files (projects, settings,
// sync caches, looks). Every number a file gives is held inside the range
// its control offers, so a crafted or damaged value can neither size an
// allocation nor spin a loop; every file is refused unread above a size no
// real one reaches, and JSON nesting is limited before parsing.
//
// A field's Range stands beside the field (or in its type's field table),
// and the JSON readers of Json.h take one: a new field cannot be read from a
// file without saying its range.
#pragma once

#include <cmath>
#include <cstdint>

namespace qv {

struct Range {
    double min = 0;
    double max = 0;

    // `v` held inside the range; NaN, which no control can give, is `fallback`.
    constexpr double hold(double v, double fallback) const {
        if (std::isnan(v)) return fallback;
        return v < min ? min : v > max ? max : v;
    }
    constexpr bool contains(double v) const { return v >= min && v <= max; }
};

namespace limits {

// The longest set time line the program handles: 48 hours. Every time read
// from a file (cuts, marks, hand placements, cached starts) lies within it,
// so what is sized by the set's length stays a few megabytes.
inline constexpr double setSeconds = 48.0 * 3600.0;
inline constexpr Range setTime{0, setSeconds};
// Cached starts come from the correlator, which may place a file before the
// set's first one; beyond the set's length either way the cache is refused.
inline constexpr Range signedSetTime{-setSeconds, setSeconds};

inline constexpr Range fraction{0, 1};
inline constexpr Range percent{0, 100};
inline constexpr Range signedPercent{-100, 100};

// Sizes above which a file is refused without being read. A project of a
// million cuts is about 100 MB pretty printed; a cache of twelve sources of
// ten hours about 70 MB; a 128-point cube about 80 MB of text.
inline constexpr uint64_t projectBytes = uint64_t{256} << 20;
inline constexpr uint64_t cacheBytes = uint64_t{256} << 20;
inline constexpr uint64_t cubeBytes = uint64_t{128} << 20;
inline constexpr uint64_t settingsBytes = uint64_t{1} << 20;
inline constexpr uint64_t presetBytes = uint64_t{1} << 20;

// Arrays and objects inside one another; a project needs six levels.
inline constexpr int jsonDepth = 64;

}  // namespace limits
}  // namespace qv
