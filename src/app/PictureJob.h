// PictureJob: the picture analysis of the open set, in the background after
// each synchronisation. One worker thread at the lowest priority (like the
// preview copies) takes the measures stored beside the sync cache for the
// files that have not changed, measures the others, stores the whole and
// hands it over. It never slows playback: every other thread of the program
// goes first. A file the player makes preview chunks of is read from them
// once they are all made (playback/PreviewRoad.h): the job waits for them
// rather than decode the original a second time beside the maker.
//
// Made and used on the main thread. The worker touches nothing of the
// model: its progress and result come back through `post`, which runs them
// on the main thread (or drops them once the model has gone).
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "analysis/CameraAnalysis.h"
#include "playback/Proxies.h"
#include "sync/SyncResult.h"

namespace qv {

class PictureJob {
public:
    using Post = std::function<void(std::function<void()>)>;

    explicit PictureJob(Post post) : post_(std::move(post)) {}
    // Stops the worker and waits for it; nothing more is posted.
    ~PictureJob();
    PictureJob(const PictureJob&) = delete;
    PictureJob& operator=(const PictureJob&) = delete;

    // Analyses the camera files of `result` (sources `cameraSources`) of the
    // set in `folder`, after stopping a run under way; `previews` tells which
    // chunks are still coming (none: no preview is being made). `progress`
    // gets the share done, 0 to 1, and whether the files left wait for their
    // chunks; `done` the measures of every file that could be read.
    void start(const std::filesystem::path& folder, SyncResult result, std::vector<int> cameraSources,
               std::shared_ptr<const ProxyOutlook> previews, std::function<void(double, bool)> progress,
               std::function<void(analysis::MeasuresByPath)> done);
    void stop();

private:
    Post post_;
    std::thread worker_;
    std::shared_ptr<std::atomic<bool>> stop_;
};

}  // namespace qv
