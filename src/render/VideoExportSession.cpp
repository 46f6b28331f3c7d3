#include "render/VideoExportSession.h"

#include <atomic>
#include <optional>
#include <system_error>

#include "base/SystemError.h"
#include "base/Text.h"
#include "diagnostics/Log.h"
#include "platform/MediaWriter.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

constexpr double progressInterval = 0.25;

media::VideoEncoding encodingOf(VideoCodec c) {
    switch (c) {
        case VideoCodec::h264: return media::VideoEncoding::h264;
        case VideoCodec::hevc: return media::VideoEncoding::hevc;
        case VideoCodec::prores: return media::VideoEncoding::prores;
    }
    return media::VideoEncoding::h264;
}

}  // namespace

// One try, seen from both sides: the thread writes `outcome` and then sets
// `finished`; the main thread reads `outcome` only after seeing `finished`.
struct VideoExportSession::Running {
    VideoRender::Job job;
    VideoCodec codec = VideoCodec::h264;
    fs::path to;
    bool retry = false;
    Done done;
    RenderPipeline::Control control;
    std::atomic<bool> finished{false};
    std::optional<Result<fs::path>> outcome;
    std::thread thread;
};

VideoExportSession::VideoExportSession(Scheduler& scheduler) : scheduler_(scheduler) {}

VideoExportSession::~VideoExportSession() {
    if (running_) {
        running_->control.cancel = true;
        if (running_->thread.joinable()) running_->thread.join();
    }
    if (timer_) scheduler_.cancel(timer_);
}

bool VideoExportSession::isCancellation(const Error& e) { return e.message == RenderPipeline::cancelledMessage; }

fs::path VideoExportSession::partialFile(const fs::path& target) {
    return target.parent_path() / ("." + target.filename().string() + ".partiel");
}

void VideoExportSession::start(VideoRender::Job job, VideoCodec codec, fs::path to, bool retry, Done done) {
    if (running_) {
        // One export at a time: the second is told so and the first goes on.
        scheduler_.schedule(0, [done = std::move(done)] { done(Error{"Un export vidéo est déjà en cours."}); });
        return;
    }
    const std::string label = rawValue(codec);
    const media::VideoEncoding encoding = encodingOf(codec);
    if (!media::MediaWriter::available(encoding)) {
        Error missing{"Cet ordinateur ne sait pas exporter en " + label};
        Log::write("ERREUR export vidéo : " + missing.message);
        // Still through the main thread's queue: `done` never runs inside `start`.
        scheduler_.schedule(0, [done = std::move(done), missing] { done(missing); });
        return;
    }

    auto run = std::make_unique<Running>();
    run->job = std::move(job);
    run->codec = codec;
    run->to = std::move(to);
    run->retry = retry;
    run->done = std::move(done);
    progress_ = 0;

    Running* r = run.get();
    r->thread = std::thread([r, label, encoding] {
        auto finish = [r](Result<fs::path> outcome) {
            r->outcome = std::move(outcome);
            r->finished.store(true, std::memory_order_release);
        };
        const VideoRender::Built built = VideoRender::build(r->job);
        Log::write(cformat("Export vidéo : %s, %dx%d, %d plans, vers %s", label.c_str(), built.width, built.height,
                           static_cast<int>(built.plans.size()), r->to.string().c_str()));
        const fs::path partial = partialFile(r->to);
        std::error_code ec;
        fs::remove(partial, ec);
        media::WriterSettings settings;
        settings.encoding = encoding;
        settings.label = label;
        settings.width = built.width;
        settings.height = built.height;
        settings.rateNum = built.rateNum;
        settings.rateDen = built.rateDen;
        settings.sampleRate = RenderPipeline::soundRate;
        settings.channels = RenderPipeline::soundChannels;
        Status status = Ok{};
        {
            auto writer = media::MediaWriter::create(partial, settings);
            if (!writer) status = writer.error();
            else status = RenderPipeline::run(built, *writer, r->control);
        }  // the file is closed here, before it moves or goes
        if (status) {
            fs::rename(partial, r->to, ec);
            if (ec) status = Error{"impossible de remplacer " + r->to.filename().string() + " (" + systemMessage(ec) + ")."};
        }
        if (!status) {
            fs::remove(partial, ec);
            return finish(status.error());
        }
        finish(r->to);
    });
    running_ = std::move(run);
    timer_ = scheduler_.schedule(progressInterval, [this] { poll(); });
}

void VideoExportSession::cancel() {
    if (running_) running_->control.cancel = true;
}

void VideoExportSession::poll() {
    timer_ = 0;
    if (!running_) return;
    progress_ = running_->control.progress;
    if (!running_->finished.load(std::memory_order_acquire)) {
        timer_ = scheduler_.schedule(progressInterval, [this] { poll(); });
        return;
    }
    running_->thread.join();
    std::unique_ptr<Running> run = std::move(running_);
    Result<fs::path> outcome = std::move(*run->outcome);
    if (outcome) {
        progress_ = 1;
        return run->done(std::move(outcome));
    }
    const Error& error = outcome.error();
    if (isCancellation(error)) return run->done(error);
    Log::write("ERREUR export vidéo : " + (error.message.empty() ? std::string("inconnue") : error.message) +
               (run->retry ? " — nouvel essai" : ""));
    if (run->retry) return start(std::move(run->job), run->codec, std::move(run->to), false, std::move(run->done));
    run->done(error.message.empty() ? Error{"Export interrompu."} : error);
}

}  // namespace qv
