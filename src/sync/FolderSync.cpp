#include "sync/FolderSync.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>

#include "base/Parallel.h"
#include "platform/Memory.h"
#include "sync/AudioLoader.h"
#include "sync/Envelopes.h"
#include "sync/Placer.h"

namespace qv::FolderSync {

namespace {

constexpr size_t shortestSignal = 2001;

bool stopped(const Options& options) { return options.stop && options.stop->load(std::memory_order_relaxed); }

// The stream and channels that carry a file's sound: the first stream with
// sound in it, and of its channels those within 60 dB of its loudest (all
// of them, as the file mixes them, when none is left out).
SoundPick pickFrom(const media::SoundLevels& levels) {
    constexpr float floor = 1e-5f;  // -100 dB: digital silence, or nearly
    SoundPick pick;
    for (size_t s = 0; s < levels.streams.size(); ++s) {
        const auto& channels = levels.streams[s];
        const float loudest = channels.empty() ? 0.0f : *std::max_element(channels.begin(), channels.end());
        if (loudest < floor) continue;
        pick.stream = static_cast<int>(s);
        uint64_t mask = 0;
        for (size_t c = 0; c < channels.size() && c < 64; ++c)
            if (channels[c] >= std::max(floor, loudest * 1e-3f)) mask |= uint64_t{1} << c;
        const bool all = channels.size() <= 64 && mask == (channels.size() == 64 ? ~uint64_t{0} : (uint64_t{1} << channels.size()) - 1);
        pick.channels = all ? 0 : mask;
        break;
    }
    return pick;
}

double loudness(const std::vector<float>& signal) {
    double sum = 0;
    for (float v : signal) sum += static_cast<double>(v) * v;
    return signal.empty() ? 0 : sum / static_cast<double>(signal.size());
}

// Which members of each take are heard: the one with the most channels
// (the mix), the loudest of those (not its safety copy).
std::vector<bool> heardMembers(const std::vector<Entry>& entries, const Placer& placer) {
    std::vector<bool> heard(entries.size(), true);
    for (size_t i = 0; i < entries.size(); ++i) {
        const int k = static_cast<int>(i);
        if (!placer.take(k)) continue;
        int best = -1;
        for (int m : placer.members(k)) {
            if (!placer.start(m)) continue;
            if (best < 0) {
                best = m;
                continue;
            }
            const MediaItem &a = entries[static_cast<size_t>(m)].item, &b = entries[static_cast<size_t>(best)].item;
            if (a.audioChannels != b.audioChannels ? a.audioChannels > b.audioChannels
                                                   : loudness(entries[static_cast<size_t>(m)].signal) >
                                                         loudness(entries[static_cast<size_t>(best)].signal))
                best = m;
        }
        heard[i] = best == k;
    }
    return heard;
}

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
    if (stopped(options)) return {};
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
    auto candidatesOf = [&](int k) {
        std::vector<SyncCandidate> out = placer.candidates(k);
        for (auto& c : out) c.start -= earliest;
        return out;
    };
    // Lane names need every member's name, so they are taken before the
    // items move into the result.
    const std::vector<bool> heard = heardMembers(entries, placer);
    std::vector<std::string> lanes(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        const int k = static_cast<int>(i);
        if (!placer.take(k)) continue;
        std::vector<const MediaItem*> take;
        for (int m : placer.members(k)) take.push_back(&entries[static_cast<size_t>(m)].item);
        lanes[i] = FileGroups::laneName(entries[i].item, take);
    }
    std::vector<std::filesystem::path> urls;
    for (const auto& e : entries) urls.push_back(e.item.url);
    for (size_t i = 0; i < entries.size(); ++i) {
        int k = static_cast<int>(i);
        Entry& e = entries[i];
        if (!placer.start(k)) {
            const std::string& why = placer.reason(k);
            result.unsynced.push_back(
                {e.sourceIndex, std::move(e.item), why.empty() ? placing::noCommonSound : why, candidatesOf(k)});
            continue;
        }
        PlacedItem p;
        p.sourceIndex = e.sourceIndex;
        p.start = *placer.start(k) - earliest;
        p.score = placer.score(k);
        if (placer.anchor(k) >= 0) p.anchorName = names[static_cast<size_t>(placer.anchor(k))];
        p.ambiguous = placer.ambiguous(k);
        p.drift = placer.drift(k);
        p.candidates = candidatesOf(k);
        p.waveform = Envelopes::waveform(e.signal);
        p.bass = Envelopes::bassEnvelope(e.signal);
        p.take = placer.take(k);
        p.lane = lanes[i];
        p.heard = heard[i];
        if (placer.follows(k) >= 0) p.follows = urls[static_cast<size_t>(placer.follows(k))];
        p.sound = pickFrom(e.levels);
        p.placedBy = placer.placedBy(k);
        p.item = std::move(e.item);
        result.placed.push_back(std::move(p));
    }
    // Take numbers from 1 in the result's own order, whatever the run used.
    std::map<int, int> renumber;
    for (auto& p : result.placed)
        if (p.take) p.take = renumber.emplace(p.take, static_cast<int>(renumber.size()) + 1).first->second;
    if (progress) progress(1.0, "Synchronisation terminée");
    std::stable_sort(result.placed.begin(), result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    return result;
}

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress) {
    return run(sources, progress, defaultOptions());
}

std::vector<std::vector<float>> decodeAll(const std::vector<const MediaItem*>& items, const Options& options,
                                          const Progress& progress, std::vector<media::SoundLevels>* levels) {
    Loader primary = options.primary ? options.primary : Loader(AudioLoader::loadWithLibav);
    Loader fallback = options.fallback ? options.fallback : Loader(AudioLoader::loadWithFFmpeg);
    // Longest files first, so that no core is left alone with a long one at
    // the end; each result lands in its own slot, so the order changes nothing.
    std::vector<int> order(items.size());
    for (size_t i = 0; i < items.size(); ++i) order[i] = static_cast<int>(i);
    auto duration = [&](int i) { return items[static_cast<size_t>(i)]->duration; };
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return duration(a) > duration(b); });

    std::vector<std::vector<float>> signals(items.size());
    if (levels) levels->assign(items.size(), {});
    std::mutex progressLock;
    int started = 0;
    // A decoder holds its file's sound at the first road's rate until it is
    // reduced: 115 MB for a three-hour file. As many files decode at once as
    // the budget holds, however many cores there are (one at least).
    std::mutex roomLock;
    std::condition_variable roomFreed;
    long long inFlight = 0;
    auto cost = [&](int i) {
        return static_cast<long long>(std::min(duration(i), 86400.0 * 7) * AudioLoader::decodeRate * sizeof(float));
    };
    int threads = options.threads > 0 ? options.threads : defaultThreads();
    parallelFor(static_cast<int>(items.size()), threads, [&](int k) {
        if (stopped(options)) return;
        const int index = order[static_cast<size_t>(k)];
        const size_t i = static_cast<size_t>(index);
        const MediaItem& item = *items[i];
        {
            std::lock_guard<std::mutex> guard(progressLock);
            double n = static_cast<double>(std::max<size_t>(items.size(), 1));
            if (progress) progress(started / n * 0.5, "Lecture du son : " + item.fileName());
            ++started;
        }
        if (item.audioChannels < 1) return;
        const long long need = cost(index);
        {
            std::unique_lock<std::mutex> lock(roomLock);
            roomFreed.wait(lock, [&] { return inFlight == 0 || inFlight + need <= options.spectrumBudget; });
            inFlight += need;
        }
        media::SoundLevels found;
        auto signal = primary(item.url, &found);
        if (!signal || signal->empty()) signal = fallback(item.url, &found);
        if (signal && !signal->empty()) signals[i] = std::move(*signal);
        if (levels) (*levels)[i] = std::move(found);
        {
            std::lock_guard<std::mutex> guard(roomLock);
            inFlight -= need;
        }
        roomFreed.notify_all();
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
    std::vector<media::SoundLevels> levels;
    std::vector<std::vector<float>> signals = decodeAll(items, options, progress, &levels);
    if (stopped(options)) return {};
    memory::returnFreeMemory();  // what the decoders freed, before the spectra need room
    if (options.stats)
        options.stats->decodeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    std::vector<Entry> entries;
    std::vector<UnsyncedItem> unsynced;
    for (size_t i = 0; i < jobs.size(); ++i) {
        if (signals[i].size() >= shortestSignal)
            entries.push_back({jobs[i].sourceIndex, jobs[i].kind, *jobs[i].item, std::move(signals[i]), std::move(levels[i])});
        else
            unsynced.push_back({jobs[i].sourceIndex, *jobs[i].item, "pas de son utilisable"});
    }
    return place(std::move(entries), std::move(unsynced), progress, options);
}

}  // namespace qv::FolderSync
