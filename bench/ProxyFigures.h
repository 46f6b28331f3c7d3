// The proxy figures of the player benchmark, for one set: how soon after a
// seek every angle has its chunk around the play head, how fast the whole
// set's proxies are made (every worker, as while nothing plays), 4K and
// smaller files apart, and one camera's first 20 s made by our writer
// against the ffmpeg executable with the same settings, on one thread each.
// The chunks are left in `cache` for the play from proxies that follows.
#pragma once

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "base/Text.h"
#include "platform/Process.h"
#include "platform/ProxyWriter.h"
#include "playback/Proxies.h"
#include "playback/ProxyEncoder.h"
#include "platform/Processor.h"
#include "sync/AudioLoader.h"

namespace proxybench {

inline double secondsSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

inline double processorSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

inline double loadNow() {
    double l[1] = {0};
    getloadavg(l, 1);
    return l[0];
}

inline void printProxyFigures(const std::vector<qv::MediaSource>& sources, const qv::SyncResult& result,
                              const std::filesystem::path& cache) {
    namespace fs = std::filesystem;
    using Clock = std::chrono::steady_clock;
    auto files = qv::ProxyMaker::candidates(sources, result);
    if (files.empty()) {
        std::printf("copies d'aperçu : aucune caméra plus large que %d pixels\n", qv::media::ProxyOptions{}.width);
        return;
    }
    double footage = 0, end = 0;
    for (const auto& f : files) {
        footage += f.duration;
        end = std::max(end, f.at + f.duration);
    }
    fs::remove_all(cache);
    // Each chunk's time, 4K files apart from the others.
    std::mutex timesLock;
    std::map<fs::path, bool> fourK;
    double footageBy[2] = {0, 0}, chunkSecondsBy[2] = {0, 0};
    for (const auto& f : files) {
        fourK[f.path] = f.fourK;
        footageBy[f.fourK] += f.duration;
    }
    auto timed = [&, inner = qv::proxyEncoder()](const fs::path& original) -> qv::Result<qv::ProxyMaker::ChunkWriter> {
        auto writer = inner(original);
        if (!writer) return writer.error();
        const int k = fourK.count(original) && fourK.at(original) ? 1 : 0;
        return qv::ProxyMaker::ChunkWriter([&, k, w = std::move(writer).value()](const fs::path& out, double from,
                                                                                double to, const std::atomic<bool>& cancel) {
            const auto c0 = Clock::now();
            auto outcome = w(out, from, to, cancel);
            std::lock_guard guard(timesLock);
            chunkSecondsBy[k] += secondsSince(c0);
            return outcome;
        });
    };
    qv::ProxyMaker maker(qv::ProxyCache(cache), timed, {});
    const int workers = qv::ProxyMaker::workersFor(qv::platform::processorCores(), false, 0);
    // The user opens the set at its start, then seeks to 60 % of it.
    auto t0 = Clock::now();
    const double cpu0 = processorSeconds();
    maker.setPlayhead(0, false);
    maker.start(files);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const double target = end * 0.6;
    auto s0 = Clock::now();
    maker.setPlayhead(target, false);
    const double cpuSeek = processorSeconds();
    while (!maker.readyAround(target)) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const double ready = secondsSince(s0);
    std::printf("aperçu prêt autour de la tête de lecture en %.1f s\n", ready);
    std::printf("  (processeur %.1f s depuis la recherche ; charge du système %.2f)\n", processorSeconds() - cpuSeek,
                loadNow());
    while (!maker.progress().finished) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const double whole = secondsSince(t0);
    const double cpu = processorSeconds() - cpu0;
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    std::printf("copies d'aperçu : %.2f × temps réel par caméra (%d ouvriers)\n", footage / whole, workers);
    // Chunks of both kinds are made side by side: a kind's share of the
    // workers' time is the time it would have taken alone.
    for (int k : {1, 0})
        if (footageBy[k] > 0 && chunkSecondsBy[k] > 0)
            std::printf("  copies d'aperçu %s : %.2f × temps réel par caméra\n", k ? "4K" : "HD et moins",
                        footageBy[k] / (chunkSecondsBy[k] / workers));
    // On a loaded machine the workers, at the lowest priority, get what is
    // left: the processor time tells what free cores would give.
    std::printf("  (%zu fichiers, %.0f s d'images en %.1f s, %d échecs ; processeur %.1f s, soit %.2f × sur %u cœurs"
                " libres ; charge du système %.2f)\n",
                files.size(), footage, whole, static_cast<int>(maker.progress().failed.size()), cpu,
                footage / cpu * cores, cores, loadNow());

    // One camera's first 20 s, ours against ffmpeg with the same settings.
    const double stretch = std::min(20.0, files.front().duration);
    std::atomic<bool> cancel{false};
    auto writer = qv::media::ProxyWriter::open(files.front().path);
    if (!writer) return;
    auto w0 = Clock::now();
    bool made = writer->write(cache / "ours.mp4", 0, stretch, cancel).made();
    const double ours = secondsSince(w0);
    fs::path ffmpeg = qv::process::findExecutable(qv::AudioLoader::ffmpegCandidates);
    if (ffmpeg.empty()) return;
    w0 = Clock::now();
    (void)qv::process::run(ffmpeg, {"-nostdin", "-v", "error", "-y", "-threads", "1", "-skip_loop_filter", "all",
                                    "-t", qv::shortest(stretch), "-i", files.front().path.string(), "-an", "-vf",
                                    "scale=640:-2", "-c:v", "libx264", "-preset", "ultrafast", "-tune", "fastdecode",
                                    "-crf", "26", "-g", "12", "-bf", "0", "-threads", "1", "-pix_fmt", "yuv420p",
                                    (cache / "ffmpeg.mp4").string()});
    const double theirs = secondsSince(w0);
    std::printf("une copie d'aperçu sur un fil : %.2f × temps réel, ffmpeg : %.2f × ; rapport %.2f%s\n",
                stretch / ours, stretch / theirs, ours / theirs, made ? "" : " (échec)");
    fs::remove(cache / "ours.mp4");
    fs::remove(cache / "ffmpeg.mp4");
}

}  // namespace proxybench
