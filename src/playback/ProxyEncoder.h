// The proxy maker's chunk writer: light H.264 chunks of the original,
// 640 pixels wide, one encoder and decoder thread per worker.
#pragma once

#include "playback/Proxies.h"

namespace qv {

ProxyMaker::OpenWriter proxyEncoder(media::ProxyOptions options = {});

}  // namespace qv
