#include "entry/CliVideo.h"

#include <chrono>
#include <signal.h>

#include <csignal>
#include <map>
#include <optional>
#include <thread>

#include "base/Format.h"
#include "edit/WaitingScheduler.h"
#include "render/DropClips.h"
#include "render/VideoExportSession.h"

namespace qv::CLI {

namespace {

using Clock = std::chrono::steady_clock;

// TERM and INT during a render: the handler only notes the signal; the
// waiting loop sees it within a quarter second and cancels the export,
// which takes its partial file away.
volatile std::sig_atomic_t interruptedBy = 0;

void noteInterrupt(int signal) { interruptedBy = signal; }

// Installs the note for the life of one render, then puts the old handlers back.
class InterruptWatch {
public:
    InterruptWatch() {
        interruptedBy = 0;
        struct sigaction action {};
        action.sa_handler = noteInterrupt;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGTERM, &action, &term_);
        ::sigaction(SIGINT, &action, &interrupt_);
    }
    ~InterruptWatch() {
        ::sigaction(SIGTERM, &term_, nullptr);
        ::sigaction(SIGINT, &interrupt_, nullptr);
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    struct sigaction term_ {}, interrupt_ {};
};

// What an interrupted render tells, and the status the run ends with.
int interrupted(const std::filesystem::path& file, std::ostream& err) {
    const int signal = interruptedBy;
    err << "Export vidéo interrompu (" << (signal == SIGINT ? "Ctrl+C" : "signal TERM")
        << ") : le fichier partiel « " << VideoExportSession::partialFile(file).filename().string()
        << " » est supprimé.\n";
    return 128 + signal;
}

std::optional<VideoCodec> codecOf(const std::string& name, const std::filesystem::path& file) {
    if (name.empty()) return file.extension() == ".mov" ? VideoCodec::prores : VideoCodec::h264;
    if (name == "h264") return VideoCodec::h264;
    if (name == "hevc") return VideoCodec::hevc;
    if (name == "prores") return VideoCodec::prores;
    return std::nullopt;
}

// The render job of the run's edit: table sound mutes the cameras.
VideoRender::Job jobOf(VideoRequest& request) {
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
    job.loudness = request.loudness;
    job.rate = request.rate;
    return job;
}

// One export through the session, waited for on this thread; `progress`
// gets the fraction done about four times a second.
Result<std::filesystem::path> render(VideoRender::Job job, VideoCodec codec, const std::filesystem::path& to,
                                     const std::function<void(double)>& progress) {
    // A file-size limit (ulimit -f) must end in a message, not a signal.
    std::signal(SIGXFSZ, SIG_IGN);
    WaitingScheduler scheduler;
    VideoExportSession exporter(scheduler);
    InterruptWatch watch;
    std::optional<Result<std::filesystem::path>> outcome;
    exporter.start(std::move(job), codec, std::filesystem::absolute(to), true,
                   [&](Result<std::filesystem::path> r) { outcome = std::move(r); });
    std::function<void()> tick = [&] {
        if (outcome) return;
        if (interruptedBy) exporter.cancel();
        if (progress) progress(exporter.progress());
        scheduler.schedule(0.25, tick);
    };
    scheduler.schedule(0.25, tick);
    scheduler.runUntil([&] { return outcome.has_value(); });
    return std::move(*outcome);
}

}  // namespace

std::optional<double> loudnessOf(const std::string& text) {
    if (text == "-14" || text == "\u221214") return -14.0;
    if (text == "-23" || text == "\u221223") return -23.0;
    return std::nullopt;
}

bool isCodecName(const std::string& text) { return !text.empty() && codecOf(text, {}).has_value(); }

int exportVideo(VideoRequest request, std::ostream& out, std::ostream& err,
                const std::function<void(double, const std::string&)>& progress) {
    auto fail = [&](const std::string& message) {
        out << "L'export vidéo a échoué : " << message << "\n";
        return 1;
    };
    const auto codec = codecOf(request.codec, request.file);
    if (!codec) return fail("codec inconnu « " + request.codec + " » (h264, hevc ou prores).");
    const std::filesystem::path file = request.file;
    const auto started = Clock::now();
    auto outcome = render(jobOf(request), *codec, file, [&](double f) {
        // The progress shown with the exporter's own 0.25 s rhythm.
        const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
        if (progress && f > 0) progress(f, "Vidéo : reste " + Format::countdown(elapsed * (1 - f) / f));
    });
    if (!outcome && interruptedBy) return interrupted(file, err);
    if (!outcome) return fail(outcome.error().message);
    out << "Vidéo : " << outcome.value().string() << "\n";
    return 0;
}

int exportDropClips(ClipsRequest request, std::ostream& out, std::ostream& err,
                    const std::function<void(double, const std::string&)>& progress) {
    if (request.drops.empty()) {
        out << "Aucun drop : aucun clip\n";
        return 0;
    }
    const auto codec = codecOf(request.edit.codec, "clip.mp4");
    if (!codec) {
        out << "Les clips des drops ont échoué : codec inconnu « " << request.edit.codec << " » (h264, hevc ou prores).\n";
        return 1;
    }
    DropClips::Request plan;
    plan.cuts = request.edit.cuts;
    plan.effectFor = request.edit.effectFor;
    plan.base = jobOf(request.edit);
    plan.drops = request.drops;
    plan.onsets = request.onsets;
    plan.pictures = request.pictures;
    plan.pre = request.pre;
    plan.post = request.post;
    for (size_t c = 0; c < plan.base.cameraSources.size(); ++c) plan.allowed.insert(static_cast<int>(c));
    plan.setName = request.setName;
    plan.extension = fileExtension(*codec);
    const std::vector<DropClips::Clip> clips = DropClips::plan(plan);

    const int total = static_cast<int>(clips.size());
    for (int k = 0; k < total; ++k) {
        const DropClips::Clip& clip = clips[static_cast<size_t>(k)];
        const std::filesystem::path file = request.folder / clip.fileName;
        Result<std::filesystem::path> outcome = Error{};
        if (Status usable = OutputTarget::check(file, request.owned); !usable)
            outcome = usable.error();
        else
            outcome = render(clip.job, *codec, file, [&](double f) {
                const double all = (k + f) / total;
                if (progress) progress(all, DropClips::progressLine(k + 1, total, all));
            });
        if (!outcome && interruptedBy) return interrupted(file, err);
        if (!outcome) {
            // The clips already made stay; the session left nothing of this one.
            out << "Clip du drop " << clip.number << " échoué : " << outcome.error().message << "\n";
            out << "Les clips des drops ont échoué : " << k << " sur " << total << " faits.\n";
            return 1;
        }
        out << "Clip : " << outcome.value().string() << "\n";
    }
    out << "Clips des drops : " << total << " fichier" << (total > 1 ? "s" : "") << " dans "
        << request.folder.string() << "\n";
    return 0;
}

}  // namespace qv::CLI
