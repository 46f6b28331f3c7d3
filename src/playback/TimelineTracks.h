// The player's readers on the per-source time line: pictures in order,
// scaled down to the preview's size, and sound at the output's rate. With a
// proxy cache, pictures come from a camera file's proxy when one is made;
// sound always comes from the originals, whose timing the sync measured.
#pragma once

#include <cstdint>
#include <vector>

#include "playback/Proxies.h"
#include "playback/TrackReader.h"

namespace qv {

// `proxies` may be null; when given it must outlive the opener.
TrackOpener timelineTracks(const ProxyCache* proxies = nullptr);

// Averages every block of source pixels that lands on one output pixel:
// the cheap and clean way down by the preview's integer divisions.
std::vector<uint8_t> shrinkRgba(const uint8_t* pixels, int width, int height, int outWidth, int outHeight);

}  // namespace qv
