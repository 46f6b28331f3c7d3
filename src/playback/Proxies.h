// Proxies: small copies of the camera files (640 × 360 H.264 with a short
// GOP) that the preview decodes instead of 1080p or 4K originals. They live
// in $XDG_CACHE_HOME/quorvel/proxies under a key of the original's path,
// size and date, so they are reused across runs, and a changed original
// makes its old proxy stale and removed. Deleting the folder loses nothing:
// the finished video and the XML always use the originals.
#pragma once

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/Result.h"
#include "sync/Media.h"

namespace qv {

class ProxyCache {
public:
    explicit ProxyCache(std::filesystem::path folder = defaultFolder());
    static std::filesystem::path defaultFolder();
    const std::filesystem::path& folder() const { return folder_; }

    // Where the proxy of `file` as it is now belongs; nothing when the file
    // cannot be queried.
    std::optional<std::filesystem::path> pathFor(const std::filesystem::path& file) const;
    // The proxy of `file` when it has been made from the file as it is now.
    std::optional<std::filesystem::path> find(const std::filesystem::path& file) const;
    // Removes the proxies of `file` made from an earlier state of it.
    void removeStale(const std::filesystem::path& file) const;

private:
    std::filesystem::path folder_;
};

// Makes the missing proxies of a list of files, one after the other, on a
// thread of the lowest priority. `encode` writes a proxy of `in` to `out`
// and may stop early when `cancel` turns true. A proxy is written under a
// temporary name and renamed when whole, so a half-made one is never used.
// The owner's thread calls everything; the thread only calls `wakeup`.
class ProxyMaker {
public:
    // The camera files worth a proxy: those with a picture wider than one.
    static std::vector<std::filesystem::path> candidates(const std::vector<MediaSource>& sources, int proxyWidth = 640);

    using Encode = std::function<Status(const std::filesystem::path& in, const std::filesystem::path& out,
                                        const std::atomic<bool>& cancel)>;

    struct Progress {
        int done = 0;   // files handled, made or failed
        int total = 0;
        bool finished = true;
        std::vector<std::filesystem::path> failed;  // these play from their originals
    };

    ProxyMaker(ProxyCache cache, Encode encode, std::function<void()> wakeup = {});
    ~ProxyMaker();
    ProxyMaker(const ProxyMaker&) = delete;
    ProxyMaker& operator=(const ProxyMaker&) = delete;

    // Replaces any earlier list; files whose proxy is already there count as done.
    void start(std::vector<std::filesystem::path> files);
    Progress progress() const;
    // "Préparation de l'aperçu : {n}/{total}" while working, else empty.
    std::string status() const;
    const ProxyCache& cache() const { return cache_; }

private:
    void stopThread();
    void run(std::vector<std::filesystem::path> files);

    ProxyCache cache_;
    Encode encode_;
    std::function<void()> wakeup_;
    std::atomic<bool> cancel_{false};
    mutable std::mutex lock_;
    Progress progress_;  // guarded by lock_
    std::thread thread_;
};

}  // namespace qv
