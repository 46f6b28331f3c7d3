#include "music/DropDetector.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qv::DropDetector {

namespace {

constexpr double framesPerSecond = 10;
constexpr int shortestSet = 301;
constexpr double referencePercentile = 0.95;
constexpr double referenceFloor = 1e-6;
constexpr double ceiling = 1.5;
constexpr int smoothing = 10;
constexpr int beforeFrom = 80, beforeTo = 11;  // frames c - 80 ... c - 11
constexpr int afterFrom = 2, afterTo = 59;     // frames c + 2 ... c + 59
constexpr double levelAfter = 0.45;
constexpr double ratio = 0.65;
constexpr int spacing = 400;
constexpr int refinementRadius = 15;
constexpr double onsetRise = 0.12;

double threshold(double sensitivity) { return (1 - sensitivity) * 0.45 + 0.12; }

// The placed files whose envelopes speak for the set: recorders when any of
// them has bass, else cameras.
std::vector<const PlacedItem*> listenedFiles(const SyncResult& result,
                                             const std::vector<MediaSource>& sources) {
    auto kindOf = [&](const PlacedItem& p) -> const SourceKind* {
        if (p.sourceIndex < 0 || static_cast<size_t>(p.sourceIndex) >= sources.size()) return nullptr;
        return &sources[p.sourceIndex].kind;
    };
    bool recorderHasBass = std::any_of(result.placed.begin(), result.placed.end(), [&](const PlacedItem& p) {
        const SourceKind* k = kindOf(p);
        return k && *k == SourceKind::audio && !p.bass.empty();
    });
    std::vector<const PlacedItem*> files;
    for (const PlacedItem& p : result.placed) {
        const SourceKind* k = kindOf(p);
        if (!k || p.bass.empty()) continue;
        if (*k == (recorderHasBass ? SourceKind::audio : SourceKind::camera)) files.push_back(&p);
    }
    return files;
}

double reference(const std::vector<float>& bass) {
    std::vector<float> sorted = bass;
    std::sort(sorted.begin(), sorted.end());
    size_t index = static_cast<size_t>(static_cast<double>(sorted.size() - 1) * referencePercentile);
    return std::max(static_cast<double>(sorted[index]), referenceFloor);
}

struct Candidate {
    int frame;
    double score;
};

}  // namespace

std::vector<double> movingAverage(const std::vector<double>& x, int window) {
    if (window < 2 || static_cast<size_t>(window) >= x.size()) return x;
    std::vector<double> out(x.size());
    double sum = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        sum += x[i];
        if (i >= static_cast<size_t>(window)) sum -= x[i - window];
        out[i] = sum / static_cast<double>(std::min(i + 1, static_cast<size_t>(window)));
    }
    return out;
}

std::vector<Drop> detect(const SyncResult& result, const std::vector<MediaSource>& sources,
                         double sensitivity) {
    const int n = static_cast<int>(std::trunc(result.duration() * framesPerSecond)) + 1;
    if (n < shortestSet) return {};

    // Files merge by maximum, each on its own scale.
    std::vector<double> level(n, 0.0);
    std::vector<bool> covered(n, false);
    for (const PlacedItem* file : listenedFiles(result, sources)) {
        const double ref = reference(file->bass);
        const long first = std::lround(file->start * framesPerSecond);
        for (size_t k = 0; k < file->bass.size(); ++k) {
            const long f = first + static_cast<long>(k);
            if (f < 0) continue;
            if (f >= n) break;
            level[f] = std::max(level[f], std::min(file->bass[k] / ref, ceiling));
            covered[f] = true;
        }
    }

    const std::vector<double> smooth = movingAverage(level, smoothing);
    std::vector<double> sum(n + 1, 0.0);
    std::vector<int> holes(n + 1, 0);
    for (int i = 0; i < n; ++i) {
        sum[i + 1] = sum[i] + smooth[i];
        holes[i + 1] = holes[i] + (covered[i] ? 0 : 1);
    }
    auto windowSum = [&](int from, int to) { return sum[to + 1] - sum[from]; };
    auto windowCovered = [&](int from, int to) { return holes[to + 1] - holes[from] == 0; };

    std::vector<Candidate> candidates;
    for (int c = beforeFrom; c <= n - 1 - (afterTo + 1); ++c) {
        // A gap in the recordings must not pass for the silence of a break.
        if (!windowCovered(c - beforeFrom, c - beforeTo) || !windowCovered(c + afterFrom, c + afterTo)) continue;
        const double before = windowSum(c - beforeFrom, c - beforeTo) / (beforeFrom - beforeTo + 1);
        const double after = windowSum(c + afterFrom, c + afterTo) / (afterTo - afterFrom + 1);
        if (after > levelAfter && before < after * ratio) candidates.push_back({c, after - before});
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.score > b.score; });

    const double minScore = threshold(sensitivity);
    std::vector<Candidate> selected;
    for (const Candidate& cand : candidates) {
        if (cand.score < minScore) continue;
        bool tooClose = std::any_of(selected.begin(), selected.end(), [&](const Candidate& s) {
            return std::abs(s.frame - cand.frame) < spacing;
        });
        if (!tooClose) selected.push_back(cand);
    }
    if (selected.empty()) return {};
    double top = 0;
    for (const Candidate& s : selected) top = std::max(top, s.score);
    std::stable_sort(selected.begin(), selected.end(),
                     [](const Candidate& a, const Candidate& b) { return a.frame < b.frame; });

    // The smoothed curve blurs the rise over a second; put the drop on the
    // sharpest step of the raw level nearby.
    std::vector<Drop> drops;
    for (const Candidate& s : selected) {
        int frame = s.frame;
        double bestStep = -1;
        for (int f = std::max(s.frame - refinementRadius, 1); f <= std::min(n - 1, s.frame + refinementRadius); ++f) {
            if (!covered[f] || !covered[f - 1]) continue;
            const double step = level[f] - level[f - 1];
            if (step > bestStep) {
                bestStep = step;
                frame = f;
            }
        }
        drops.push_back({static_cast<int>(drops.size()), frame / framesPerSecond, s.score / top});
    }
    return drops;
}

std::vector<double> onsets(const SyncResult& result, const std::vector<MediaSource>& sources) {
    std::vector<double> times;
    for (const PlacedItem* file : listenedFiles(result, sources)) {
        const size_t count = file->bass.size();
        if (count <= 3) continue;
        const double ref = reference(file->bass);
        std::vector<double> b(count);
        for (size_t k = 0; k < count; ++k) b[k] = file->bass[k] / ref;
        // A hit is a rise steeper than the step before it and not topped by
        // the step after it, so a slow swell gives no hit.
        for (size_t k = 0; k + 3 < count; ++k) {
            const double rise = b[k + 2] - b[k + 1];
            if (rise > onsetRise && b[k + 3] - b[k + 2] <= rise && b[k + 1] - b[k] < rise)
                times.push_back(static_cast<double>(k + 2) / framesPerSecond + file->start);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

}  // namespace qv::DropDetector
