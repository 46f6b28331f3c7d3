#include "entry/CliVideo.h"

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <thread>

#include "base/Format.h"
#include "render/VideoExportSession.h"

namespace qv::CLI {

namespace {

using Clock = std::chrono::steady_clock;

// The main thread's timers for a run without interface: `runUntil` sleeps
// to the next due action and runs it, until the condition holds.
class WaitingScheduler : public Scheduler {
public:
    TimerId schedule(double seconds, std::function<void()> action) override {
        auto due = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        pending_[++lastId_] = {due, std::move(action)};
        return lastId_;
    }
    void cancel(TimerId id) override { pending_.erase(id); }

    void runUntil(const std::function<bool()>& done) {
        while (!done() && !pending_.empty()) {
            auto next = pending_.begin();
            for (auto it = pending_.begin(); it != pending_.end(); ++it)
                if (it->second.first < next->second.first) next = it;
            std::this_thread::sleep_until(next->second.first);
            auto action = std::move(next->second.second);
            pending_.erase(next);
            action();
        }
    }

private:
    TimerId lastId_ = 0;
    std::map<TimerId, std::pair<Clock::time_point, std::function<void()>>> pending_;
};

std::optional<VideoCodec> codecOf(const std::string& name, const std::filesystem::path& file) {
    if (name.empty()) return file.extension() == ".mov" ? VideoCodec::prores : VideoCodec::h264;
    if (name == "h264") return VideoCodec::h264;
    if (name == "hevc") return VideoCodec::hevc;
    if (name == "prores") return VideoCodec::prores;
    return std::nullopt;
}

}  // namespace

int exportVideo(VideoRequest request, std::ostream& out,
                const std::function<void(double, const std::string&)>& progress) {
    auto fail = [&](const std::string& message) {
        out << "L'export vidéo a échoué : " << message << "\n";
        return 1;
    };
    const auto codec = codecOf(request.codec, request.file);
    if (!codec) return fail("codec inconnu « " + request.codec + " » (h264, hevc ou prores).");

    VideoRender::Job job;
    job.sources = std::move(request.sources);
    job.result = std::move(request.result);
    for (size_t s = 0; s < job.sources.size(); ++s)
        if (job.sources[s].kind == SourceKind::camera) {
            job.cameraSources.push_back(static_cast<int>(s));
            // With the table's sound, the cameras are silent.
            if (request.audio.mode == AudioSettings::Mode::table) job.muted.insert(job.sources[s].id);
        }
    job.segments = Segment::build(request.cuts, job.result.duration());
    for (const Segment& s : job.segments) job.planEffects.push_back(request.effectFor ? request.effectFor(s) : ResolvedEffect{});
    job.range = request.range;
    job.audio = request.audio;
    job.effects = request.effects;
    job.format = request.format;
    job.framing = request.framing;

    // A file-size limit (ulimit -f) must end in a message, not a signal.
    std::signal(SIGXFSZ, SIG_IGN);

    WaitingScheduler scheduler;
    VideoExportSession exporter(scheduler);
    std::optional<Result<std::filesystem::path>> outcome;
    const auto started = Clock::now();
    exporter.start(std::move(job), *codec, std::filesystem::absolute(request.file), true,
                   [&](Result<std::filesystem::path> r) { outcome = std::move(r); });
    // The progress shown with the exporter's own 0.25 s rhythm.
    std::function<void()> tick = [&] {
        if (outcome) return;
        const double f = exporter.progress();
        const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
        if (progress && f > 0) progress(f, "Vidéo : reste " + Format::countdown(elapsed * (1 - f) / f));
        scheduler.schedule(0.25, tick);
    };
    scheduler.schedule(0.25, tick);
    scheduler.runUntil([&] { return outcome.has_value(); });
    if (!*outcome) return fail(outcome->error().message);
    out << "Vidéo : " << outcome->value().string() << "\n";
    return 0;
}

}  // namespace qv::CLI
