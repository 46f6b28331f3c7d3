#include "playback/ProxyEncoder.h"

#include "platform/ProxyWriter.h"

namespace qv {

ProxyMaker::Encode proxyEncoder() {
    return [](const std::filesystem::path& in, const std::filesystem::path& out, const std::atomic<bool>& cancel) {
        return media::writeProxy(in, out, media::ProxyOptions{}, cancel);
    };
}

}  // namespace qv
