#include "playback/Proxies.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <tuple>

#include "base/SystemError.h"
#include "base/Text.h"
#include "platform/Paths.h"
#include "platform/Processor.h"
#include "platform/ThreadPriority.h"
#include "playback/SourceTimeline.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

std::string hex(uint64_t v) {
    char text[17];
    auto end = std::to_chars(text, text + sizeof text, v, 16).ptr;
    return std::string(text, end);
}

std::string pathKey(const fs::path& file) {
    std::error_code ec;
    fs::path absolute = fs::absolute(file, ec);
    return hex(fnv1a((ec ? file : absolute).lexically_normal().string()));
}

}  // namespace

// ---------------------------------------------------------------- cache

ProxyCache::ProxyCache(fs::path folder, double chunkLength)
    : folder_(std::move(folder)), chunkLength_(chunkLength > 0 ? chunkLength : chunkSeconds) {}

fs::path ProxyCache::defaultFolder() { return paths::cacheHome() / "quorvel" / "proxies"; }

std::optional<std::string> ProxyCache::stem(const fs::path& file) const {
    std::error_code sizeError, timeError;
    auto size = fs::file_size(file, sizeError);
    auto modified = fs::last_write_time(file, timeError);
    if (sizeError || timeError) return std::nullopt;
    const std::string cutting =
        std::isfinite(chunkLength_) ? std::to_string(std::llround(chunkLength_ * 1000)) : std::string("whole");
    std::string state =
        std::to_string(size) + " " + std::to_string(modified.time_since_epoch().count()) + " chunks " + cutting;
    return pathKey(file) + "-" + hex(fnv1a(state));
}

fs::path ProxyCache::chunkPath(const std::string& stem, int index) const {
    return folder_ / (stem + "-" + std::to_string(index) + ".mp4");
}

bool ProxyCache::hasChunk(const std::string& stem, int index) const {
    const fs::path chunk = chunkPath(stem, index);
    std::error_code ec;
    return fs::is_regular_file(chunk, ec) && fs::file_size(chunk, ec) > 0;
}

std::optional<fs::path> ProxyCache::findChunk(const fs::path& file, int index) const {
    auto s = stem(file);
    if (!s || !hasChunk(*s, index)) return std::nullopt;
    return chunkPath(*s, index);
}

int ProxyCache::chunkCount(double duration) const {
    if (!std::isfinite(chunkLength_)) return 1;
    return std::max(1, static_cast<int>(std::ceil(duration / chunkLength_ - 1e-9)));
}

int ProxyCache::chunkAt(double fileTime) const {
    if (!std::isfinite(chunkLength_)) return 0;
    return std::max(0, static_cast<int>(std::floor((fileTime + 1e-6) / chunkLength_)));
}

void ProxyCache::removeStale(const fs::path& file) const {
    auto fresh = stem(file);
    const std::string prefix = pathKey(file) + "-";
    std::error_code ec;
    for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        if (name.rfind(prefix, 0) != 0 || (fresh && name.rfind(*fresh + "-", 0) == 0)) continue;
        std::error_code removeError;
        fs::remove(it->path(), removeError);
    }
}

// ---------------------------------------------------------------- maker

std::vector<ProxyFile> ProxyMaker::candidates(const std::vector<MediaSource>& sources, const SyncResult& result,
                                              int proxyWidth) {
    std::vector<ProxyFile> files;
    for (size_t s = 0; s < sources.size(); ++s) {
        if (sources[s].kind != SourceKind::camera) continue;
        SourceTimeline line = SourceTimeline::of(result, static_cast<int>(s), 0, true);
        for (const TimelinePiece& piece : line.pieces)
            // A chapter with its camera's own light copy needs none made.
            if (piece.video && piece.item.previewCopy.empty() &&
                std::max(piece.item.width, piece.item.height) > proxyWidth)
                files.push_back({piece.item.url, piece.at + piece.pictureOffset, piece.duration,
                                 fourK(piece.item.width, piece.item.height)});
    }
    return files;
}

int ProxyMaker::workersFor(int cores, bool playing, double playerLoad) {
    cores = std::max(1, cores);
    const int still = cores <= 2 ? cores : cores - 1;
    if (!playing) return still;
    const int idle = static_cast<int>(std::floor(cores - std::max(0.0, playerLoad) + 1e-9));
    return std::clamp(idle, 1, still);
}

ProxyMaker::ProxyMaker(ProxyCache cache, OpenWriter open, Options options)
    : cache_(std::move(cache)), open_(std::move(open)), options_(std::move(options)) {
    if (options_.cores <= 0) options_.cores = platform::processorCores();
}

int ProxyMaker::allowed() const { return workersFor(options_.cores, playing_, playerLoad_); }

void ProxyMaker::setPlayerLoad(double cores) {
    {
        std::lock_guard guard(lock_);
        if (cores == playerLoad_) return;
        playerLoad_ = cores;
    }
    wake_.notify_all();
}

double ProxyMaker::processorSeconds() const { return cpu_.load(); }

ProxyMaker::~ProxyMaker() { stopWorkers(); }

void ProxyMaker::stopWorkers() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
        for (auto& w : workers_) w->abort = true;
    }
    wake_.notify_all();
    for (auto& w : workers_) w->thread.join();
    std::lock_guard guard(lock_);
    workers_.clear();
    stopping_ = false;
    outlook_->set({});
}

void ProxyMaker::tellOutlook() {
    std::vector<fs::path> coming;
    if (!progress_.folderFailed)
        for (const FileState& f : files_)
            if (!f.failed && std::any_of(f.chunks.begin(), f.chunks.end(),
                                         [](Chunk c) { return c == Chunk::pending || c == Chunk::working; }))
                coming.push_back(f.file.path);
    outlook_->set(std::move(coming));
}

void ProxyMaker::count(Chunk before, Chunk after) {
    auto finished = [](Chunk c) { return c == Chunk::made || c == Chunk::givenUp; };
    progress_.done += static_cast<int>(finished(after)) - static_cast<int>(finished(before));
    progress_.finished = progress_.done == progress_.total;
}

void ProxyMaker::givePendingUp(FileState& f) {
    for (Chunk& c : f.chunks) {
        if (c != Chunk::pending) continue;
        count(c, Chunk::givenUp);
        c = Chunk::givenUp;
    }
}

const ProxyMaker::Chunk* ProxyMaker::chunkUnder(const FileState& f, double t) const {
    if (t < f.file.at || t >= f.file.at + f.file.duration || f.chunks.empty()) return nullptr;
    const int k = std::min(cache_.chunkAt(t - f.file.at), static_cast<int>(f.chunks.size()) - 1);
    return &f.chunks[static_cast<size_t>(k)];
}

void ProxyMaker::giveUp(FileState& f, const std::string& line) {
    givePendingUp(f);
    if (f.failed) return;
    f.failed = true;
    progress_.failed.push_back(f.file.path);
    if (options_.log && !line.empty()) options_.log(line);
}

void ProxyMaker::start(std::vector<ProxyFile> files) {
    stopWorkers();
    std::vector<FileState> states;
    std::vector<std::string> lines;
    std::error_code ec;
    const bool folderMade = fs::create_directories(cache_.folder(), ec) || fs::is_directory(cache_.folder(), ec);
    for (ProxyFile& file : files) {
        FileState f;
        f.file = std::move(file);
        f.chunks.assign(static_cast<size_t>(cache_.chunkCount(f.file.duration)), Chunk::pending);
        if (auto stem = cache_.stem(f.file.path)) {
            f.stem = *stem;
            cache_.removeStale(f.file.path);
            for (size_t k = 0; k < f.chunks.size(); ++k)
                if (cache_.hasChunk(f.stem, static_cast<int>(k))) f.chunks[k] = Chunk::made;
        }
        states.push_back(std::move(f));
    }
    std::unique_lock l(lock_);
    files_ = std::move(states);
    progress_ = Progress{};
    for (const FileState& f : files_) {
        progress_.total += static_cast<int>(f.chunks.size());
        progress_.done += static_cast<int>(std::count(f.chunks.begin(), f.chunks.end(), Chunk::made));
    }
    progress_.finished = progress_.done == progress_.total;
    for (FileState& f : files_) {
        if (f.stem.empty())
            giveUp(f, "Aperçu : " + f.file.path.filename().string() + " est introuvable ; sa copie n'est pas faite.");
    }
    if (!folderMade && !progress_.finished) {
        progress_.folderFailed = true;
        for (FileState& f : files_) giveUp(f, {});
        if (options_.log)
            options_.log("Aperçu : impossible de créer le dossier " + cache_.folder().string() +
                         " ; les originaux sont lus.");
    }
    tellOutlook();
    if (progress_.finished) return;
    for (int w = 0, n = workersFor(options_.cores, false, 0); w < n; ++w) {
        workers_.push_back(std::make_unique<Worker>());
        Worker& worker = *workers_.back();
        worker.thread = std::thread([this, &worker, w] { work(worker, w); });
    }
}

void ProxyMaker::setPlayhead(double time, bool playing) {
    {
        std::lock_guard guard(lock_);
        if (time == head_ && playing == playing_) return;
        const bool jump = !playing || std::abs(time - head_) > ProxyCache::chunkSeconds;
        head_ = time;
        playing_ = playing;
        // Play moving on is not a jump: while playing this runs at every picture.
        bool missing = false;
        for (size_t fi = 0; jump && fi < files_.size() && !missing; ++fi) {
            const Chunk* c = chunkUnder(files_[fi], time);
            missing = c && *c == Chunk::pending;
        }
        if (missing) {
            for (auto& w : workers_)
                if (w->job && step(files_[static_cast<size_t>(w->job->file)], w->job->index) != 0) w->abort = true;
        }
    }
    wake_.notify_all();
}

int ProxyMaker::step(const FileState& f, int index, double* distance) const {
    // Steps are counted in preview chunks whatever this cache cuts.
    const double L = ProxyCache::chunkSeconds;
    const double a = f.file.at + cache_.chunkStart(index);
    const double b = std::min(a + cache_.chunkLength(), f.file.at + f.file.duration);
    double d = 0;
    if (a > head_) d = a - head_;
    else if (b <= head_) d = (head_ - b) * 2;
    if (distance) *distance = d;
    return a <= head_ && head_ < b ? 0 : 1 + static_cast<int>(d / L);
}

std::optional<ProxyMaker::Job> ProxyMaker::pick(int openFile, int next) const {
    // (step outward, distance, file, chunk)
    using Rank = std::tuple<int, double, int, int>;
    std::optional<Rank> best;
    for (size_t fi = 0; fi < files_.size(); ++fi) {
        const FileState& f = files_[fi];
        for (size_t k = 0; k < f.chunks.size(); ++k) {
            if (f.chunks[k] != Chunk::pending) continue;
            double distance = 0;
            const int s = step(f, static_cast<int>(k), &distance);
            Rank r{s, distance, static_cast<int>(fi), static_cast<int>(k)};
            if (!best || r < *best) best = r;
        }
    }
    if (!best) return std::nullopt;
    if (std::get<0>(*best) > 0 && openFile >= 0) {
        const FileState& f = files_[static_cast<size_t>(openFile)];
        if (next < static_cast<int>(f.chunks.size()) && f.chunks[static_cast<size_t>(next)] == Chunk::pending &&
            step(f, next) <= std::get<0>(*best) + 2)
            return Job{openFile, next};
    }
    return Job{std::get<2>(*best), std::get<3>(*best)};
}

void ProxyMaker::work(Worker& self, int worker) {
    // Proxies only make the preview lighter: they must never slow the rest.
    // The first keeps a share beside the tiles, the others take idle cores.
    if (worker == 0) platform::yieldToOthers(19);
    else platform::runWhenIdle();
    using Kind = media::ChunkOutcome::Kind;
    int openFile = -1, next = -1;
    ChunkWriter writer;
    std::unique_lock l(lock_);
    for (;;) {
        std::optional<Job> job;
        wake_.wait(l, [&] {
            if (stopping_ || progress_.finished) return true;
            if (worker >= allowed()) return false;
            job = pick(openFile, next);
            return job.has_value();
        });
        if (stopping_ || !job) return;
        self.job = job;
        self.abort = false;
        FileState* f = &files_[static_cast<size_t>(job->file)];
        f->chunks[static_cast<size_t>(job->index)] = Chunk::working;
        const ProxyFile file = f->file;
        const std::string stem = f->stem;
        l.unlock();

        const std::string name = file.path.filename().string();
        std::string failure;  // a line for the log when the file is given up
        bool folderFailed = false;
        media::ChunkOutcome outcome{Kind::inputFailed, {}};
        if (openFile != job->file) {
            writer = {};
            openFile = -1;
            auto opened = open_(file.path);
            if (opened) {
                writer = std::move(opened).value();
                openFile = job->file;
            } else {
                outcome.message = opened.error().message;
            }
        }
        const double from = cache_.chunkStart(job->index);
        const fs::path target = cache_.chunkPath(stem, job->index);
        fs::path part = target;
        part += ".part";
        const double cpuBefore = platform::threadCpuSeconds();
        if (writer) outcome = writer(part, from, from + cache_.chunkLength(), self.abort);
        cpu_.fetch_add(platform::threadCpuSeconds() - cpuBefore);
        std::error_code ec;
        // The original must still be the one the chunk is named after.
        if (outcome.made() && cache_.stem(file.path) != stem) {
            outcome = {Kind::inputFailed, name + " a changé ou disparu pendant sa copie"};
            fs::remove(part, ec);
        }
        if (outcome.made()) {
            fs::rename(part, target, ec);
            if (ec) {
                outcome = {Kind::outputFailed, "Impossible d'écrire " + target.filename().string() + " : " + systemMessage(ec)};
                fs::remove(part, ec);
            }
        }
        switch (outcome.kind) {
            case Kind::made: next = job->index + 1; break;
            case Kind::cancelled: break;
            case Kind::inputFailed:
                failure = "Aperçu : copie de " + name + " abandonnée (" + outcome.message + ") ; l'original est lu.";
                writer = {};
                openFile = -1;
                break;
            case Kind::outputFailed:
                folderFailed = true;
                failure = "Aperçu : impossible d'écrire dans " + cache_.folder().string() + " (" + outcome.message +
                          ") ; les originaux sont lus.";
                break;
        }

        l.lock();
        self.job.reset();
        f = &files_[static_cast<size_t>(job->file)];
        Chunk& c = f->chunks[static_cast<size_t>(job->index)];
        if (outcome.kind == Kind::cancelled) {
            // Stopped, or wanted no more where the head now is: made later.
            c = Chunk::pending;
            if (stopping_) return;
            continue;
        }
        const Chunk after = outcome.made() ? Chunk::made : Chunk::givenUp;
        count(Chunk::pending, after);
        c = after;
        if (folderFailed) {
            // Said once, whichever worker meets the folder's refusal first.
            if (!progress_.folderFailed && options_.log) options_.log(failure);
            progress_.folderFailed = true;
            for (FileState& other : files_) givePendingUp(other);
        } else if (!failure.empty()) {
            giveUp(*f, failure);
        }
        tellOutlook();
        if (progress_.finished) wake_.notify_all();
        if (options_.wakeup) {
            l.unlock();
            options_.wakeup();
            l.lock();
        }
    }
}

ProxyMaker::Progress ProxyMaker::progress() const {
    std::lock_guard guard(lock_);
    return progress_;
}

std::string ProxyMaker::status() const {
    std::lock_guard guard(lock_);
    if (progress_.finished || progress_.total == 0) return {};
    const std::string percent = std::to_string(progress_.done * 100 / progress_.total) + " %";
    // On 4K the originals are too heavy to play beside one another: say why the tiles wait.
    for (const FileState& f : files_)
        if (f.file.fourK && std::count(f.chunks.begin(), f.chunks.end(), Chunk::pending) +
                                    std::count(f.chunks.begin(), f.chunks.end(), Chunk::working) > 0)
            return "Aperçu 4K en préparation : " + percent;
    return "Préparation de l'aperçu : " + percent;
}

bool ProxyMaker::readyAround(double time) const {
    std::lock_guard guard(lock_);
    for (const FileState& f : files_) {
        const Chunk* c = chunkUnder(f, time);
        if (c && *c != Chunk::made && *c != Chunk::givenUp) return false;
    }
    return true;
}

}  // namespace qv
