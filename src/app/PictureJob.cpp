#include "app/PictureJob.h"

#include <chrono>

#include "persistence/PictureCache.h"
#include "platform/ThreadPriority.h"

namespace qv {

PictureJob::~PictureJob() { stop(); }

void PictureJob::stop() {
    if (stop_) stop_->store(true);
    if (worker_.joinable()) worker_.join();
    stop_.reset();
}

void PictureJob::start(const std::filesystem::path& folder, SyncResult result, std::vector<int> cameraSources,
                       std::function<void(double)> progress, std::function<void(analysis::MeasuresByPath)> done) {
    stop();
    auto stopping = std::make_shared<std::atomic<bool>>(false);
    stop_ = stopping;
    worker_ = std::thread([post = post_, stopping, folder, result = std::move(result),
                           cameras = std::move(cameraSources), progress = std::move(progress),
                           done = std::move(done)]() mutable {
        platform::yieldToOthers(19);
        analysis::MeasuresByPath known = PictureCache::load(folder).fresh();
        // Reported at most ten times a second: the footer needs no more.
        auto last = std::chrono::steady_clock::now() - std::chrono::seconds(1);
        auto measured = analysis::measureCameras(result, cameras, known, [&](double f) {
            const auto now = std::chrono::steady_clock::now();
            if (now - last >= std::chrono::milliseconds(100)) {
                last = now;
                post([progress, f] { progress(f); });
            }
            return !stopping->load();
        });
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
