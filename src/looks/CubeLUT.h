// A 3D colour lookup table and its `.cube` text form.
//
// `values` holds size³ triples of red, green, blue in single precision, red
// the fastest axis: the triple for grid point (r, g, b) starts at
// ((b * size + g) * size + r) * 3. Grid coordinates run 0..1 over the
// points, index / (size - 1). Written text never follows the process locale.
// A CubeLUT is immutable once made; every operation is pure and may run on
// any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Bounds.h"

namespace qv {

// One colour, gamma-encoded, normally 0..1.
struct Rgb {
    double r = 0, g = 0, b = 0;
    bool operator==(const Rgb&) const = default;
};

struct CubeLUT {
    static constexpr int kMinSize = 2;
    static constexpr int kMaxSize = 128;
    // What a table may give, once its domain is mapped to 0..1.
    static constexpr Range kValueRange{-16, 16};

    int size = 0;               // points per axis, kMinSize..kMaxSize
    std::vector<float> values;  // size³ × 3

    bool operator==(const CubeLUT&) const = default;

    // Reads the common `.cube` dialect: LUT_3D_SIZE, DOMAIN_MIN/MAX (the
    // values are remapped to 0..1), data lines of three numbers; keywords in
    // any case, comments and unknown lines skipped. Nothing when the size is
    // outside 2..128, the number of values does not match it or a domain is
    // not three numbers. Non-finite numbers do not read; values are held
    // inside kValueRange.
    static std::optional<CubeLUT> parse(std::string_view text);

    // The file text: a TITLE line, a comment, LUT_3D_SIZE and one "%.6f %.6f
    // %.6f" line per triple, each ended by a line feed. No domain lines.
    std::string text(std::string_view title) const;

    // Trilinear interpolation in double precision; coordinates are clamped
    // to 0..1. The LUT must hold size³ triples with size >= 2.
    Rgb sample(double r, double g, double b) const;

    // The table that returns its input, for tests and as a neutral stand-in.
    static CubeLUT identity(int size);
};

}  // namespace qv
