// RenderVideoExporter: the finished-video render behind the model's
// VideoExporter port. The session does the work and calls back on the main
// thread through its timers; this only turns its answer into an outcome.
#pragma once

#include "app/Ports.h"
#include "render/VideoExportSession.h"

namespace qv {

class RenderVideoExporter : public VideoExporter {
public:
    // `main` must outlive the exporter.
    explicit RenderVideoExporter(MainThread& main) : session_(main) {}

    void start(VideoJob job, VideoCodec codec, const std::filesystem::path& to, bool retry,
               std::function<void(VideoOutcome)> done) override;
    void cancel() override { session_.cancel(); }
    bool isRunning() const override { return session_.isRunning(); }
    double progress() const override { return session_.progress(); }

private:
    VideoExportSession session_;
};

}  // namespace qv
