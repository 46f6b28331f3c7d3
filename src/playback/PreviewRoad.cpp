#include "playback/PreviewRoad.h"

namespace qv {

analysis::PictureRoad previewRoad(const ProxyCache& cache, const MediaItem& item, const ProxyOutlook* outlook) {
    analysis::PictureRoad road;
    // The original is looked at once: its chunks are named after its state now.
    const auto stem = item.duration > 0 ? cache.stem(item.url) : std::nullopt;
    const int count = cache.chunkCount(item.duration);
    for (int k = 0; stem && k < count && cache.hasChunk(*stem, k); ++k)
        road.pieces.push_back({cache.chunkPath(*stem, k), cache.chunkStart(k)});
    if (stem && static_cast<int>(road.pieces.size()) == count) {
        road.kind = analysis::PictureRoad::Kind::copies;
        return road;
    }
    road.pieces.clear();
    if (outlook && outlook->coming(item.url)) road.kind = analysis::PictureRoad::Kind::later;
    return road;
}

}  // namespace qv
