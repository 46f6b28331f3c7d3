#include "app/RenderVideoExporter.h"

namespace qv {

void RenderVideoExporter::start(VideoJob job, VideoCodec codec, const std::filesystem::path& to, bool retry,
                                std::function<void(VideoOutcome)> done) {
    session_.start(std::move(job), codec, to, retry,
                   [done = std::move(done)](Result<std::filesystem::path> written) {
                       if (written) return done({VideoOutcome::Kind::success, {}});
                       if (VideoExportSession::isCancellation(written.error()))
                           return done({VideoOutcome::Kind::cancelled, {}});
                       done({VideoOutcome::Kind::failure, written.error().message});
                   });
}

}  // namespace qv
