// The proxy maker's encoder: 640 pixels wide H.264 with a 12-frame GOP.
#pragma once

#include "playback/Proxies.h"

namespace qv {

ProxyMaker::Encode proxyEncoder();

}  // namespace qv
