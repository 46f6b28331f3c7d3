#include "edit/AutoEditor.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "base/SplitMix64.h"

namespace qv {

namespace {

using Json = json::Json;

constexpr double mergeGap = 0.5;      // clips closer than this count as one take
constexpr double lastFrames = 0.05;   // a plan never starts on a clip's last frames
constexpr double endMargin = 0.04;    // closer to the end than this, no new plan
constexpr double dropWindow = 16.0;   // seconds of shorter plans after a drop
constexpr double snapReach = 0.4;     // how far a plan end moves to an onset
constexpr double defaultWeight = 100;

// Where `camera` films at t, leaving out the last frames of each range.
const TimeRange* filmingRange(const std::vector<std::vector<TimeRange>>& ranges, int camera, double t) {
    if (camera < 0 || static_cast<size_t>(camera) >= ranges.size()) return nullptr;
    for (const TimeRange& r : ranges[camera])
        if (r.start <= t && t < r.end - lastFrames) return &r;
    return nullptr;
}

}  // namespace

void to_json(Json& j, const AutoSettings& s) {
    j = Json::object();
    Json weights = Json::object();
    for (const auto& [id, w] : s.weights) weights[id.text()] = w;
    j["cameras"] = json::uuidArray(s.cameras);
    j["minPlan"] = s.minPlan;
    j["maxPlan"] = s.maxPlan;
    j["snapToBeat"] = s.snapToBeat;
    j["fasterOnDrops"] = s.fasterOnDrops;
    j["weights"] = std::move(weights);
    j["seed"] = s.seed;
    j["avoidUnusable"] = s.avoidUnusable;
}

void from_json(const Json& j, AutoSettings& s) {
    const AutoSettings d;
    s = d;
    s.minPlan = json::number(j, "minPlan", d.minPlan, AutoSettings::minPlanRange);
    s.maxPlan = json::number(j, "maxPlan", d.maxPlan, AutoSettings::maxPlanRange);
    s.snapToBeat = json::boolean(j, "snapToBeat", d.snapToBeat);
    s.fasterOnDrops = json::boolean(j, "fasterOnDrops", d.fasterOnDrops);
    s.seed = json::unsignedInteger(j, "seed", d.seed);
    s.avoidUnusable = json::boolean(j, "avoidUnusable", d.avoidUnusable);
    // One bad entry spoils the whole collection, as a typed decode would.
    s.cameras = json::uuidSet(j, "cameras");
    if (const Json* v = json::field(j, "weights"); v && v->is_object()) {
        for (const auto& [key, value] : v->items()) {
            auto id = Uuid::parse(key);
            if (!id || !value.is_number()) {
                s.weights.clear();
                break;
            }
            s.weights[*id] = AutoSettings::weightRange.hold(value.get<double>(), 100);
        }
    }
}

namespace AutoEditor {

std::vector<TimeRange> takeRanges(std::vector<PlacedItem> files) {
    std::stable_sort(files.begin(), files.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    std::vector<TimeRange> ranges;
    for (const PlacedItem& p : files) {
        if (!ranges.empty() && p.start < ranges.back().end + mergeGap)
            ranges.back().end = std::max(ranges.back().end, p.end());
        else
            ranges.push_back({p.start, p.end()});
    }
    return ranges;
}

std::vector<std::vector<TimeRange>> cameraRanges(const SyncResult& result, const std::vector<int>& cameraSources) {
    std::vector<std::vector<TimeRange>> out;
    out.reserve(cameraSources.size());
    for (int source : cameraSources) {
        std::vector<PlacedItem> files;
        for (const PlacedItem& p : result.placed)
            if (p.sourceIndex == source && p.item.hasVideo) files.push_back(p);
        out.push_back(takeRanges(std::move(files)));
    }
    return out;
}

std::vector<TimeRange> without(const std::vector<TimeRange>& ranges, const std::vector<analysis::PictureStretch>& holes) {
    std::vector<TimeRange> out;
    for (const TimeRange& r : ranges) {
        double from = r.start;
        for (const analysis::PictureStretch& h : holes) {
            if (h.end <= from || h.start >= r.end) continue;
            if (h.start > from) out.push_back({from, h.start});
            from = std::max(from, h.end);
        }
        if (from < r.end) out.push_back({from, r.end});
    }
    return out;
}

std::vector<Cut> generate(TimeRange range, const std::vector<std::vector<TimeRange>>& allRanges,
                          const std::set<int>& allowed, const std::vector<Drop>& drops,
                          const std::vector<double>& onsets, const AutoSettings& settings,
                          const std::map<int, double>& weights, const analysis::CameraPictures& pictures) {
    const double lo = range.start, hi = range.end;
    const double minP = std::max(settings.minPlan, 0.5);
    const double maxP = std::max(settings.maxPlan, minP);
    const double shortP = std::max(minP * 0.5, 0.5);
    const double endLimit = hi - endMargin;
    if (!(endLimit > lo)) return {};

    // Seeded by the range start too: an edit of a part of the set does not
    // repeat the edit of the whole, and the same start repeats itself.
    const auto startMs = static_cast<uint64_t>(static_cast<int64_t>(std::trunc(lo * 1000)));
    SplitMix64 rng(settings.seed * 0x9E3779B97F4A7C15ull ^ startMs);

    auto weightOf = [&](int c) {
        auto it = weights.find(c);
        return it == weights.end() ? defaultWeight : std::max(it->second, 0.0);
    };
    double total = 0;
    for (int c : allowed) total += weightOf(c);
    auto share = [&](int c) {
        return total > 0 ? weightOf(c) / total : 1.0 / static_cast<double>(std::max<size_t>(allowed.size(), 1));
    };
    // Unusable pictures are not filming; weak ones are looked up as drawn.
    std::vector<std::vector<TimeRange>> cameraRanges = allRanges;
    std::vector<std::vector<analysis::PictureStretch>> weak(allRanges.size());
    for (size_t c = 0; c < std::min(allRanges.size(), pictures.size()); ++c) {
        auto holes = analysis::ofGrade(pictures[c], analysis::PictureGrade::unusable);
        for (analysis::PictureStretch& h : holes) {
            h.start -= unusableMargin;
            h.end += unusableMargin;
        }
        cameraRanges[c] = without(allRanges[c], holes);
        weak[c] = analysis::ofGrade(pictures[c], analysis::PictureGrade::weak);
    }
    auto filming = [&](int c, double at) { return filmingRange(cameraRanges, c, at); };
    auto lostAt = [&](int c, double at) { return !filming(c, at) && filmingRange(allRanges, c, at); };
    auto weakAt = [&](int c, double at) {
        if (c < 0 || static_cast<size_t>(c) >= weak.size()) return false;
        return std::any_of(weak[c].begin(), weak[c].end(),
                           [at](const analysis::PictureStretch& s) { return s.start <= at && at < s.end; });
    };

    std::vector<Cut> cuts;
    std::map<int, double> shown;  // seconds on screen per camera
    std::map<int, double> lost;   // seconds a camera is not owed: its picture unusable or weak
    std::map<int, double> cover;  // seconds a camera is owed for standing in meanwhile
    std::optional<int> current;
    double t = lo;
    while (t < endLimit) {
        if (current && hi - t < 0.5) {
            const TimeRange* r = filming(*current, t);
            if (r && r->end >= endLimit) break;  // the last plan runs to the end
        }

        double length = minP + rng.unit() * (maxP - minP);
        double snapFloor = minP;
        if (settings.fasterOnDrops && std::any_of(drops.begin(), drops.end(), [t](const Drop& d) {
                return d.time - 0.1 <= t && t < d.time + dropWindow;
            })) {
            length = std::max(length * 0.5, 0.5);
            snapFloor = shortP;
        }

        // The current camera stays only when nobody else can take over.
        std::vector<int> filmingNow, pool;
        for (int c : allowed)
            if (filming(c, t)) filmingNow.push_back(c);
        for (int c : filmingNow)
            if (c != current) pool.push_back(c);
        if (pool.empty()) pool = filmingNow;

        if (pool.empty()) {
            // Nobody films: go on at the next start, keeping the camera in use.
            std::optional<double> next;
            for (int c : allowed) {
                if (c < 0 || static_cast<size_t>(c) >= cameraRanges.size()) continue;
                for (const TimeRange& r : cameraRanges[c])
                    if (r.start > t && (!next || r.start < *next)) next = r.start;
            }
            if (!next || *next >= hi) break;
            t = *next;
            continue;
        }

        std::vector<int> base;
        for (int c : pool)
            if (filming(c, t)->end >= t + std::min(minP, length)) base.push_back(c);
        if (base.empty()) base = pool;

        // A camera at 0 % is taken only when nothing else films.
        std::vector<int> candidates;
        for (int c : base)
            if (share(c) > 0) candidates.push_back(c);
        if (candidates.empty()) {
            const TimeRange* r = current ? filming(*current, t) : nullptr;
            if (current && share(*current) > 0 && r && r->end > t + 0.5)
                candidates = {*current};
            else
                candidates = base;
        }

        // A camera behind its share weighs more, one ahead of it less.
        const double elapsed = std::max(t - lo, 0.001);
        std::vector<double> weightsNow;
        double sum = 0;
        for (int c : candidates) {
            const double s = share(c);
            const double own = std::max(elapsed - (lost.count(c) ? lost[c] : 0.0), 0.001);
            const double achieved = shown.count(c) ? shown[c] / own : 0;
            const double covered = cover.count(c) ? cover[c] / own : 0;
            double w = std::max(s, 0.001) * std::max(1 + 4 * (s + covered - achieved) / std::max(s, 0.05), 0.1);
            if (weakAt(c, t)) w *= weakWeight;
            weightsNow.push_back(w);
            sum += w;
        }
        double r = rng.unit() * sum;
        int chosen = candidates.back();
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (r < weightsNow[i]) {
                chosen = candidates[i];
                break;
            }
            r -= weightsNow[i];
        }

        const TimeRange* take = filming(chosen, t);
        double e = std::min({t + length, take->end, hi});
        if (settings.snapToBeat && e < hi - 0.2 && !onsets.empty()) {
            const double* nearest = &onsets.front();
            for (const double& o : onsets)
                if (std::abs(o - e) < std::abs(*nearest - e)) nearest = &o;
            if (std::abs(*nearest - e) < snapReach && *nearest >= t + snapFloor && *nearest <= take->end) e = *nearest;
        }

        if (chosen != current) {
            Cut cut;
            cut.time = t;
            cut.camera = chosen;
            cuts.push_back(cut);
        }
        shown[chosen] += e - t;
        // A camera is not owed the time its picture is unusable, and only
        // part of the time it is weak; the cameras that stand in for it share
        // that time by their weights, so none is held back afterwards.
        std::map<int, double> gone;
        double lostShare = 0;
        for (int c : allowed) {
            gone[c] = lostAt(c, t) ? 1.0 : (weakAt(c, t) && filming(c, t)) ? 1 - weakWeight : 0.0;
            lost[c] += (e - t) * gone[c];
            lostShare += share(c) * gone[c];
        }
        if (lostShare > 0 && lostShare < 1)
            for (int c : allowed) cover[c] += (e - t) * share(c) * (1 - gone[c]) * lostShare / (1 - lostShare);
        current = chosen;
        t = e;
    }
    return cuts;
}

}  // namespace AutoEditor
}  // namespace qv
