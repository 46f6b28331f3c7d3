#include "sync/Drift.h"

#include <algorithm>
#include <cmath>

#include "base/Parallel.h"
#include "base/Text.h"
#include "sync/Correlator.h"

namespace qv::Drift {

namespace {

constexpr double rate = 2000.0;
constexpr int window = 12000;      // 6 s of the file per window
constexpr int margin = 600;        // searched 0.3 s either side: less than a beat
constexpr int maxWindows = 32;
constexpr int minWindows = 8;
constexpr float windowScore = 8.0f;

struct Point {
    double t;     // file time of the window's middle
    double line;  // where it lies on the line
};

struct Line {
    double a = 0, b = 1;  // line = a + b t
    double spread = 0, slopeError = 0;
};

Line leastSquares(const std::vector<Point>& points) {
    double n = static_cast<double>(points.size()), mt = 0, ml = 0;
    for (const Point& p : points) {
        mt += p.t;
        ml += p.line;
    }
    mt /= n;
    ml /= n;
    double stt = 0, stl = 0;
    for (const Point& p : points) {
        stt += (p.t - mt) * (p.t - mt);
        stl += (p.t - mt) * (p.line - ml);
    }
    Line line;
    line.b = stt > 0 ? stl / stt : 1.0;
    line.a = ml - line.b * mt;
    double ss = 0;
    for (const Point& p : points) ss += std::pow(p.line - line.a - line.b * p.t, 2);
    line.spread = std::sqrt(ss / n);
    line.slopeError = points.size() > 2 && stt > 0 ? std::sqrt(ss / (n - 2) / stt) : INFINITY;
    return line;
}

// Least squares, then twice again without the windows that lie far from
// the line (a beat or a phrase away, a stretch of someone shouting).
Line robustFit(std::vector<Point>& points) {
    Line line = leastSquares(points);
    for (int round = 0; round < 2 && points.size() >= minWindows; ++round) {
        std::vector<double> residuals;
        for (const Point& p : points) residuals.push_back(std::fabs(p.line - line.a - line.b * p.t));
        std::vector<double> sorted = residuals;
        std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
        double limit = std::max(0.0015, 3 * 1.4826 * sorted[sorted.size() / 2]);
        std::vector<Point> kept;
        for (size_t i = 0; i < points.size(); ++i)
            if (residuals[i] <= limit) kept.push_back(points[i]);
        if (kept.size() == points.size() || kept.size() < minWindows) break;
        points = std::move(kept);
        line = leastSquares(points);
    }
    return line;
}

}  // namespace

namespace {

// One round: windows placed where the line a + b t predicts, searched a
// margin either side, and the line through what they found.
std::optional<Fit> round(const std::vector<float>& signal, const std::vector<float>& reference, double a, double b,
                         double referenceStart, int threads, const Correlator& correlator) {
    // File times whose window and search margin lie inside both signals.
    const double fileLength = static_cast<double>(signal.size()) / rate;
    const double refEnd = referenceStart + static_cast<double>(reference.size()) / rate;
    const double pad = margin / rate;
    const double from = std::max(0.0, (referenceStart + pad - a) / b);
    const double to = std::min(fileLength, (refEnd - pad - a) / b) - window / rate;
    if (!(to - from >= minimumSpan - window / rate)) return std::nullopt;

    const int count = maxWindows;
    std::vector<std::optional<Point>> found(static_cast<size_t>(count));
    parallelFor(count, std::max(1, threads), [&](int k) {
        const double t = from + (to - from) * k / (count - 1);
        const auto first = static_cast<size_t>(std::llround(t * rate));
        const long expected = std::lround((a + b * (static_cast<double>(first) / rate) - referenceStart) * rate);
        const long segmentFirst = expected - margin;
        if (segmentFirst < 0 || first + window > signal.size() ||
            static_cast<size_t>(segmentFirst + window + 2 * margin) > reference.size())
            return;
        std::vector<float> piece(signal.begin() + static_cast<long>(first),
                                 signal.begin() + static_cast<long>(first + window));
        std::vector<float> segment(reference.begin() + segmentFirst,
                                   reference.begin() + segmentFirst + window + 2 * margin);
        auto sa = correlator.spectrum(piece), sb = correlator.spectrum(segment);
        if (!sa || !sb) return;
        // Lags from -2 margin (the piece lies at the segment's end) to 0.
        auto matches = correlator.correlate(*sa, *sb, window, windowScore, 1, margin);
        if (matches.empty()) return;
        // A drifting window slides against the reference by its drift over
        // its length, and the best lag is the one of its middle: the point
        // stands there, or a clock 400 ppm off would be placed 1.2 ms wrong.
        const double half = window / 2 / rate;
        const double line = referenceStart + static_cast<double>(segmentFirst - matches.front().lag) / rate + half;
        found[static_cast<size_t>(k)] = Point{static_cast<double>(first) / rate + half, line};
    });

    std::vector<Point> points;
    for (const auto& p : found)
        if (p) points.push_back(*p);
    if (points.size() < minWindows) return std::nullopt;
    Line line = robustFit(points);
    if (points.size() < minWindows || points.back().t - points.front().t < minimumSpan / 2) return std::nullopt;

    Fit fit;
    fit.ppm = (1.0 / line.b - 1.0) * 1e6;
    fit.start = line.a;
    fit.windows = static_cast<int>(points.size());
    fit.tried = count;
    fit.spread = line.spread;
    fit.ppmError = line.slopeError / (line.b * line.b) * 1e6;
    fit.slope = line.b;
    return fit;
}

}  // namespace

std::optional<Fit> measure(const std::vector<float>& signal, const std::vector<float>& reference, double start,
                           double referenceStart, int threads) {
    auto correlator = Correlator::make(window + window + 2 * margin);
    if (!correlator) return std::nullopt;
    // A drifting file's placement is in step somewhere along it, not at both
    // ends: a second round searches where the first round's line says. A
    // file that keeps time needs no second look.
    auto first = round(signal, reference, start, 1.0, referenceStart, threads, *correlator);
    if (!first || !first->significant()) return first;
    auto second = round(signal, reference, first->start, first->slope, referenceStart, threads, *correlator);
    return second ? second : first;
}

std::string describe(const Fit& fit) {
    return cformat("dérive %+.1f ppm (± %.1f), %d fenêtres sur %d, écart %.2f ms, début %.4f s%s", fit.ppm,
                   fit.ppmError, fit.windows, fit.tried, fit.spread * 1000, fit.start,
                   fit.significant() ? "" : " : négligeable");
}

}  // namespace qv::Drift
