// PreviewRoad: where the picture analysis reads a camera file when preview
// chunks are made of it. The chunks show the same pictures at 640 pixels in
// a stream made to be cheap to decode, so once they are all there reading
// them costs a small part of decoding the original, which the maker has
// done already; while the maker still works on them, waiting is cheaper
// than decoding the original a second time beside it.
#pragma once

#include "analysis/CameraAnalysis.h"
#include "playback/Proxies.h"

namespace qv {

// The chunks of `item` when every one is in `cache`; later while `outlook`
// says they are coming; else the original. Any thread.
analysis::PictureRoad previewRoad(const ProxyCache& cache, const MediaItem& item, const ProxyOutlook* outlook);

}  // namespace qv
