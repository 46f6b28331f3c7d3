// VideoExportSession: one export of a finished video at a time. `start` builds
// the render, writes it on a thread of its own (the pipeline spreads over
// the cores), publishes progress every 0.25 s and tells the caller the
// outcome once.
//
// Main thread only: `start`, `cancel`, `progress`, `isRunning`. `done` runs
// exactly once per `start`, on the main thread, through the scheduler's
// timers. The file is written beside its target under a hidden name and
// takes the target's place only when complete: an existing file is replaced
// by a finished export and never left half-written, and a cancelled or
// failed export leaves no file behind.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "base/Result.h"
#include "edit/Scheduler.h"
#include "persistence/AppSettings.h"
#include "render/RenderPipeline.h"
#include "render/VideoRender.h"

namespace qv {

class VideoExportSession {
public:
    using Done = std::function<void(Result<std::filesystem::path>)>;

    // `scheduler` must outlive the exporter.
    explicit VideoExportSession(Scheduler& scheduler);
    // Cancels a running export and waits for its thread; `done` is not called.
    ~VideoExportSession();
    VideoExportSession(const VideoExportSession&) = delete;
    VideoExportSession& operator=(const VideoExportSession&) = delete;

    // A failure other than a cancellation retries once when `retry` is true.
    // A start while another export runs fails at once and leaves it running.
    // A missing encoder fails at once with "Cet ordinateur ne sait pas
    // exporter en {codec label}" and writes nothing. A cancellation ends with
    // the error RenderPipeline::cancelledMessage.
    void start(VideoRender::Job job, VideoCodec codec, std::filesystem::path to, bool retry, Done done);
    void cancel();

    double progress() const { return progress_; }
    bool isRunning() const { return running_ != nullptr; }

    static bool isCancellation(const Error& e);

    // The hidden file an export of `target` is written to until complete.
    static std::filesystem::path partialFile(const std::filesystem::path& target);

private:
    struct Running;
    void poll();
    void finish(Result<std::filesystem::path> outcome);

    Scheduler& scheduler_;
    double progress_ = 0;
    std::unique_ptr<Running> running_;
    Scheduler::TimerId timer_ = 0;
};

}  // namespace qv
