// Synchronisation of a whole set: total time against the time it takes to
// decode the same sound, and peak memory against the spectrum budget plus
// the signals. Usage: sync_bench <set folder> (e.g. quorvel-setgen --preset hour).
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <cstdio>

#include "base/Parallel.h"
#include "sync/AudioLoader.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

using namespace qv;

static double seconds(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage : sync_bench <dossier du set>\n");
        return 1;
    }
    auto sources = MediaScanner::scan(argv[1]);
    std::vector<const MediaItem*> items;
    double soundSeconds = 0;
    for (const auto& s : sources)
        for (const auto& i : s.items) {
            items.push_back(&i);
            if (i.audioChannels > 0) soundSeconds += i.duration;
        }
    double load[1] = {0};
    getloadavg(load, 1);  // figures from a busy machine are not comparable
    std::printf("set : %zu sources, %zu fichiers, %.0f s de son ; charge du système %.2f\n", sources.size(),
                items.size(), soundSeconds, load[0]);

    // Reference: decoding alone, with the same roads and the same threads.
    auto t0 = std::chrono::steady_clock::now();
    size_t samples = 0;
    std::vector<size_t> counts(items.size());
    parallelFor(static_cast<int>(items.size()), defaultThreads(), [&](int k) {
        const MediaItem& i = *items[static_cast<size_t>(k)];
        if (i.audioChannels < 1) return;
        auto s = AudioLoader::loadWithLibav(i.url);
        if (!s || s->empty()) s = AudioLoader::loadWithFFmpeg(i.url);
        if (s) counts[static_cast<size_t>(k)] = s->size();
    });
    for (size_t c : counts) samples += c;
    double decodeOnly = seconds(t0);
    double signalMB = static_cast<double>(samples) * 4 / 1e6;

    auto cpuSeconds = [] {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    };
    double cpu0 = cpuSeconds();
    FolderSync::Stats stats;
    FolderSync::Options options = FolderSync::defaultOptions();
    options.stats = &stats;
    t0 = std::chrono::steady_clock::now();
    SyncResult result = FolderSync::run(sources, nullptr, options);
    double total = seconds(t0);
    double cpu = cpuSeconds() - cpu0;

    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    double peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
    double budgetMB = SpectrumCache::defaultBudget / 1e6;

    std::printf("placés : %zu, non calés : %zu, %d corrélations, %d spectres calculés\n", result.placed.size(),
                result.unsynced.size(), stats.correlations, stats.spectra);
    std::printf("décodage seul        : %8.2f s\n", decodeOnly);
    std::printf("synchro totale       : %8.2f s  (décodage %.2f s, corrélation et calage %.2f s)\n", total,
                stats.decodeSeconds, stats.placeSeconds);
    std::printf("temps processeur de la synchro : %.1f s (%.2f cœurs en moyenne)\n", cpu, cpu / total);
    std::printf("rapport synchro / décodage seul : %.2f  (objectif <= 1.30)\n", total / decodeOnly);
    std::printf("mémoire max : %.0f Mo ; signaux %.0f Mo + budget des spectres %.0f Mo = %.0f Mo\n", peakMB,
                signalMB, budgetMB, signalMB + budgetMB);
    return 0;
}
