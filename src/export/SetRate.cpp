#include "export/SetRate.h"

#include <algorithm>
#include <cmath>

#include "base/Text.h"

namespace qv::PremiereExport {

std::vector<RateShare> rateShares(const std::vector<MediaSource>& sources, const SyncResult& result) {
    std::vector<RateShare> shares;
    for (const SequenceRate& r : rateTable) shares.push_back({r, 0});
    for (const PlacedItem& p : result.placed) {
        const bool camera = p.sourceIndex >= 0 && static_cast<size_t>(p.sourceIndex) < sources.size() &&
                            sources[static_cast<size_t>(p.sourceIndex)].kind == SourceKind::camera;
        if (!camera || !p.item.hasVideo || !(p.item.duration > 0)) continue;
        const SequenceRate nearest = SequenceRate::closest(p.item.frameRate);
        for (RateShare& share : shares)
            if (share.rate == nearest) share.seconds += p.item.duration;
    }
    std::erase_if(shares, [](const RateShare& s) { return !(s.seconds > 0); });
    std::stable_sort(shares.begin(), shares.end(),
                     [](const RateShare& a, const RateShare& b) { return a.seconds > b.seconds; });
    return shares;
}

SequenceRate setRate(const std::vector<MediaSource>& sources, const SyncResult& result) {
    const auto shares = rateShares(sources, result);
    return shares.empty() ? SequenceRate{} : shares.front().rate;
}

SequenceRate chosenRate(const std::vector<MediaSource>& sources, const SyncResult& result,
                        std::optional<SequenceRate> choice) {
    if (!choice) return setRate(sources, result);
    return SequenceRate{choice->timebase, choice->ntsc}.counted(choice->dropFrame);
}

std::string rateText(SequenceRate rate) {
    if (!rate.ntsc) return std::to_string(rate.timebase);
    // 23.976, 29.97, 59.94: the names the trade gives these rates.
    const double fps = rate.fps();
    return rate.timebase == 24 ? cformat("%.3f", fps) : cformat("%.2f", fps);
}

std::string rateLabel(SequenceRate rate) {
    std::string text = rateText(rate);
    std::replace(text.begin(), text.end(), '.', ',');
    return text + " i/s";
}

std::optional<SequenceRate> rateFromText(const std::string& given) {
    const size_t first = given.find_first_not_of(" \t"), last = given.find_last_not_of(" \t");
    if (first == std::string::npos) return std::nullopt;
    std::string text = given.substr(first, last - first + 1);
    std::replace(text.begin(), text.end(), ',', '.');
    std::optional<double> value;
    if (auto slash = text.find('/'); slash != std::string::npos) {
        auto num = parseDouble(text.substr(0, slash)), den = parseDouble(text.substr(slash + 1));
        if (num && den && *den > 0) value = *num / *den;
    } else {
        value = parseDouble(text);
    }
    if (!value || !(*value > 0)) return std::nullopt;
    const SequenceRate nearest = SequenceRate::closest(*value);
    if (std::abs(nearest.fps() - *value) > 0.01) return std::nullopt;
    return nearest;
}

}  // namespace qv::PremiereExport
