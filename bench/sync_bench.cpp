// Synchronisation of a whole set: total time against the time it takes to
// decode the same sound, and peak memory against the spectrum budget plus
// the signals. Usage: sync_bench <set folder> (e.g. quorvel-setgen --preset hour).
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <cstdio>
#include <cstring>

#include "platform/Fft.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

using namespace qv;

// A "VmXXX:" line of /proc/self/status, in MB.
static double statusMB(const char* key) {
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return 0;
    char line[256];
    double kb = 0;
    while (std::fgets(line, sizeof line, f))
        if (std::strncmp(line, key, std::strlen(key)) == 0) kb = std::atof(line + std::strlen(key));
    std::fclose(f);
    return kb * 1024 / 1e6;
}

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

    auto cpuSeconds = [] {
        rusage u{};
        getrusage(RUSAGE_SELF, &u);
        return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
    };
    // Reference: decoding alone, the same code on the same threads.
    auto t0 = std::chrono::steady_clock::now();
    double decodeCpu0 = cpuSeconds();
    size_t samples = 0;
    for (const auto& signal : FolderSync::decodeAll(items, FolderSync::defaultOptions())) samples += signal.size();
    double decodeOnly = seconds(t0);
    double decodeCpu = cpuSeconds() - decodeCpu0;
    double signalMB = static_cast<double>(samples) * 4 / 1e6;

    // Peak memory of the synchronisation alone: the process's high-water
    // mark is reset (Linux: clear_refs 5) and the resident size at rest is
    // taken as the base, so libraries and the reference run don't count.
    std::FILE* refs = std::fopen("/proc/self/clear_refs", "w");
    bool peakReset = refs && std::fputs("5", refs) >= 0;
    if (refs) peakReset = std::fclose(refs) == 0 && peakReset;
    double baseMB = statusMB("VmRSS:");
    double cpu0 = cpuSeconds();
    FolderSync::Stats stats;
    FolderSync::Options options = FolderSync::defaultOptions();
    options.stats = &stats;
    t0 = std::chrono::steady_clock::now();
    SyncResult result = FolderSync::run(sources, nullptr, options);
    double total = seconds(t0);
    double cpu = cpuSeconds() - cpu0;

    double peakMB = statusMB("VmHWM:");
    double budgetMB = SpectrumCache::defaultBudget / 1e6;

    std::printf("placés : %zu, non calés : %zu, %d corrélations, %d spectres calculés\n", result.placed.size(),
                result.unsynced.size(), stats.correlations, stats.spectra);
    std::printf("décodage seul        : %8.2f s\n", decodeOnly);
    std::printf("synchro totale       : %8.2f s  (décodage %.2f s, corrélation et calage %.2f s)\n", total,
                stats.decodeSeconds, stats.placeSeconds);
    std::printf("temps processeur de la synchro : %.1f s (%.2f cœurs en moyenne)\n", cpu, cpu / total);
    std::printf("rapport synchro / décodage seul : %.2f  (objectif <= 1.50)\n", total / decodeOnly);
    // On a machine others load, the processor time is the steadier figure.
    std::printf("temps processeur : décodage seul %.1f s, synchro %.1f s, rapport %.2f\n", decodeCpu, cpu,
                cpu / decodeCpu);
    std::printf("mémoire comptée par le budget des spectres (spectres, tampons, plans) : %.0f Mo au plus\n",
                static_cast<double>(stats.budgetPeak) / 1e6);
    std::printf("plans FFT : %s\n", fft::wisdomLoaded() ? "mesurés (sagesse FFTW de la machine)"
                                                          : "estimés (pas de sagesse FFTW : scripts/setup.sh la crée)");
    std::printf("mémoire de la synchro : %.0f Mo au-dessus de %.0f Mo au repos%s ; signaux %.0f Mo + budget des "
                "spectres %.0f Mo = %.0f Mo (rapport %.2f)\n",
                peakMB - baseMB, baseMB, peakReset ? "" : " (pic du processus entier)", signalMB, budgetMB,
                signalMB + budgetMB, (peakMB - baseMB) / (signalMB + budgetMB));
    return 0;
}
