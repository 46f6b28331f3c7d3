#include "analysis/CameraAnalysis.h"

#include <algorithm>

namespace qv::analysis {

MeasuresByPath measureCameras(const SyncResult& result, const std::vector<int>& cameraSources,
                              const MeasuresByPath& known, const std::function<bool(double)>& progress) {
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
    for (const MediaItem* item : todo) {
        const double length = std::max(item->duration, 0.1);
        auto measured = measureFile(item->url, [&](double t) {
            if (progress && !progress(std::clamp((done + std::min(t, length)) / total, 0.0, 1.0))) stopped = true;
            return !stopped;
        });
        if (stopped) break;
        if (measured) out[item->url.string()] = std::move(measured).value();
        done += length;
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
