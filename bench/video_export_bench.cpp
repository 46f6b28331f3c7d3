// The finished-video export against the ffmpeg executable, in one run:
// 60 s of a 1080p25 set (three cameras, a cut every 4 s, a grade on every
// camera) rendered to H.264 CRF 18 preset medium with AAC, and ffmpeg
// transcoding 60 s of one camera with the same encoder settings and a lut3d
// of the same grade. Prints both times, the ratio, frames per second and the
// render's peak memory.
//
//   video_export_bench <set made by quorvel-setgen --preset fullhd> [seconds, 60]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "edit/WaitingScheduler.h"
#include "looks/GradeMath.h"
#include "platform/Process.h"
#include "render/VideoExportSession.h"
#include "entry/SetTruth.h"

namespace fs = std::filesystem;
using namespace qv;

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

double cpuSeconds(const rusage& r) {
    return static_cast<double>(r.ru_utime.tv_sec + r.ru_stime.tv_sec) + (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage : video_export_bench <set fullhd>\n");
        return 1;
    }
    const fs::path set = argv[1];
    auto truth = SetTruth::read(set);
    if (!truth) {
        std::fprintf(stderr, "truth.json illisible dans %s\n", set.c_str());
        return 1;
    }
    VideoRender::Job job = truth->placedJob(set);
    // The reference reads the first camera's first file.
    fs::path firstCamera;
    if (!job.cameraSources.empty() && !job.sources[static_cast<size_t>(job.cameraSources[0])].items.empty())
        firstCamera = job.sources[static_cast<size_t>(job.cameraSources[0])].items.front().url;
    if (job.cameraSources.empty()) {
        std::fprintf(stderr, "aucune caméra dans %s\n", set.c_str());
        return 1;
    }
    const double length = argc > 2 ? std::atof(argv[2]) : 60.0;
    const double lo = 1.0, hi = lo + length;
    std::vector<Cut> cuts;
    for (int k = 0; k * 4.0 < hi; ++k) {
        Cut c;
        c.time = k * 4.0;
        c.camera = k % static_cast<int>(job.cameraSources.size());
        cuts.push_back(c);
    }
    job.segments = Segment::build(cuts, job.result.duration());
    job.planEffects.resize(job.segments.size());
    job.range = {lo, hi};
    ColorGrade grade;
    grade.contrast = 20;
    grade.saturation = 125;
    grade.temperature = 15;
    grade.exposure = 0.2;
    job.looks.enabled = true;
    for (size_t c = 0; c < job.cameraSources.size(); ++c) job.looks.grades[static_cast<int>(c)] = grade;

    const fs::path out = fs::temp_directory_path() / "quorvel-bench-export.mp4";
    const fs::path reference = fs::temp_directory_path() / "quorvel-bench-ffmpeg.mp4";
    const fs::path cube = fs::temp_directory_path() / "quorvel-bench-grade.cube";
    std::ofstream(cube) << GradeMath::cubeLUT(grade, GradeMath::kCubeSize).text("bench");

    // The reference: ffmpeg alone, same 60 s, same encoders, the grade as lut3d.
    auto t0 = Clock::now();
    auto ff = process::run("/usr/bin/ffmpeg",
                           {"-nostdin", "-y", "-v", "error", "-ss", "1", "-t", std::to_string(static_cast<int>(length)), "-i", firstCamera.string(), "-vf",
                            "lut3d=file=" + cube.string(), "-c:v", "libx264", "-crf", "18", "-preset", "medium",
                            "-pix_fmt", "yuv420p", "-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace",
                            "bt709", "-c:a", "aac", "-b:a", "256k", "-movflags", "+faststart", reference.string()});
    const double ffmpegTime = seconds(t0);
    if (!ff || ff->exitCode != 0) {
        std::fprintf(stderr, "ffmpeg a échoué\n");
        return 1;
    }
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);

    WaitingScheduler loop;
    VideoExportSession exporter(loop);
    bool finished = false;
    std::string error;
    t0 = Clock::now();
    exporter.start(job, VideoCodec::h264, out, false, [&](Result<fs::path> r) {
        finished = true;
        if (!r) error = r.error().message;
    });
    loop.runUntil([&] { return finished; });
    const double renderTime = seconds(t0);
    if (!error.empty()) {
        std::fprintf(stderr, "export échoué : %s\n", error.c_str());
        return 1;
    }
    rusage self{};
    getrusage(RUSAGE_SELF, &self);

    double load[3] = {0, 0, 0};
    getloadavg(load, 3);
    const double frames = (hi - lo) * 25;
    std::printf("%.0f s de 1080p25, %zu caméras étalonnées, coupe toutes les 4 s, H.264 CRF 18 medium + AAC\n",
                length, job.cameraSources.size());
    std::printf("export Quorvel : %.1f s (%.1f images/s), mémoire max %.0f Mo\n", renderTime, frames / renderTime,
                self.ru_maxrss / 1024.0);
    std::printf("ffmpeg + lut3d : %.1f s (%.1f images/s), mémoire max %.0f Mo\n", ffmpegTime, frames / ffmpegTime,
                children.ru_maxrss / 1024.0);
    std::printf("rapport : %.2f x le temps de ffmpeg (objectif 1.3)\n", renderTime / ffmpegTime);
    // Processor time hardly depends on what else the machine runs.
    std::printf("temps processeur : export %.1f s, ffmpeg %.1f s, rapport %.2f\n", cpuSeconds(self),
                cpuSeconds(children), cpuSeconds(self) / cpuSeconds(children));
    std::printf("charge du système : %.2f %.2f %.2f sur %u coeurs\n", load[0], load[1], load[2],
                std::thread::hardware_concurrency());
    std::error_code ec;
    fs::remove(out, ec);
    fs::remove(reference, ec);
    fs::remove(cube, ec);
    return 0;
}
