#include "edit/HandPlacement.h"

#include <algorithm>
#include <cmath>

#include "base/Bounds.h"

namespace qv::HandPlacement {

namespace fs = std::filesystem;

std::string keyOf(const fs::path& file, const fs::path& folder) {
    const fs::path relative = file.lexically_relative(folder);
    if (relative.empty() || *relative.begin() == "..") return file.generic_string();
    return relative.generic_string();
}

SyncResult apply(const SyncResult& automatic, const HandPlacements& hand, const fs::path& folder) {
    if (hand.empty()) return automatic;
    SyncResult out;
    auto handStart = [&](const MediaItem& item) -> std::optional<double> {
        auto found = hand.find(keyOf(item.url, folder));
        if (found == hand.end() || std::isnan(found->second)) return std::nullopt;
        // Wherever the value came from, the set's line stays within its bound.
        return limits::setTime.hold(found->second, 0);
    };
    for (PlacedItem p : automatic.placed) {
        if (auto start = handStart(p.item)) {
            p.start = *start;
            p.byHand = true;
            p.ambiguous = false;
        }
        out.placed.push_back(std::move(p));
    }
    for (const UnsyncedItem& u : automatic.unsynced) {
        auto start = handStart(u.item);
        if (!start) {
            out.unsynced.push_back(u);
            continue;
        }
        PlacedItem p;
        p.sourceIndex = u.sourceIndex;
        p.item = u.item;
        p.start = *start;
        p.candidates = u.candidates;
        p.byHand = true;
        out.placed.push_back(std::move(p));
    }
    std::stable_sort(out.placed.begin(), out.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    return out;
}

double snap(double t, const std::vector<SyncCandidate>& candidates, double tolerance) {
    double best = t, distance = tolerance;
    for (const SyncCandidate& c : candidates) {
        const double d = std::fabs(c.start - t);
        if (d <= distance) {
            distance = d;
            best = c.start;
        }
    }
    return best;
}

}  // namespace qv::HandPlacement
