// Drift: how fast a recording's clock runs against the set's time line.
// Recorders and cameras never run at exactly their nominal rate (100 to
// 150 ppm is common: 0.36 s over an hour), so a file placed by one offset is
// only in step at one point. Short windows along the file are correlated
// against the reference around where they should lie, and a line through
// their offsets (outliers dropped) gives the file's rate and its start.
#pragma once

#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace qv::Drift {

// Overlap with the reference below which the rate is not measured: over
// less, the windows' half-sample steps hide a drift of a few ppm.
constexpr double minimumSpan = 120.0;
// A fitted rate closer to 0 than this is taken as no drift at all.
constexpr double negligiblePpm = 3.0;

struct Fit {
    double ppm = 0;       // + when the file's clock runs fast
    double start = 0;     // line time of the file's time 0, from the fit
    int windows = 0;      // windows the line went through
    int tried = 0;        // windows correlated
    double spread = 0;    // RMS distance of those windows from the line, seconds
    double ppmError = 0;  // standard error of the rate
    double slope = 1;     // line seconds per file second: 1 / (1 + ppm / 1e6)
    bool significant() const { return std::abs(ppm) >= negligiblePpm && std::abs(ppm) >= 4 * ppmError; }
};

// `signal` lies near `start` on the line; `reference` (2 kHz like it) starts
// at `referenceStart` and keeps the line's own clock. Nothing when the two
// overlap by less than `minimumSpan` or too few windows find their place.
// Windows are correlated on up to `threads` threads; the result never
// depends on their timing.
std::optional<Fit> measure(const std::vector<float>& signal, const std::vector<float>& reference, double start,
                           double referenceStart, int threads);

// One line of the QUORVEL_DEBUG trace.
std::string describe(const Fit& fit);

}  // namespace qv::Drift
