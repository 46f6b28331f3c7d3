#include "playback/ProxyEncoder.h"

#include <memory>

namespace qv {

ProxyMaker::OpenWriter proxyEncoder(media::ProxyOptions options) {
    return [options](const std::filesystem::path& original) -> Result<ProxyMaker::ChunkWriter> {
        auto opened = media::ProxyWriter::open(original, options);
        if (!opened) return opened.error();
        // Shared so that the function stays copyable; one worker uses it.
        auto writer = std::make_shared<media::ProxyWriter>(std::move(opened).value());
        return ProxyMaker::ChunkWriter([writer](const std::filesystem::path& out, double from, double to,
                                                const std::atomic<bool>& cancel) {
            return writer->write(out, from, to, cancel);
        });
    };
}

}  // namespace qv
