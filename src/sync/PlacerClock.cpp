// What clocks say of a file's start: the dates a source's files carry, the
// sample clock or timecode its device wrote, and the pieces of its
// recording placed before and after it. Each clock is learnt from files of
// the same source that the sound placed, so a clock that is hours off still
// says where, and none of them ever outweighs a strong sound match.
#include <chrono>
#include <cmath>
#include <cstdio>

#include "base/Text.h"
#include "sync/Placer.h"

namespace qv::FolderSync {

using namespace placing;

namespace {

// Seconds since 1970 of a file's date.
double seconds(const Date& d) { return std::chrono::duration<double>(d.time_since_epoch()).count(); }

}  // namespace

std::vector<Placer::Prediction> Placer::clockPredictions(int u) const {
    std::vector<Prediction> out = devicePredictions(u);
    // A device clock, precise to a sample or a frame, says more than a date
    // written to the second: dates are heard only without one.
    if (out.empty()) out = datePredictions(u);
    for (const Prediction& p : piecePredictions(u)) out.push_back(p);
    return out;
}

// Where u should start by its source's dates, learnt from the siblings
// placed by clear sound: each date is their start or their end, whichever
// keeps the clock steadier; with one sibling either may be true.
std::vector<Placer::Prediction> Placer::datePredictions(int u) const {
    const auto& date = e_[u].item.recordedAt;
    if (!date) return {};
    std::vector<double> byStart, byEnd;
    int from = -1;
    for (int q = 0; q < count_; ++q) {
        if (q == u || !start_[q] || !clear_.count(q) || source(q) != source(u)) continue;
        const auto& sibling = e_[q].item.recordedAt;
        if (!sibling) continue;
        byStart.push_back(seconds(*sibling) - *start_[q]);
        byEnd.push_back(seconds(*sibling) - *start_[q] - duration(q));
        if (from < 0) from = q;
    }
    if (byStart.empty()) return {};
    auto spread = [](const std::vector<double>& v) {
        return *std::max_element(v.begin(), v.end()) - *std::min_element(v.begin(), v.end());
    };
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    const double d = seconds(*date);
    bool starts = true, ends = true;
    if (byStart.size() >= 2) {
        double a = spread(byStart), b = spread(byEnd);
        if (a + 1.0 < b) ends = false;
        else if (b + 1.0 < a) starts = false;
    }
    std::vector<Prediction> out;
    if (starts) out.push_back({d - median(byStart), "dates de début", clockTolerance, false, from, PlacedBy::sound});
    if (ends) out.push_back({d - median(byEnd) - duration(u), "dates de fin", clockTolerance, false, from, PlacedBy::sound});
    return out;
}

// What the drift of a placed file leaves unknown over `span` seconds: its
// own drift when measured, or the worst any clock runs.
double Placer::clockSlack(int q, double span) const {
    const double rate = measured_[static_cast<size_t>(q)] ? 2e-5 : worstClock;
    return std::fabs(span) * rate;
}

// Where the device that wrote u puts it: its sample clock or timecode
// against a sibling placed by sound (or by such a clock).
std::vector<Placer::Prediction> Placer::devicePredictions(int u) const {
    std::vector<Prediction> out;
    auto slack = [&](int q, double span) { return clockSlack(q, span); };
    const auto& clock = e_[u].item.clock;
    if (clock) {
        // The nearest trusted sibling with the same kind of clock.
        int best = -1;
        double bestSpan = 0;
        for (int q = 0; q < count_; ++q) {
            if (q == u || !start_[q] || !trusted_.count(q) || source(q) != source(u)) continue;
            if (take_[static_cast<size_t>(q)] && take_[static_cast<size_t>(q)] == take_[static_cast<size_t>(u)]) continue;
            const auto& other = e_[q].item.clock;
            if (!other || !other->comparable(*clock)) continue;
            const double span = other->until(*clock);
            if (best < 0 || std::fabs(span) < std::fabs(bestSpan)) {
                best = q;
                bestSpan = span;
            }
        }
        if (best >= 0) {
            const bool samples = clock->kind == DeviceClock::Kind::samples;
            const double tolerance = 2 * std::max(clock->resolution, 0.0005) + slack(best, bestSpan);
            out.push_back({lineTime(best, bestSpan), samples ? "horloge de l'enregistreur" : "timecode",
                           std::min(tolerance, clockTolerance), samples, best, PlacedBy::clock});
        }
    }
    return out;
}

// The pieces of u's recording around it: the earlier one ends where u
// starts, the later one starts where u ends. Names in sequence alone are a
// hint that chooses among the sound's starts, never one that rules a start
// out, unless both neighbours agree on where u lies.
std::vector<Placer::Prediction> Placer::piecePredictions(int u) const {
    std::vector<Prediction> out;
    auto slack = [&](int q, double span) { return clockSlack(q, span); };
    const int before = prev_[static_cast<size_t>(u)], after = next_[static_cast<size_t>(u)];
    std::optional<Prediction> fromBefore, fromAfter;
    if (before >= 0 && start_[before]) {
        const bool byClock = prevLink_[static_cast<size_t>(u)] == FileGroups::Link::clock;
        const double step = FileGroups::clockStep(e_[before].item, e_[u].item).value_or(duration(before));
        fromBefore = Prediction{lineTime(before, step), "morceau précédent",
                                (byClock ? 0.002 : pieceSlack) + slack(before, step), byClock, before,
                                byClock ? PlacedBy::clock : PlacedBy::neighbours};
    }
    if (after >= 0 && start_[after]) {
        const bool byClock = prevLink_[static_cast<size_t>(after)] == FileGroups::Link::clock;
        const double rate = 1.0 + drift_[static_cast<size_t>(after)] * 1e-6;
        const double step = FileGroups::clockStep(e_[u].item, e_[after].item).value_or(duration(u));
        fromAfter = Prediction{*start_[after] - step / rate, "morceau suivant",
                               (byClock ? 0.002 : pieceSlack) + slack(after, step), byClock, after,
                               byClock ? PlacedBy::clock : PlacedBy::neighbours};
    }
    for (auto* p : {&fromBefore, &fromAfter})
        if (*p && !(*p)->exact) (*p)->rulesOut = false;
    if (fromBefore && fromAfter && !fromBefore->exact && !fromAfter->exact &&
        std::fabs(fromBefore->start - fromAfter->start) <= pieceSlack) {
        fromBefore->exact = true;
        fromBefore->rulesOut = true;
    }
    for (const auto& p : {fromBefore, fromAfter})
        if (p) out.push_back(*p);
    return out;
}

// The cluster nearest one of the predictions, within its tolerance, among
// those with evidence enough and a value of at least `floor`; its
// hypothesis is left in `hypothesis_`.
const Placer::Cluster* Placer::nearPrediction(const std::vector<Prediction>& predictions,
                                              const std::vector<const Cluster*>& ranked, double floor) {
    const Cluster* found = nullptr;
    double nearest = INFINITY;
    for (const Prediction& prediction : predictions) {
        for (const Cluster* k : ranked) {
            if (k->support < minEvidence || k->value < floor) continue;
            const double d = std::fabs(k->start - prediction.start);
            if (d < prediction.tolerance && d < nearest) {
                nearest = d;
                found = k;
                hypothesis_ = prediction.why;
            }
        }
    }
    return found;
}

// Whether every prediction puts u where no placed file of another source
// runs for as long as a match needs.
bool Placer::outsideEveryRecording(int u, const std::vector<Prediction>& predictions) const {
    const double need = std::min(duration(u) / 2, 10.0);
    for (const Prediction& prediction : predictions)
        for (int p : prediction.rulesOut ? anchorsOf(u) : std::vector<int>{})
            if (overlap(*start_[p], *start_[p] + duration(p), prediction.start, prediction.start + duration(u)) >= need)
                return false;
    return true;
}

bool Placer::datedSiblingWaits(int u) const {
    if (!e_[u].item.recordedAt) return false;
    for (int q = 0; q < count_; ++q)
        if (q != u && !start_[q] && source(q) == source(u) && e_[q].item.recordedAt) return true;
    return false;
}

bool Placer::placeByDevice(int u, const std::vector<Prediction>& predictions) {
    const Prediction* exact = nullptr;
    for (const Prediction& p : predictions)
        if (p.exact && (!exact || p.tolerance < exact->tolerance)) exact = &p;
    if (!exact || againstSiblings(u, exact->start, nullptr) == Sibling::collides) return false;
    if (dryRun_) {
        proposal_ = Proposal{exact->start, 0, 0, 0};
        return true;
    }
    if (options_.trace)
        std::fprintf(stderr, "  %s -> placé par %s de %s à %.4f s, sans son qui le confirme\n",
                     e_[u].item.fileName().c_str(), exact->why, e_[exact->from].item.fileName().c_str(), exact->start);
    placeAt(u, exact->start, std::nullopt, exact->from, Rule::device);
    // The device's clock is the sibling's: it runs at the same rate.
    const std::vector<int> alone{u};
    for (int m : take_[static_cast<size_t>(u)] ? members(u) : alone) {
        drift_[m] = drift_[exact->from];
        measured_[m] = measured_[exact->from];
        placedBy_[static_cast<size_t>(m)] = exact->rule;
    }
    return true;
}

}  // namespace qv::FolderSync
