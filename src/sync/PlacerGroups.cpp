// How files of one source belong together: takes found before placing,
// and, once placed, the pieces of one recording chained end to start with
// one drift for all.
#include <cmath>
#include <cstdio>

#include "sync/Placer.h"

namespace qv::FolderSync {

using namespace placing;

void Placer::findGroups() {
    std::map<int, std::vector<int>> bySource;
    for (int i = 0; i < count_; ++i) bySource[source(i)].push_back(i);
    int nextTake = 0;
    for (const auto& [s, entries] : bySource) {
        std::vector<const MediaItem*> items;
        for (int i : entries) items.push_back(&e_[i].item);
        const std::vector<int> local = FileGroups::takes(items);
        int base = nextTake;
        for (size_t k = 0; k < entries.size(); ++k) {
            if (!local[k]) continue;
            take_[static_cast<size_t>(entries[k])] = base + local[k];
            nextTake = std::max(nextTake, base + local[k]);
        }
        // A recording's pieces, by the clock the device wrote or, short of
        // it, by their names. Takes are not cut in pieces here.
        for (int a : entries)
            for (int b : entries) {
                if (a == b || take_[static_cast<size_t>(a)] || take_[static_cast<size_t>(b)]) continue;
                const auto link = FileGroups::link(e_[a].item, e_[b].item);
                if (link == FileGroups::Link::none) continue;
                const size_t ib = static_cast<size_t>(b), ia = static_cast<size_t>(a);
                const bool better = prev_[ib] < 0 || (link == FileGroups::Link::clock && prevLink_[ib] != link);
                if (!better || (next_[ia] >= 0 && next_[ia] != b)) continue;
                if (prev_[ib] >= 0) next_[static_cast<size_t>(prev_[ib])] = -1;
                prev_[ib] = a;
                prevLink_[ib] = link;
                next_[ia] = b;
            }
    }
    for (int i = 0; i < count_; ++i)
        if (take_[static_cast<size_t>(i)]) members_[take_[static_cast<size_t>(i)]].push_back(i);
    for (auto& [take, list] : members_)
        std::stable_sort(list.begin(), list.end(),
                         [&](int a, int b) { return e_[a].signal.size() > e_[b].signal.size(); });
}

std::optional<double> Placer::chainDrift(const std::vector<int>& chain) const {
    int longest = -1;
    for (int m : chain)
        if (measured_[static_cast<size_t>(m)] && (longest < 0 || duration(m) > duration(longest))) longest = m;
    if (longest < 0) return std::nullopt;
    return measured_[static_cast<size_t>(longest)];
}

void Placer::chainPieces() {
    // Files of one source placed at the same moment are a take even when
    // nothing the device wrote says so.
    int nextTake = 0;
    for (int i = 0; i < count_; ++i) nextTake = std::max(nextTake, take_[static_cast<size_t>(i)]);
    for (int a = 0; a < count_; ++a)
        for (int b = a + 1; b < count_; ++b) {
            if (!start_[a] || !start_[b] || source(a) != source(b)) continue;
            if (std::fabs(*start_[a] - *start_[b]) >= simultaneous || std::fabs(duration(a) - duration(b)) >= pieceSlack)
                continue;
            const int ta = take_[static_cast<size_t>(a)], tb = take_[static_cast<size_t>(b)];
            if (ta && tb) continue;
            const int t = ta ? ta : tb ? tb : ++nextTake;
            take_[static_cast<size_t>(a)] = take_[static_cast<size_t>(b)] = t;
        }
    members_.clear();
    for (int i = 0; i < count_; ++i)
        if (take_[static_cast<size_t>(i)]) members_[take_[static_cast<size_t>(i)]].push_back(i);

    // Pieces: each placed file of a source that starts where the one before
    // it ends, give or take what the device wrote allows.
    std::map<int, std::vector<int>> bySource;
    for (int i = 0; i < count_; ++i)
        if (start_[i] && (!take_[static_cast<size_t>(i)] || members(i).front() == i)) bySource[source(i)].push_back(i);
    for (auto& [s, placed] : bySource) {
        std::stable_sort(placed.begin(), placed.end(), [&](int a, int b) { return *start_[a] < *start_[b]; });
        for (size_t k = 1; k < placed.size(); ++k) {
            const int a = placed[k - 1], b = placed[k];
            const double unknownDrift = measured_[static_cast<size_t>(a)] ? 0.0 : worstClock * duration(a);
            const double gap = std::fabs(*start_[b] - lineTime(a, duration(a)));
            const bool told = prev_[static_cast<size_t>(b)] == a;
            if (gap <= (told ? pieceSlack : soundPieceSlack) + unknownDrift) follows_[static_cast<size_t>(b)] = a;
        }
    }

    // One recording, one clock: pieces too short to measure take the drift
    // of those that could be, and then start where the piece before them
    // ends by that clock (or end where the next one starts).
    for (int first = 0; first < count_; ++first) {
        if (!start_[first] || follows_[static_cast<size_t>(first)] >= 0) continue;
        std::vector<int> chain{first};
        for (int at = first;;) {
            auto it = std::find(follows_.begin(), follows_.end(), at);
            if (it == follows_.end()) break;
            at = static_cast<int>(it - follows_.begin());
            chain.push_back(at);
        }
        if (chain.size() < 2) continue;
        const auto drift = chainDrift(chain);
        if (!drift) continue;
        for (size_t k = 0; k < chain.size(); ++k) {
            const int m = chain[k];
            if (measured_[static_cast<size_t>(m)]) continue;
            drift_[m] = *drift;
            measured_[m] = *drift;
            const double rate = 1.0 + *drift * 1e-6;
            std::optional<double> chained;
            if (k > 0 && measured_[static_cast<size_t>(chain[k - 1])])
                chained = lineTime(chain[k - 1], FileGroups::clockStep(e_[chain[k - 1]].item, e_[m].item)
                                                     .value_or(duration(chain[k - 1])));
            else if (k + 1 < chain.size() && measured_[static_cast<size_t>(chain[k + 1])])
                chained = *start_[chain[k + 1]] - duration(m) / rate;
            if (chained && std::fabs(*chained - *start_[m]) <= pieceSlack) {
                if (options_.trace)
                    std::fprintf(stderr, "  %s : morceau d'un enregistrement, dérive %+.1f ppm, début %.4f s -> %.4f s\n",
                                 e_[m].item.fileName().c_str(), *drift, *start_[m], *chained);
                for (int t : take_[static_cast<size_t>(m)] ? members(m) : std::vector<int>{m}) {
                    start_[t] = chained;
                    drift_[t] = *drift;
                    measured_[t] = *drift;
                }
            }
        }
    }
}

}  // namespace qv::FolderSync
