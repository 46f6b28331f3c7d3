#include "app/ConformCopies.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "export/PremiereExport.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv::ConformCopies {

namespace {

// Visually lossless for 8-bit H.264, at a speed two cores can bear.
constexpr int copyQuality = 16;
const char* const copyPreset = "veryfast";

bool isVariableCamera(const std::vector<MediaSource>& sources, const PlacedItem& p) {
    return p.sourceIndex >= 0 && static_cast<size_t>(p.sourceIndex) < sources.size() &&
           sources[static_cast<size_t>(p.sourceIndex)].kind == SourceKind::camera && p.item.hasVideo &&
           p.item.picture.variableRate();
}

}  // namespace

fs::path defaultFolder() { return paths::cacheHome() / "quorvel" / "cadence-fixe"; }

ProxyCache cache(fs::path folder) { return ProxyCache(std::move(folder), ProxyCache::wholeFile); }

std::vector<ProxyFile> candidates(const std::vector<MediaSource>& sources, const SyncResult& result) {
    std::vector<ProxyFile> files;
    for (const PlacedItem& p : result.placed)
        if (isVariableCamera(sources, p)) files.push_back({p.item.url, p.start + p.pictureOffset, p.item.duration});
    return files;
}

std::vector<std::string> names(const std::vector<MediaSource>& sources, const SyncResult& result) {
    std::vector<std::string> out;
    for (const PlacedItem& p : result.placed)
        if (isVariableCamera(sources, p))
            out.push_back(sources[static_cast<size_t>(p.sourceIndex)].name + "/" + p.item.fileName());
    return out;
}

ProxyMaker::OpenWriter encoder(std::map<fs::path, double> rates, std::shared_ptr<std::atomic<double>> share) {
    return [rates = std::move(rates), share](const fs::path& original) -> Result<ProxyMaker::ChunkWriter> {
        media::ProxyOptions options;
        options.width = 0;
        options.crf = copyQuality;
        options.preset = copyPreset;
        options.lightDecode = false;
        options.threads = 2;
        auto rate = rates.find(original);
        const auto standard = PremiereExport::SequenceRate::closest(rate == rates.end() ? 0.0 : rate->second);
        options.rateNum = standard.ntsc ? standard.timebase * 1000 : standard.timebase;
        options.rateDen = standard.ntsc ? 1001 : 1;
        options.gop = standard.timebase;
        if (share) {
            *share = 0;
            options.progress = [share](double done) { *share = done; };
        }
        auto opened = media::ProxyWriter::open(original, options);
        if (!opened) return opened.error();
        // Shared so that the function stays copyable; one worker uses it.
        auto writer = std::make_shared<media::ProxyWriter>(std::move(opened).value());
        return ProxyMaker::ChunkWriter([writer](const fs::path& out, double from, double to,
                                                const std::atomic<bool>& cancel) {
            return writer->write(out, from, to, cancel);
        });
    };
}

std::map<fs::path, fs::path> existing(const ProxyCache& cache, const std::vector<ProxyFile>& files) {
    std::map<fs::path, fs::path> copies;
    for (const ProxyFile& f : files)
        if (auto copy = cache.findChunk(f.path, 0)) copies[f.path] = *copy;
    return copies;
}

std::map<fs::path, fs::path> makeNow(const ProxyCache& cache, const std::vector<MediaSource>& sources,
                                     const SyncResult& result, const std::function<void(double)>& progress,
                                     const std::function<void(const std::string&)>& log) {
    std::vector<ProxyFile> files = candidates(sources, result);
    std::map<fs::path, double> rates;
    for (const PlacedItem& p : result.placed) rates[p.item.url] = p.item.frameRate;
    auto share = std::make_shared<std::atomic<double>>(0.0);
    std::mutex lock;
    std::condition_variable changed;
    bool woken = false;
    ProxyMaker::Options options;
    options.workers = 1;
    options.wakeup = [&] {
        std::lock_guard guard(lock);
        woken = true;
        changed.notify_all();
    };
    options.log = log;
    ProxyMaker maker(cache, encoder(std::move(rates), share), std::move(options));
    maker.start(files);
    for (;;) {
        const ProxyMaker::Progress now = maker.progress();
        if (progress && now.total > 0) progress((now.done + (now.finished ? 0.0 : share->load())) / now.total);
        if (now.finished) break;
        // A chunk wakes us when done; the share under way is told every half second.
        std::unique_lock l(lock);
        changed.wait_for(l, std::chrono::milliseconds(500), [&] { return woken; });
        woken = false;
    }
    return existing(cache, files);
}

}  // namespace qv::ConformCopies
