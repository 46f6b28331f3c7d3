// The player's readers on the per-source time line: pictures in order,
// converted at the preview's size, and sound at the output's rate. With a
// proxy cache, pictures come from a camera file's proxy chunk wherever one
// is made, checked at each picture; sound always comes from the originals,
// whose timing the sync measured.
#pragma once

#include "playback/Proxies.h"
#include "playback/TrackReader.h"

namespace qv {

// `proxies` may be null; when given it must outlive the opener.
TrackOpener timelineTracks(const ProxyCache* proxies = nullptr);

}  // namespace qv
