// The multicam player on a real clock: every camera and recorder of a set
// playing for a while from the originals, then from proxies, with frames
// shown and dropped, seek latency (request to every angle showing the
// target frame) and CPU use; beside it, in the same run, how fast the same
// cameras decode alone (our reader and the ffmpeg executable), and how the
// proxies are made (bench/ProxyFigures.h).
// Usage: player_bench <set folder> [seconds of play, default 60]
// (e.g. quorvel-setgen --preset multicam).
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "base/SplitMix64.h"
#include "base/Text.h"
#include "entry/SetTruth.h"
#include "platform/MediaReader.h"
#include "platform/Process.h"
#include "playback/MulticamPlayer.h"
#include "ProxyFigures.h"
#include "playback/Proxies.h"
#include "playback/TimelineTracks.h"
#include "sync/MediaScanner.h"

using namespace qv;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

double cpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double load() {
    double l[1] = {0};
    getloadavg(l, 1);
    return l[0];
}

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    size_t i = static_cast<size_t>(std::min<double>(v.size() - 1, std::floor(p * (v.size() - 1) + 0.5)));
    return v[i];
}

// Every camera decoded alone for `seconds` of its pictures, converted at
// the preview's size, all at once on their own threads: the most the
// player could ever show.
double decodeOnly(const std::vector<fs::path>& files, double seconds, int division) {
    auto t0 = Clock::now();
    std::vector<std::thread> threads;
    for (const auto& file : files) {
        threads.emplace_back([&file, seconds, division] {
            auto reader = media::VideoReader::open(file);
            if (!reader) return;
            reader->setOutputSize(reader->width() / division, reader->height() / division);
            double rate = reader->frameRate() > 0 ? reader->frameRate() : 25;
            for (long n = 0; n < static_cast<long>(seconds * rate); ++n) (void)reader->frameAt((n + 0.5) / rate);
        });
    }
    for (auto& t : threads) t.join();
    return seconds / since(t0);
}

// The same with the ffmpeg executable, one process per file.
double ffmpegDecode(const std::vector<fs::path>& files, double seconds) {
    fs::path ffmpeg = process::findExecutable({"/usr/bin/ffmpeg", "/usr/local/bin/ffmpeg"});
    if (ffmpeg.empty()) return 0;
    auto t0 = Clock::now();
    std::vector<std::thread> threads;
    for (const auto& file : files) {
        threads.emplace_back([&, file] {
            (void)process::run(ffmpeg, {"-nostdin", "-v", "error", "-threads", "1", "-t", shortest(seconds), "-i",
                                        file.string(), "-f", "null", "-"});
        });
    }
    for (auto& t : threads) t.join();
    return seconds / since(t0);
}

struct PlayFigures {
    int64_t shown = 0, dropped = 0;
    double cpu = 0;  // processor seconds per second of play, 1 = one core
    std::vector<double> seeks;  // seconds
};

PlayFigures playFor(const std::vector<MediaSource>& sources, const SyncResult& result, const ProxyCache* proxies,
                    double seconds, int division) {
    MulticamPlayer::Options options;
    options.opener = timelineTracks(proxies);
    MulticamPlayer player(sources, result, std::move(options));
    player.configureVideo(division, nullptr);
    player.settle();
    PlayFigures figures;
    double cpu0 = cpuSeconds();
    auto t0 = Clock::now();
    player.play();
    // The interface's refresh: 60 times a second.
    auto next = Clock::now();
    while (player.isPlaying() && since(t0) < seconds) {
        next += std::chrono::microseconds(16667);
        std::this_thread::sleep_until(next);
        player.update();
    }
    figures.cpu = (cpuSeconds() - cpu0) / since(t0);
    player.pause();
    figures.shown = player.counters().shown;
    figures.dropped = player.counters().dropped;

    SplitMix64 random(7);
    for (int i = 0; i < 15; ++i) {
        double t = static_cast<double>(random.next() % 1000000) / 1000000 * player.duration();
        auto s0 = Clock::now();
        player.seek(t);
        t = player.currentTime();
        for (;;) {
            player.update();
            bool all = true;
            for (const auto& angle : player.cameraAngles()) {
                if (!angle.hasImage(t)) continue;
                auto frame = player.shownFrame(angle.id);
                all = all && frame && frame->start <= t + 1e-9 && t < frame->end + 1e-9;
            }
            if (all || since(s0) > 3) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        figures.seeks.push_back(since(s0));
    }
    return figures;
}

void print(const char* what, const PlayFigures& f, double seconds, int cameras) {
    double expected = seconds * 25 * cameras;
    std::printf("%s : %lld images montrées sur %.0f attendues, %lld perdues ; processeur %.2f cœur(s) ;"
                " recherche médiane %.0f ms, 95e centile %.0f ms\n",
                what, static_cast<long long>(f.shown), expected, static_cast<long long>(f.dropped), f.cpu,
                percentile(f.seeks, 0.5) * 1000, percentile(f.seeks, 0.95) * 1000);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage : player_bench <dossier du set> [secondes]\n");
        return 1;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // each figure as soon as it is known
    fs::path set = argv[1];
    double seconds = argc > 2 ? std::atof(argv[2]) : 60;
    auto truth = SetTruth::read(set);
    auto sources = MediaScanner::scan(set);
    if (!truth || sources.empty()) {
        std::fprintf(stderr, "set illisible ou sans truth.json : %s\n", set.c_str());
        return 1;
    }
    SyncResult result;
    std::vector<fs::path> cameraFiles;
    double cameraSeconds = 0;
    for (size_t s = 0; s < sources.size(); ++s) {
        for (const auto& item : sources[s].items) {
            PlacedItem p;
            p.sourceIndex = static_cast<int>(s);
            p.item = item;
            auto found = truth->files.find(fs::relative(item.url, set).string());
            if (found == truth->files.end()) continue;
            p.start = found->second.start;
            result.placed.push_back(p);
            if (sources[s].kind == SourceKind::camera) {
                cameraFiles.push_back(item.url);
                cameraSeconds += item.duration;
            }
        }
    }
    int cameras = static_cast<int>(cameraFiles.size());
    std::printf("set : %d caméras, %zu fichiers ; charge du système %.2f sur %u cœurs\n", cameras,
                result.placed.size(), load(), std::thread::hardware_concurrency());

    const double decodeSeconds = std::min(seconds, 10.0);
    std::printf("décodage seul des %d caméras (%.0f s chacune, au 1/4) : %.2f × temps réel ;"
                " ffmpeg (décodage sans conversion) : %.2f ×\n",
                cameras, decodeSeconds, decodeOnly(cameraFiles, decodeSeconds, 4),
                ffmpegDecode(cameraFiles, decodeSeconds));

    auto original = playFor(sources, result, nullptr, seconds, 4);
    print("originaux, aperçu au 1/4", original, seconds, cameras);
    std::printf("charge du système %.2f\n", load());

    // Proxies made by the program's own maker, then played.
    fs::path cache = fs::temp_directory_path() / "quorvel-player-bench-proxies";
    proxybench::printProxyFigures(sources, result, cache);
    ProxyCache proxies(cache);
    auto proxied = playFor(sources, result, &proxies, seconds, 1);
    print("copies d'aperçu 640 × 360", proxied, seconds, cameras);
    std::printf("charge du système %.2f\n", load());
    fs::remove_all(cache);
    return 0;
}
