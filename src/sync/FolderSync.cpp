#include "sync/FolderSync.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include "base/Parallel.h"
#include "base/Text.h"
#include "platform/Memory.h"
#include "sync/AudioLoader.h"
#include "sync/Envelopes.h"

namespace qv::FolderSync {

namespace {

constexpr double rate = 2000.0;
constexpr size_t shortestSignal = 2001;
constexpr float minScore = 9.0f;
constexpr int maxPeaks = 50;
constexpr int separation = 500;
constexpr double clusterWidth = 0.1;
constexpr double clockWindow = 15.0;
constexpr double siblingOverlap = 1.0;
constexpr double silenceFloor = 30.0;
constexpr float clearMargin = 0.8f;
// The spectrum budget bounds all the memory the correlations take beyond
// the signals. The cache counts its spectra, working buffers and plans; the
// rest (each thread's heap, the results, the transforms' code) comes to 5
// to 15 MB on an hour-long set, and is left room here.
constexpr long long outsideTheCache = 24'000'000;

struct Candidate {
    double start;
    float score;
    int anchor;
};

struct Cluster {
    double start;
    float support;
    float best;
    int anchor;
    std::set<int> anchors;
    float value = 0;
};

double overlap(double aStart, double aEnd, double bStart, double bEnd) {
    return std::min(aEnd, bEnd) - std::max(aStart, bStart);
}

// Everything one placement run knows; lives for one call of `place`.
class Placer {
public:
    Placer(std::vector<Entry>& entries, const Progress& progress, const Options& options)
        : e_(entries), progress_(progress), options_(options),
          cache_(std::max(options.spectrumBudget - outsideTheCache, options.spectrumBudget / 2)),
          start_(entries.size()), score_(entries.size()), anchor_(entries.size(), -1) {}

    void run() {
        const int count = static_cast<int>(e_.size());
        std::vector<int> order(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) order[static_cast<size_t>(i)] = i;
        std::stable_sort(order.begin(), order.end(),
                         [&](int a, int b) { return e_[a].signal.size() > e_[b].signal.size(); });

        int reference = order.front();
        for (int i : order) {
            if (e_[i].kind == SourceKind::audio) {
                reference = i;
                break;
            }
        }
        start_[reference] = 0.0;
        placedCount_ = 1;

        for (bool strict : {true, false}) {
            bool placedSome = true;
            while (placedSome) {
                placedSome = false;
                for (size_t k = 0; k < order.size(); ++k) {
                    int u = order[k];
                    if (start_[u]) continue;
                    prepareSweepRest(order, k);
                    if (tryPlace(u, strict)) {
                        placedSome = true;
                        ++placedCount_;
                    }
                }
            }
        }
    }

    const std::optional<double>& start(int i) const { return start_[i]; }
    std::optional<float> score(int i) const { return score_[i]; }
    int anchor(int i) const { return anchor_[i]; }
    bool ambiguous(int i) const { return ambiguous_.count(i) > 0; }
    int spectraComputed() const { return cache_.computed(); }
    long long budgetPeak() const { return cache_.peakBytes(); }

private:
    double duration(int i) const { return e_[i].item.duration; }

    std::vector<int> anchorsOf(int u) const {
        std::vector<int> anchors;
        for (size_t p = 0; p < e_.size(); ++p)
            if (start_[p] && e_[p].sourceIndex != e_[u].sourceIndex) anchors.push_back(static_cast<int>(p));
        return anchors;
    }

    // Every file still unplaced from position k of this sweep on will be
    // tried against at least today's anchors, so all those pairs are needed:
    // they are computed now in one batch, on all cores, rather than a few at
    // a time. Nothing is computed that the sweep would not ask for.
    void prepareSweepRest(const std::vector<int>& order, size_t k) {
        std::vector<std::pair<int, int>> pairs;
        for (size_t i = k; i < order.size(); ++i) {
            int u = order[i];
            if (start_[u]) continue;
            for (int p : anchorsOf(u)) pairs.emplace_back(u, p);
        }
        ensurePairs(pairs);
    }

    // Each pair is correlated once per run; the missing ones in parallel,
    // the largest transforms first so that no thread is left with a big
    // one at the end. Results land in their own slot: timing changes nothing.
    void ensurePairs(const std::vector<std::pair<int, int>>& pairs) {
        std::vector<std::pair<int, int>> missing;
        for (const auto& pair : pairs)
            if (!matches_.count(pair)) missing.push_back(pair);
        auto size = [&](const std::pair<int, int>& q) { return e_[q.first].signal.size() + e_[q.second].signal.size(); };
        std::stable_sort(missing.begin(), missing.end(), [&](const auto& a, const auto& b) { return size(a) > size(b); });
        // Plans are made here, on one thread, so that the memory they hold
        // is measured exactly and counted in the budget.
        for (const auto& pair : missing) cache_.correlator(static_cast<int>(size(pair)));
        std::vector<std::vector<Match>> found(missing.size());
        int threads = options_.threads > 0 ? options_.threads : defaultThreads();
        parallelFor(static_cast<int>(missing.size()), threads, [&](int k) {
            const auto& [u, p] = missing[static_cast<size_t>(k)];
            found[static_cast<size_t>(k)] = correlate(u, p);
        });
        for (size_t k = 0; k < missing.size(); ++k) matches_[missing[k]] = std::move(found[k]);
        if (options_.stats) options_.stats->correlations += static_cast<int>(missing.size());
    }

    std::vector<Match> correlate(int u, int p) {
        const auto& su = e_[u].signal;
        const auto& sp = e_[p].signal;
        auto correlator = cache_.correlator(static_cast<int>(su.size() + sp.size()));
        if (!correlator) return {};  // no FFT for that size: the pair has no match
        auto cu = cache_.spectrum(u, su, *correlator);
        auto cp = cache_.spectrum(p, sp, *correlator);
        if (!cu || !cp) return {};
        int minOverlap = static_cast<int>(std::min(std::min(su.size(), sp.size()) / 2, size_t{20000}));
        fft::Buffer scratch = cache_.borrowScratch(correlator->n());
        auto matches = correlator->correlate(*cu, *cp, minOverlap, minScore, maxPeaks, separation, &scratch);
        cache_.returnScratch(std::move(scratch));
        return matches;
    }

    bool overlapsSibling(int u, double s) const {
        for (size_t q = 0; q < e_.size(); ++q) {
            if (static_cast<int>(q) == u || !start_[q] || e_[q].sourceIndex != e_[u].sourceIndex) continue;
            double o = overlap(*start_[q], *start_[q] + duration(static_cast<int>(q)), s, s + duration(u));
            if (o > siblingOverlap) return true;
        }
        return false;
    }

    std::optional<double> expectedStart(int u) const {
        const auto& date = e_[u].item.recordedAt;
        if (!date) return std::nullopt;
        for (size_t q = 0; q < e_.size(); ++q) {
            if (static_cast<int>(q) == u || !start_[q] || e_[q].sourceIndex != e_[u].sourceIndex) continue;
            const auto& sibling = e_[q].item.recordedAt;
            if (!sibling) continue;
            return *start_[q] + std::chrono::duration<double>(*date - *sibling).count();
        }
        return std::nullopt;
    }

    void trace(int u, bool strict, const std::vector<Candidate>& candidates) const {
        std::string line = strict ? "[strict] " : "[souple] ";
        line += e_[u].item.fileName();
        line += ":";
        for (const auto& c : candidates) {
            line.push_back(' ');
            line += cformat("%.2f(%.0f,%s)", c.start, static_cast<double>(c.score),
                                  e_[c.anchor].item.fileName().c_str());
        }
        std::fprintf(stderr, "%s\n", line.c_str());
    }

    bool tryPlace(int u, bool strict) {
        std::vector<int> anchors = anchorsOf(u);
        if (progress_)
            progress_(0.5 + static_cast<double>(placedCount_) / static_cast<double>(e_.size()) * 0.5,
                      "Calage de " + e_[u].item.fileName());
        std::vector<std::pair<int, int>> pairs;
        for (int p : anchors) pairs.emplace_back(u, p);
        ensurePairs(pairs);

        std::vector<Candidate> candidates;
        for (int p : anchors) {
            for (const Match& m : matches_.at({u, p})) {
                if (m.score < minScore) continue;
                double s = *start_[p] - m.lag / rate;
                if (!overlapsSibling(u, s)) candidates.push_back({s, m.score, p});
            }
        }
        if (options_.trace) trace(u, strict, candidates);
        if (candidates.empty()) return false;

        std::stable_sort(candidates.begin(), candidates.end(),
                         [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
        std::vector<Cluster> clusters;
        for (const auto& c : candidates) {
            auto home = std::find_if(clusters.begin(), clusters.end(),
                                     [&](const Cluster& k) { return std::fabs(k.start - c.start) < clusterWidth; });
            if (home == clusters.end()) {
                clusters.push_back({c.start, c.score, c.score, c.anchor, {c.anchor}});
            } else if (home->anchors.insert(c.anchor).second) {
                home->support += c.score;  // one vote per anchor
            }
        }

        for (auto& k : clusters) {
            int silent = 0;
            for (int p : anchors) {
                if (k.anchors.count(p)) continue;
                double need = std::min(silenceFloor, 0.5 * std::min(duration(p), duration(u)));
                double o = overlap(*start_[p], *start_[p] + duration(p), k.start, k.start + duration(u));
                if (o >= need) ++silent;
            }
            float a = static_cast<float>(k.anchors.size());
            k.value = a * k.support / (a + static_cast<float>(silent));
        }

        if (auto expected = expectedStart(u)) {
            const Cluster* chosen = nullptr;
            for (const auto& k : clusters) {
                if (std::fabs(k.start - *expected) < clockWindow && (!chosen || k.support > chosen->support))
                    chosen = &k;
            }
            if (chosen) {
                placeFrom(u, *chosen, false);
                return true;
            }
        }

        std::vector<const Cluster*> ranked;
        for (const auto& k : clusters) ranked.push_back(&k);
        std::stable_sort(ranked.begin(), ranked.end(),
                         [](const Cluster* a, const Cluster* b) { return a->value > b->value; });
        float leader = ranked[0]->value;
        float runnerUp = ranked.size() > 1 ? ranked[1]->value : 0.0f;
        bool clear = runnerUp < leader * clearMargin;
        if (!clear && strict) return false;  // wait for more anchors
        placeFrom(u, *ranked[0], !clear);
        return true;
    }

    void placeFrom(int u, const Cluster& k, bool isAmbiguous) {
        start_[u] = k.start;
        score_[u] = k.best;
        anchor_[u] = k.anchor;
        if (isAmbiguous) ambiguous_.insert(u);
    }

    std::vector<Entry>& e_;
    const Progress& progress_;
    const Options& options_;
    SpectrumCache cache_;
    std::vector<std::optional<double>> start_;
    std::vector<std::optional<float>> score_;
    std::vector<int> anchor_;
    std::set<int> ambiguous_;
    std::map<std::pair<int, int>, std::vector<Match>> matches_;
    int placedCount_ = 0;
};

}  // namespace

Options defaultOptions() {
    Options o;
    o.trace = std::getenv("QUORVEL_DEBUG") != nullptr;
    o.primary = AudioLoader::loadWithLibav;
    o.fallback = AudioLoader::loadWithFFmpeg;
    return o;
}

SyncResult place(std::vector<Entry> entries, std::vector<UnsyncedItem> unsynced, const Progress& progress,
                 const Options& options) {
    SyncResult result;
    result.unsynced = std::move(unsynced);
    if (entries.empty()) {
        if (progress) progress(1.0, "Synchronisation terminée");
        return result;
    }
    auto t0 = std::chrono::steady_clock::now();
    Placer placer(entries, progress, options);
    placer.run();
    if (options.stats) {
        options.stats->placeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        options.stats->spectra = placer.spectraComputed();
        options.stats->budgetPeak = placer.budgetPeak();
    }

    double earliest = INFINITY;
    for (size_t i = 0; i < entries.size(); ++i)
        if (placer.start(static_cast<int>(i))) earliest = std::min(earliest, *placer.start(static_cast<int>(i)));

    std::vector<std::string> names;
    for (const auto& e : entries) names.push_back(e.item.fileName());
    for (size_t i = 0; i < entries.size(); ++i) {
        int k = static_cast<int>(i);
        Entry& e = entries[i];
        if (!placer.start(k)) {
            result.unsynced.push_back({e.sourceIndex, std::move(e.item)});
            continue;
        }
        PlacedItem p;
        p.sourceIndex = e.sourceIndex;
        p.start = *placer.start(k) - earliest;
        p.score = placer.score(k);
        if (placer.anchor(k) >= 0) p.anchorName = names[static_cast<size_t>(placer.anchor(k))];
        p.ambiguous = placer.ambiguous(k);
        p.waveform = Envelopes::waveform(e.signal);
        p.bass = Envelopes::bassEnvelope(e.signal);
        p.item = std::move(e.item);
        result.placed.push_back(std::move(p));
    }
    if (progress) progress(1.0, "Synchronisation terminée");
    std::stable_sort(result.placed.begin(), result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    return result;
}

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress) {
    return run(sources, progress, defaultOptions());
}

std::vector<std::vector<float>> decodeAll(const std::vector<const MediaItem*>& items, const Options& options,
                                          const Progress& progress) {
    Loader primary = options.primary ? options.primary : Loader(AudioLoader::loadWithLibav);
    Loader fallback = options.fallback ? options.fallback : Loader(AudioLoader::loadWithFFmpeg);
    // Longest files first, so that no core is left alone with a long one at
    // the end; each result lands in its own slot, so the order changes nothing.
    std::vector<int> order(items.size());
    for (size_t i = 0; i < items.size(); ++i) order[i] = static_cast<int>(i);
    auto duration = [&](int i) { return items[static_cast<size_t>(i)]->duration; };
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return duration(a) > duration(b); });

    std::vector<std::vector<float>> signals(items.size());
    std::mutex progressLock;
    int started = 0;
    int threads = options.threads > 0 ? options.threads : defaultThreads();
    parallelFor(static_cast<int>(items.size()), threads, [&](int k) {
        const size_t i = static_cast<size_t>(order[static_cast<size_t>(k)]);
        const MediaItem& item = *items[i];
        {
            std::lock_guard<std::mutex> guard(progressLock);
            double n = static_cast<double>(std::max<size_t>(items.size(), 1));
            if (progress) progress(started / n * 0.5, "Lecture du son : " + item.fileName());
            ++started;
        }
        if (item.audioChannels < 1) return;
        auto signal = primary(item.url);
        if (!signal || signal->empty()) signal = fallback(item.url);
        if (signal && !signal->empty()) signals[i] = std::move(*signal);
    });
    return signals;
}

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress, const Options& options) {
    struct Job {
        int sourceIndex;
        SourceKind kind;
        const MediaItem* item;
    };
    std::vector<Job> jobs;
    std::vector<const MediaItem*> items;
    for (size_t s = 0; s < sources.size(); ++s)
        for (const auto& item : sources[s].items) {
            jobs.push_back({static_cast<int>(s), sources[s].kind, &item});
            items.push_back(&item);
        }

    auto t0 = std::chrono::steady_clock::now();
    std::vector<std::vector<float>> signals = decodeAll(items, options, progress);
    memory::returnFreeMemory();  // what the decoders freed, before the spectra need room
    if (options.stats)
        options.stats->decodeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    std::vector<Entry> entries;
    std::vector<UnsyncedItem> unsynced;
    for (size_t i = 0; i < jobs.size(); ++i) {
        if (signals[i].size() >= shortestSignal)
            entries.push_back({jobs[i].sourceIndex, jobs[i].kind, *jobs[i].item, std::move(signals[i])});
        else
            unsynced.push_back({jobs[i].sourceIndex, *jobs[i].item});
    }
    return place(std::move(entries), std::move(unsynced), progress, options);
}

}  // namespace qv::FolderSync
