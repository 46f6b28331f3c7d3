// The multicam player on a real clock: every camera and recorder of a set
// playing for a while from the originals, then from proxies, with frames
// shown and dropped, seek latency (request to every angle showing the
// target frame) and CPU use; beside it, in the same run, how fast the same
// cameras decode alone (our reader and the ffmpeg executable), and how the
// proxies are made (bench/ProxyFigures.h).
// With a program angle (the first camera), the originals' line gives the
// program's pictures shown against those due, the fewest pictures a second
// of any tile, and the median seek; beside it, how fast one core decodes the
// program's own stream (whether the machine can show all of it at all), and
// what the tiles took of their processor budget.
// Usage: player_bench [--secondes N] [--sans-copies] <set folder>... (e.g.
// the sets of quorvel-setgen --preset realcam, realnoise and phone4k).
#include <algorithm>
#include <atomic>
#include <cmath>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>

#include "base/SplitMix64.h"
#include "base/Text.h"
#include "entry/SetTruth.h"
#include "platform/MediaReader.h"
#include "platform/Process.h"
#include "platform/Processor.h"
#include "playback/MulticamPlayer.h"
#include "ProxyFigures.h"
#include "playback/Proxies.h"
#include "playback/TimelineTracks.h"
#include "sync/AudioLoader.h"

using namespace qv;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

using proxybench::loadNow;
using proxybench::processorSeconds;
using proxybench::secondsSince;

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
    return seconds / secondsSince(t0);
}

// One camera's stream decoded on one thread at full cost for `seconds`, as
// the program angle plays it (converted at 1/`division`): the share of real
// time one core keeps up with.
double oneCore(const fs::path& file, double seconds, int division) {
    auto reader = media::VideoReader::open(file, 1);
    if (!reader) return 0;
    reader->setOutputSize(reader->width() / division, reader->height() / division);
    const double rate = reader->frameRate() > 0 ? reader->frameRate() : 25;
    const double cpu0 = platform::threadCpuSeconds();
    for (long n = 0; n < static_cast<long>(seconds * rate); ++n) (void)reader->frameAt((n + 0.5) / rate);
    return seconds / std::max(1e-9, platform::threadCpuSeconds() - cpu0);
}

// The same with the ffmpeg executable, one process per file.
double ffmpegDecode(const std::vector<fs::path>& files, double seconds) {
    fs::path ffmpeg = process::findExecutable(AudioLoader::ffmpegCandidates);
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
    return seconds / secondsSince(t0);
}

struct PlayFigures {
    int64_t shown = 0, dropped = 0;
    double cpu = 0;  // processor seconds per second of play, 1 = one core
    std::vector<double> seeks;  // seconds
    // With a program angle: its pictures shown, the fewest pictures a second
    // of any other angle, and the seeks counted until every angle shows the
    // exact frame (`seeks` stops when the program angle does and every tile
    // shows a picture of the last two seconds).
    int64_t programShown = 0;
    double programExpected = 0;
    double tileRate = 0;
    TileBudget::Figures budget;  // over the play
    double played = 0;           // seconds of the set played
    std::vector<double> exactSeeks;
    std::vector<double> programSeeks;  // until the program angle alone shows the exact frame
};

// The first placed file of camera `camera` (from 0); null without one.
const PlacedItem* firstFile(const std::vector<MediaSource>& sources, const SyncResult& result, int camera) {
    int seen = -1;
    for (size_t s = 0; s < sources.size(); ++s) {
        if (sources[s].kind != SourceKind::camera || ++seen != camera) continue;
        for (const PlacedItem& p : result.placed)
            if (p.sourceIndex == static_cast<int>(s)) return &p;
    }
    return nullptr;
}

double programRate(const std::vector<MediaSource>& sources, const SyncResult& result, int camera) {
    const PlacedItem* file = firstFile(sources, result, camera);
    return file && file->item.frameRate > 0 ? file->item.frameRate : 25;
}

PlayFigures playFor(const std::vector<MediaSource>& sources, const SyncResult& result, const ProxyCache* proxies,
                    double seconds, int division, std::optional<int> program = std::nullopt) {
    MulticamPlayer::Options options;
    options.opener = timelineTracks(proxies);
    MulticamPlayer player(sources, result, std::move(options));
    player.configureVideo(division, nullptr);
    player.setProgramAngle(program);
    player.settle();
    PlayFigures figures;
    double cpu0 = processorSeconds();
    auto t0 = Clock::now();
    player.play();
    // The interface's refresh: 60 times a second.
    auto next = Clock::now();
    while (player.isPlaying() && secondsSince(t0) < seconds) {
        next += std::chrono::microseconds(16667);
        std::this_thread::sleep_until(next);
        player.update();
    }
    const double played = player.currentTime();
    figures.played = played - std::min(played, 0.0);
    figures.cpu = (processorSeconds() - cpu0) / secondsSince(t0);
    player.pause();
    const auto counters = player.counters();
    figures.shown = counters.shown;
    figures.dropped = counters.dropped;
    if (program) {
        const Angle& angle = player.cameraAngles()[static_cast<size_t>(*program)];
        double covered = 0;
        for (const auto& r : angle.ranges) covered += std::max(0.0, std::min(r.end, played) - std::max(r.start, 0.0));
        figures.programShown = counters.shownByAngle[static_cast<size_t>(*program)];
        figures.programExpected = std::floor(covered * programRate(sources, result, *program));
        figures.budget = player.tileBudget();
        figures.tileRate = 1e9;
        for (const auto& a : player.cameraAngles()) {
            if (a.id == *program || !a.hasPlayer) continue;
            double own = 0;
            for (const auto& r : a.ranges) own += std::max(0.0, std::min(r.end, played) - std::max(r.start, 0.0));
            if (own > 1) figures.tileRate = std::min(figures.tileRate, counters.shownByAngle[static_cast<size_t>(a.id)] / own);
        }
        if (figures.tileRate > 1e8) figures.tileRate = 0;
    }

    SplitMix64 random(7);
    for (int i = 0; i < 15; ++i) {
        double t = static_cast<double>(random.next() % 1000000) / 1000000 * player.duration();
        auto s0 = Clock::now();
        player.seek(t);
        t = player.currentTime();
        std::optional<double> landed, programLanded;
        for (;;) {
            player.update();
            bool all = true, near = true;
            for (const auto& angle : player.cameraAngles()) {
                if (!angle.hasImage(t)) continue;
                auto frame = player.shownFrame(angle.id);
                bool exact = frame && !frame->standIn && frame->start <= t + 1e-9 && t < frame->end + 1e-9;
                all = all && exact;
                bool close = frame && frame->start <= t + 1e-9 && t - frame->start < 2.0 + 1e-6;
                near = near && (program && angle.id != *program ? close : exact);
                if (program && angle.id == *program && exact && !programLanded) programLanded = secondsSince(s0);
            }
            if (near && !landed) landed = secondsSince(s0);
            if (all || secondsSince(s0) > 5) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        figures.seeks.push_back(landed ? *landed : secondsSince(s0));
        figures.exactSeeks.push_back(secondsSince(s0));
        if (programLanded) figures.programSeeks.push_back(*programLanded);
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

// The originals of one set: the line of figures with the first camera on
// program, then the details.
void originals(const std::vector<MediaSource>& sources, const SyncResult& result, double seconds, int cameras) {
    auto f = playFor(sources, result, nullptr, seconds, 4, 0);
    std::printf("originaux : programme %lld/%.0f images, vignettes %.1f images/s au moins, recherche médiane %.0f ms\n",
                static_cast<long long>(f.programShown), f.programExpected, f.tileRate,
                percentile(f.seeks, 0.5) * 1000);
    std::printf("  (détail : %lld images montrées, %lld perdues ; processeur %.2f cœur(s) ; recherche 95e centile"
                " %.0f ms ; programme exact en %.0f ms médiane, toutes les vignettes exactes en %.0f ms ; %d caméras)\n",
                static_cast<long long>(f.shown), static_cast<long long>(f.dropped), f.cpu,
                percentile(f.seeks, 0.95) * 1000, percentile(f.programSeeks, 0.5) * 1000,
                percentile(f.exactSeeks, 0.5) * 1000, cameras);
    std::printf("  (vignettes : %.2f cœur(s) de processeur en moyenne, budget donné %.2f, %.2f cœur(s) à la fin)\n",
                f.budget.spent / std::max(1e-9, f.played), f.budget.granted / std::max(1e-9, f.played),
                f.budget.rate);
}

struct LoadedSet {
    std::vector<MediaSource> sources;
    SyncResult result;
    std::vector<fs::path> cameraFiles;
};

std::optional<LoadedSet> loadSet(const fs::path& set) {
    auto truth = SetTruth::read(set);
    if (!truth) return std::nullopt;
    auto job = truth->placedJob(set);
    LoadedSet out{std::move(job.sources), std::move(job.result), {}};
    for (const PlacedItem& p : out.result.placed)
        if (out.sources[static_cast<size_t>(p.sourceIndex)].kind == SourceKind::camera)
            out.cameraFiles.push_back(p.item.url);
    if (out.cameraFiles.empty()) return std::nullopt;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<fs::path> sets;
    double seconds = 60;
    bool copies = true;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--secondes" && i + 1 < argc) seconds = std::atof(argv[++i]);
        else if (a == "--sans-copies") copies = false;
        else sets.push_back(a);
    }
    if (sets.empty()) {
        std::fprintf(stderr, "usage : player_bench [--secondes N] [--sans-copies] <dossier du set>...\n");
        return 1;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // each figure as soon as it is known
    bool failed = false;
    for (const fs::path& set : sets) {
        auto loaded = loadSet(set);
        // A heavy set not generated yet leaves the others' figures standing.
        if (!loaded) {
            std::printf("set %s : illisible ou sans truth.json, passé\n", set.c_str());
            failed = true;
            continue;
        }
        const auto& sources = loaded->sources;
        const auto& result = loaded->result;
        const auto& cameraFiles = loaded->cameraFiles;
        int cameras = static_cast<int>(cameraFiles.size());
        std::printf("set %s : %d caméras, %zu fichiers ; charge du système %.2f sur %u cœurs\n",
                    set.filename().c_str(), cameras, result.placed.size(), loadNow(), std::thread::hardware_concurrency());

        const double decodeSeconds = std::min(seconds, 10.0);
        std::printf("décodage seul des %d caméras (%.0f s chacune, au 1/4) : %.2f × temps réel ;"
                    " ffmpeg (décodage sans conversion) : %.2f ×\n",
                    cameras, decodeSeconds, decodeOnly(cameraFiles, decodeSeconds, 4),
                    ffmpegDecode(cameraFiles, decodeSeconds));
        if (const PlacedItem* program = firstFile(sources, result, 0))
            std::printf("décodage du programme (caméra 1, %d × %d) sur un cœur : %.2f × temps réel\n",
                        program->item.width, program->item.height, oneCore(program->item.url, decodeSeconds, 4));

        originals(sources, result, seconds, cameras);
        std::printf("charge du système %.2f\n", loadNow());
        if (!copies) continue;
        // Proxies made by the program's own maker (bench/ProxyFigures.h), then played.
        fs::path cache = fs::temp_directory_path() / "quorvel-player-bench-proxies";
        proxybench::printProxyFigures(sources, result, cache);
        ProxyCache proxies(cache);
        auto proxied = playFor(sources, result, &proxies, seconds, 1);
        print("copies d'aperçu 640 × 360", proxied, seconds, cameras);
        std::printf("charge du système %.2f\n", loadNow());
        fs::remove_all(cache);
    }
    return failed ? 1 : 0;
}
