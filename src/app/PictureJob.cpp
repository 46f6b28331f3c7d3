#include "app/PictureJob.h"

#include <chrono>

#include "persistence/PictureCache.h"
#include "playback/PreviewRoad.h"
#include "platform/ThreadPriority.h"

namespace qv {

PictureJob::~PictureJob() { stop(); }

void PictureJob::stop() {
    if (stop_) stop_->store(true);
    if (worker_.joinable()) worker_.join();
    stop_.reset();
}

void PictureJob::start(const std::filesystem::path& folder, SyncResult result, std::vector<int> cameraSources,
                       std::shared_ptr<const ProxyOutlook> previews, std::function<void(double, bool)> progress,
                       std::function<void(analysis::MeasuresByPath)> done) {
    stop();
    auto stopping = std::make_shared<std::atomic<bool>>(false);
    stop_ = stopping;
    worker_ = std::thread([post = post_, stopping, folder, result = std::move(result),
                           cameras = std::move(cameraSources), previews = std::move(previews),
                           progress = std::move(progress), done = std::move(done)]() mutable {
        platform::yieldToOthers(19);
        analysis::MeasuresByPath known = PictureCache::load(folder).fresh();
        const ProxyCache chunks;
        analysis::MeasureOptions options;
        options.roadOf = [&](const MediaItem& item) { return previewRoad(chunks, item, previews.get()); };
        // Chunks take seconds each: a look every half-second is enough.
        options.pause = [&] {
            for (int i = 0; i < 5 && !stopping->load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
        };
        // Reported at most ten times a second: the footer needs no more.
        auto last = std::chrono::steady_clock::now() - std::chrono::seconds(1);
        bool wasWaiting = false;
        options.progress = [&](double f, bool waiting) {
            const auto now = std::chrono::steady_clock::now();
            if (now - last >= std::chrono::milliseconds(100) || waiting != wasWaiting) {
                last = now;
                wasWaiting = waiting;
                post([progress, f, waiting] { progress(f, waiting); });
            }
            return !stopping->load();
        };
        auto measured = analysis::measureCameras(result, cameras, known, options);
        if (stopping->load()) return;
        // Only the files of this set are kept: a file gone from it leaves the cache.
        analysis::MeasuresByPath all;
        for (const PlacedItem& p : result.placed) {
            const std::string path = p.item.url.string();
            if (auto it = measured.find(path); it != measured.end()) all[path] = it->second;
            else if (auto old = known.find(path); old != known.end()) all[path] = old->second;
        }
        if (!measured.empty()) PictureCache::of(all).save(folder);
        post([done, all = std::move(all)]() mutable { done(std::move(all)); });
    });
}

}  // namespace qv
