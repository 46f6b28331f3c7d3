// Audio loading throughput: the libav road and the ffmpeg road, one file at
// a time, against the ffmpeg executable alone producing the same 2 kHz
// signal into the null device. Usage: audio_load_bench <set> [<set> ...].
#include <chrono>
#include <cstdio>

#include "platform/Process.h"
#include "sync/AudioLoader.h"
#include "sync/MediaScanner.h"

using namespace qv;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage : audio_load_bench <dossier du set> [...]\n");
        return 1;
    }
    auto tool = process::findExecutable(AudioLoader::ffmpegCandidates);
    if (tool.empty()) {
        std::fprintf(stderr, "ffmpeg introuvable\n");
        return 1;
    }
    double sound = 0, libav = 0, piped = 0, reference = 0;
    int files = 0;
    using Clock = std::chrono::steady_clock;
    auto since = [](Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); };
    std::vector<MediaSource> sources;
    for (int a = 1; a < argc; ++a)
        for (auto& s : MediaScanner::scan(argv[a])) sources.push_back(std::move(s));
    for (const auto& source : sources) {
        for (const auto& item : source.items) {
            if (item.audioChannels < 1) continue;
            ++files;
            sound += item.duration;
            auto t = Clock::now();
            auto a = AudioLoader::loadWithLibav(item.url);
            libav += since(t);
            t = Clock::now();
            auto b = AudioLoader::loadWithFFmpeg(item.url);
            piped += since(t);
            t = Clock::now();
            auto c = process::run(tool, {"-v", "error", "-i", item.url.string(), "-vn", "-ac", "1", "-ar", "2000",
                                         "-f", "f32le", "-y", "/dev/null"});
            reference += since(t);
            if (!a || !b || !c) std::fprintf(stderr, "échec sur %s\n", item.url.c_str());
        }
    }
    std::printf("%d fichiers, %.1f min de son\n", files, sound / 60);
    std::printf("route libav (8 kHz + décimation)  : %7.2f s  %6.0fx temps réel  rapport %.2f\n", libav,
                sound / libav, libav / reference);
    std::printf("route ffmpeg (tube, 2 kHz)        : %7.2f s  %6.0fx temps réel  rapport %.2f\n", piped,
                sound / piped, piped / reference);
    std::printf("référence : ffmpeg seul -> /dev/null : %7.2f s  %6.0fx temps réel\n", reference, sound / reference);
    return 0;
}
