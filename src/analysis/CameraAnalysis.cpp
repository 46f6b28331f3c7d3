#include "analysis/CameraAnalysis.h"

#include <algorithm>

namespace qv::analysis {

MeasuresByPath measureCameras(const SyncResult& result, const std::vector<int>& cameraSources,
                              const MeasuresByPath& known, const MeasureOptions& options) {
    std::vector<const MediaItem*> todo;
    double total = 0;
    for (const PlacedItem& p : result.placed) {
        if (!p.item.hasVideo || known.count(p.item.url.string())) continue;
        if (std::find(cameraSources.begin(), cameraSources.end(), p.sourceIndex) == cameraSources.end()) continue;
        if (std::any_of(todo.begin(), todo.end(), [&](const MediaItem* m) { return m->url == p.item.url; })) continue;
        todo.push_back(&p.item);
        total += std::max(p.item.duration, 0.1);
    }
    MeasuresByPath out;
    double done = 0;
    bool stopped = false;
    auto report = [&](double share, bool waiting) {
        if (options.progress && !options.progress(std::clamp(share, 0.0, 1.0), waiting)) stopped = true;
        return !stopped;
    };
    while (!todo.empty() && !stopped) {
        // One round over the files left: each one whose road is open is measured.
        bool measuredAny = false;
        for (auto it = todo.begin(); it != todo.end() && !stopped;) {
            const MediaItem& item = **it;
            const PictureRoad road = options.roadOf ? options.roadOf(item) : PictureRoad{};
            // Without anyone to wait with, copies on their way count for nothing.
            if (road.kind == PictureRoad::Kind::later && options.pause) {
                ++it;
                continue;
            }
            const double length = std::max(item.duration, 0.1);
            auto onTime = [&](double t) { return report((done + std::min(t, length)) / total, false); };
            Result<FileMeasures> measured = road.kind == PictureRoad::Kind::copies && !road.pieces.empty()
                                                ? measureFile(road.pieces, onTime)
                                                : measureFile(item.url, onTime);
            if (!measured && !stopped && road.kind == PictureRoad::Kind::copies) measured = measureFile(item.url, onTime);
            if (stopped) break;
            if (measured) out[item.url.string()] = std::move(measured).value();
            done += length;
            measuredAny = true;
            it = todo.erase(it);
        }
        if (!measuredAny && !todo.empty() && report(done / total, true)) options.pause();
    }
    return out;
}

CameraPictures picturesOf(const SyncResult& result, const std::vector<int>& cameraSources,
                          const MeasuresByPath& measures) {
    return cameraPictures(result, cameraSources, [&](const MediaItem& item) -> const FileMeasures* {
        auto it = measures.find(item.url.string());
        return it == measures.end() ? nullptr : &it->second;
    });
}

}  // namespace qv::analysis
