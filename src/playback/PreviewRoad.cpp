#include "playback/PreviewRoad.h"

namespace qv {

analysis::PictureRoad previewRoad(const ProxyCache& cache, const MediaItem& item, const ProxyOutlook* outlook) {
    using Kind = analysis::PictureRoad::Kind;
    analysis::PictureRoad road;
    if (item.duration > 0) {
        std::vector<analysis::PicturePiece> pieces;
        for (int k = 0, n = cache.chunkCount(item.duration); k < n; ++k) {
            auto chunk = cache.findChunk(item.url, k);
            if (!chunk) break;
            pieces.push_back({*chunk, cache.chunkStart(k)});
        }
        if (!pieces.empty() && static_cast<int>(pieces.size()) == cache.chunkCount(item.duration)) {
            road.kind = Kind::copies;
            road.pieces = std::move(pieces);
            return road;
        }
    }
    if (outlook && outlook->coming(item.url)) road.kind = Kind::later;
    return road;
}

}  // namespace qv
