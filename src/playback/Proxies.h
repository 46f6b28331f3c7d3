// Proxies: small copies of the camera files (640 pixels wide, light H.264)
// that the preview decodes instead of heavy originals. They are made in
// chunks of a few seconds, starting where the user is and spreading out, so
// the preview gets lighter where it is looked at first. Chunks live in
// $XDG_CACHE_HOME/quorvel/proxies under a key of the original's path, size
// and date, so they are reused across runs, and a changed original makes
// its old chunks stale and removed. Deleting the folder loses nothing: the
// finished video and the XML always use the originals.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/Result.h"
#include "platform/ProxyWriter.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv {

class ProxyCache {
public:
    // Length of a preview chunk on the original's time line. The length of
    // a cache's chunks is part of the key, so a change of length never
    // mixes chunks of two cuttings.
    static constexpr double chunkSeconds = 4;
    // A chunk length for copies made whole: one chunk per file.
    static constexpr double wholeFile = std::numeric_limits<double>::infinity();

    explicit ProxyCache(std::filesystem::path folder = defaultFolder(), double chunkLength = chunkSeconds);
    static std::filesystem::path defaultFolder();
    const std::filesystem::path& folder() const { return folder_; }
    double chunkLength() const { return chunkLength_; }

    // The name the chunks of `file` as it is now share; nothing when the
    // file cannot be queried (gone, unreadable).
    std::optional<std::string> stem(const std::filesystem::path& file) const;
    std::filesystem::path chunkPath(const std::string& stem, int index) const;
    // Chunk `index` of `file` when it has been made from the file as it is now.
    std::optional<std::filesystem::path> findChunk(const std::filesystem::path& file, int index) const;
    // Whether chunk `index` of the file of `stem` is there, not empty.
    bool hasChunk(const std::string& stem, int index) const;
    // Chunks covering a file of `duration` seconds (at least one).
    int chunkCount(double duration) const;
    // The chunk holding `fileTime` (a time a microsecond short of an edge
    // belongs to the later chunk, as the readers round).
    int chunkAt(double fileTime) const;
    // Where chunk `index` starts on the original's time line.
    double chunkStart(int index) const { return index == 0 ? 0.0 : index * chunkLength_; }
    // Removes the chunks of `file` made from an earlier state of it.
    void removeStale(const std::filesystem::path& file) const;

private:
    std::filesystem::path folder_;
    double chunkLength_;
};

// Pictures of 4K and more (wider than 2560 on their long side): their
// preview copies are essential, and until one is made a tile only glances
// at the original's key frames.
inline bool fourK(int width, int height) { return std::max(width, height) > 2560; }

// A camera file worth a proxy, where it stands on the set's time line.
struct ProxyFile {
    std::filesystem::path path;
    double at = 0;
    double duration = 0;
    bool fourK = false;
};

// What a maker will still write, safe to ask from any thread and outliving
// the maker: the picture analysis waits on it for the files it would rather
// read from their chunks than decode whole a second time.
class ProxyOutlook {
public:
    // Whether chunks of `file` are still to come.
    bool coming(const std::filesystem::path& file) const {
        std::lock_guard guard(lock_);
        return std::find(coming_.begin(), coming_.end(), file) != coming_.end();
    }
    void set(std::vector<std::filesystem::path> coming) {
        std::lock_guard guard(lock_);
        coming_ = std::move(coming);
    }

private:
    mutable std::mutex lock_;
    std::vector<std::filesystem::path> coming_;
};

// Makes the missing chunks of a list of files on worker threads of the
// lowest priority, always the chunk nearest the play head first: the chunks
// under the head for every file, then outward in steps of a chunk's length,
// the way ahead counting half the way behind (the user plays forward). Once
// everything under the head is made, a worker goes on with the file it has
// open while its next chunk is at most two steps further out than the
// nearest one: that spares a seek and the decoding up to the chunk's start.
// A jump of the head (a seek, not play moving on) abandons the chunks being
// made elsewhere when some under the new head are missing.
//
// The workers follow the machine: all its cores but one while nothing plays
// (two on a machine of two, since at the lowest priority the second costs
// the interface nothing), and while playing as many as the player leaves
// idle, one at least. The first worker runs at nice 19 beside the tiles, so
// one chunk always advances; the others only on cores nothing else wants.
// A chunk is written under a temporary name and renamed when whole, so a
// half-made one is never read.
//
// Failures never stop the preview, they only leave originals playing: a file
// that cannot be read (gone, changed, damaged) is given up with one line in
// the log; a folder that cannot be written (full, forbidden) stops the
// making for good, with one line in the log.
//
// The owner's thread calls everything; workers only call `wakeup` and `log`.
class ProxyMaker {
public:
    // Writes chunks of one original in turn: the pictures of [from, to) of
    // its time line to `out`. Made once per file a worker takes up.
    using ChunkWriter = std::function<media::ChunkOutcome(const std::filesystem::path& out, double from, double to,
                                                          const std::atomic<bool>& cancel)>;
    using OpenWriter = std::function<Result<ChunkWriter>(const std::filesystem::path& original)>;

    struct Options {
        int cores = 0;  // the machine's cores; 0: as the system says
        std::function<void()> wakeup;                  // after each chunk, from a worker
        std::function<void(const std::string&)> log;   // one French line per failure
    };

    struct Progress {
        int done = 0;   // chunks made or given up
        int total = 0;
        bool finished = true;
        std::vector<std::filesystem::path> failed;  // files given up: these play from their originals
        bool folderFailed = false;                  // nothing more can be written
    };

    // The camera files of `result` wider than `proxyWidth` and without a
    // light copy of their camera's own, in the order of their sources, each
    // where its picture stands on the time line.
    static std::vector<ProxyFile> candidates(const std::vector<MediaSource>& sources, const SyncResult& result,
                                             int proxyWidth = media::ProxyOptions{}.width);

    // Workers at work on a machine of `cores`, while playing or not, the
    // player taking `playerLoad` cores (processor seconds per second).
    static int workersFor(int cores, bool playing, double playerLoad);

    ProxyMaker(ProxyCache cache, OpenWriter open, Options options);
    ~ProxyMaker();
    ProxyMaker(const ProxyMaker&) = delete;
    ProxyMaker& operator=(const ProxyMaker&) = delete;

    // Replaces any earlier list. Chunks already in the cache count as done;
    // stale ones of these files are removed.
    void start(std::vector<ProxyFile> files);
    // Where the user is on the set's time line, and whether it plays.
    void setPlayhead(double time, bool playing);
    // The cores the player takes while it plays, as last measured.
    void setPlayerLoad(double cores);
    // Processor seconds the workers have taken, chunk by chunk.
    double processorSeconds() const;

    Progress progress() const;
    // "Préparation de l'aperçu : {n} %" while working, "Aperçu 4K en
    // préparation : {n} %" while a 4K file still waits for chunks; else empty.
    std::string status() const;
    // Whether every file with a picture at `time` has its chunk there made
    // (or given up, so that its original plays).
    bool readyAround(double time) const;
    const ProxyCache& cache() const { return cache_; }
    std::shared_ptr<const ProxyOutlook> outlook() const { return outlook_; }

private:
    enum class Chunk : uint8_t { pending, working, made, givenUp };
    struct FileState {
        ProxyFile file;
        std::string stem;
        std::vector<Chunk> chunks;
        bool failed = false;
    };
    struct Job {
        int file = -1;
        int index = -1;
    };
    struct Worker {
        std::thread thread;
        std::atomic<bool> abort{false};  // its chunk is no longer wanted
        std::optional<Job> job;          // guarded by lock_
    };

    void stopWorkers();
    void work(Worker& self, int worker);
    // The step outward of chunk `index` of `f` from the head; lock held.
    int step(const FileState& f, int index, double* distance = nullptr) const;
    // The next chunk for a worker that has chunk `open` of file `openFile`
    // just written; lock held.
    std::optional<Job> pick(int openFile, int next) const;
    void giveUp(FileState& f, const std::string& line);  // lock held
    void givePendingUp(FileState& f);                    // lock held; the file is not counted failed
    // The chunk of `f` under set time t; null where the file has no picture.
    const Chunk* chunkUnder(const FileState& f, double t) const;
    void count(Chunk before, Chunk after);               // lock held
    void tellOutlook();                                  // lock held

    int allowed() const;  // workers that may work now; lock held

    ProxyCache cache_;
    OpenWriter open_;
    Options options_;
    std::atomic<double> cpu_{0};
    bool stopping_ = false;  // guarded by lock_
    mutable std::mutex lock_;
    std::condition_variable wake_;
    // Guarded by lock_:
    std::vector<FileState> files_;
    double head_ = 0;
    bool playing_ = false;
    double playerLoad_ = 0;
    Progress progress_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::shared_ptr<ProxyOutlook> outlook_ = std::make_shared<ProxyOutlook>();
};

}  // namespace qv
