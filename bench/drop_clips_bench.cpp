// The clips of the drops against one render of the same total length, in one
// run: every drop of a generated set that a camera films made into a
// vertical clip (pre + post seconds, automatic edit, H.264), then a single
// vertical render as long as all the clips together, over the same set,
// alternated twice. Prints both times and the ratio:
// what making many short files costs over one long one (opening the cameras
// again, the encoder's start, the loudness pass when asked).
//
//   drop_clips_bench <set made by quorvel-setgen --preset drops> [pre, 15] [post, 30] [--loudness]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "edit/WaitingScheduler.h"
#include "render/DropClips.h"
#include "render/VideoExportSession.h"
#include "entry/SetTruth.h"

namespace fs = std::filesystem;
using namespace qv;

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// One export to its end; false with the message on failure.
bool render(const VideoRender::Job& job, const fs::path& to) {
    WaitingScheduler loop;
    VideoExportSession session(loop);
    bool done = false, ok = false;
    session.start(job, VideoCodec::h264, to, false, [&](Result<fs::path> r) {
        done = true;
        ok = r.ok();
        if (!ok) std::fprintf(stderr, "échec : %s\n", r.error().message.c_str());
    });
    loop.runUntil([&] { return done; });
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage : drop_clips_bench <set drops> [avant] [après] [--loudness]\n");
        return 1;
    }
    const fs::path set = argv[1];
    bool loudness = false;
    std::vector<double> numbers;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--loudness") == 0) loudness = true;
        else numbers.push_back(std::atof(argv[i]));
    }
    auto truth = SetTruth::read(set);
    if (!truth) {
        std::fprintf(stderr, "truth.json illisible dans %s\n", set.c_str());
        return 1;
    }
    DropClips::Request request;
    VideoRender::Job& job = request.base;
    job = truth->placedJob(set);
    for (size_t s = 0; s < job.sources.size(); ++s)
        if (job.sources[s].kind == SourceKind::camera) job.muted.insert(job.sources[s].id);  // table sound
    job.format = OutputFormat::portrait;
    if (loudness) job.loudness = -14.0;
    for (double t : truth->drops) request.drops.push_back({static_cast<int>(request.drops.size()), t, 1});
    request.pre = numbers.size() > 0 ? numbers[0] : 15;
    request.post = numbers.size() > 1 ? numbers[1] : 30;
    for (size_t c = 0; c < job.cameraSources.size(); ++c) request.allowed.insert(static_cast<int>(c));
    request.setName = set.filename().string();
    // Only the clips a camera films: black frames cost nothing and would
    // flatter either side.
    const auto ranges = AutoEditor::cameraRanges(job.result, job.cameraSources);
    auto filmed = [&](const TimeRange& range) {
        const double middle = (range.start + range.end) / 2;
        for (const auto& camera : ranges)
            for (const TimeRange& r : camera)
                if (r.start <= middle && middle < r.end) return true;
        return false;
    };
    std::vector<DropClips::Clip> clips;
    for (auto& clip : DropClips::plan(request))
        if (filmed(clip.range)) clips.push_back(std::move(clip));
    if (clips.empty()) {
        std::fprintf(stderr, "aucun drop filmé dans %s\n", set.c_str());
        return 1;
    }

    const fs::path out = fs::temp_directory_path() / "quorvel-drop-clips-bench";
    fs::create_directories(out);
    double total = 0;
    for (const auto& clip : clips) total += clip.range.end - clip.range.start;

    // One render as long as all the clips, from the first of them on.
    VideoRender::Job one = clips.front().job;
    const double from = clips.front().range.start;
    const double lo = std::max(0.0, std::min(from, job.result.duration() - total));
    one.range = {lo, std::min(job.result.duration(), lo + total)};
    std::vector<Cut> drawn = AutoEditor::generate(one.range, ranges, request.allowed, request.drops, {},
                                                  request.autoSettings, {});
    one.segments = Segment::build(drawn, job.result.duration());
    one.planEffects.assign(one.segments.size(), ResolvedEffect{});
    one.looks.plans.clear();

    // Alternated twice, the best of each: a shared machine's load swings.
    double clipsTime = 1e30, oneTime = 1e30;
    for (int round = 0; round < 2; ++round) {
        auto t0 = Clock::now();
        for (const auto& clip : clips)
            if (!render(clip.job, out / clip.fileName)) return 1;
        clipsTime = std::min(clipsTime, since(t0));
        t0 = Clock::now();
        if (!render(one, out / "reference.mp4")) return 1;
        oneTime = std::min(oneTime, since(t0));
    }
    fs::remove_all(out);

    std::printf("clips des drops : %zu clips, %.1f s de vidéo 1080x1920%s\n", clips.size(), total,
                loudness ? ", volume -14 LUFS" : "");
    std::printf("  tous les clips   : %7.2f s (%.2f s par seconde de vidéo)\n", clipsTime, clipsTime / total);
    std::printf("  un seul rendu    : %7.2f s pour %.1f s (de %.1f à %.1f s)\n", oneTime, one.range.end - one.range.start,
                one.range.start, one.range.end);
    std::printf("  rapport clips / rendu unique : %.2f\n", clipsTime / oneTime);
    return 0;
}
