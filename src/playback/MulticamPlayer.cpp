#include "playback/MulticamPlayer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "looks/Image.h"
#include "looks/LookRenderer.h"
#include "playback/SoundMix.h"
#include "platform/Processor.h"

namespace qv {

namespace {

constexpr double kTickSeconds = 1.0 / 30;
constexpr double kStartWait = 0.15;  // longest hold of the clock at a start
constexpr size_t kMixBlock = 1024;   // frames mixed at a time
constexpr double kProgramLowLead = 0.1;  // the program angle's pictures ahead under this: the tiles give way

}  // namespace

// Sound of one source on the time line, for the mixer and the fades.
struct MulticamPlayer::SoundSource {
    Uuid sourceId;
    int camera = -1;                 // -1 for a recorder
    std::vector<TimeRange> ranges;   // where its files have sound
    double volume = 1;
};

// The mixer thread: from the requested time on, it mixes every source's
// sound in blocks and queues them on the output as room frees up.
struct MulticamPlayer::Mixer {
    AudioOutput* output = nullptr;
    int rate = 48000, channels = 2;
    std::vector<std::unique_ptr<SoundTrackReader>> readers;  // by sound source; used by the thread only
    std::vector<std::vector<TimeRange>> ranges;              // by sound source; fixed

    std::mutex lock;
    std::condition_variable work;
    std::condition_variable settled;
    // -- All the following fields are guarded by lock. The output is written
    // and flushed only under it, so no stale block lands after a flush.
    uint64_t generation = 0;
    double target = 0;
    bool active = false;
    bool quit = false;
    std::vector<double> volumes;  // by sound source
    std::vector<std::optional<std::vector<TimeRange>>> windows;  // by sound source, for the next request
    double fade = 0;
    uint64_t poke = 0, pokeSeen = 0;

    std::thread thread;

    void request(double at, bool run) {  // lock held
        ++generation;
        target = at;
        active = run;
        output->flush();
        work.notify_all();
    }

    void run() {
        uint64_t seen = 0;
        int64_t position = 0;  // frames at `rate` from the time line's start
        std::vector<float> mix(kMixBlock * channels), buffer(kMixBlock * channels);
        std::unique_lock l(lock);
        for (;;) {
            auto hasWork = [&] { return quit || generation != seen || (active && output->space() >= kMixBlock); };
            while (!hasWork()) {
                pokeSeen = poke;
                settled.notify_all();
                // The output frees room as it plays and tells nobody: look again soon.
                work.wait_for(l, std::chrono::milliseconds(5));
            }
            if (quit) break;
            if (generation != seen) {
                seen = generation;
                position = std::llround(target * rate);
                std::vector<std::pair<size_t, std::vector<TimeRange>>> inStep;
                for (size_t i = 0; i < windows.size(); ++i)
                    if (windows[i]) inStep.emplace_back(i, *std::exchange(windows[i], std::nullopt));
                if (!inStep.empty()) {
                    l.unlock();
                    for (auto& [i, w] : inStep) readers[i]->keepInStep(w);
                    l.lock();
                    if (generation != seen) continue;
                }
                if (!active) continue;
            }
            const uint64_t gen = seen;
            const auto gains = volumes;
            const double fadeSeconds = fade;
            l.unlock();

            std::fill(mix.begin(), mix.end(), 0.0f);
            const double time = static_cast<double>(position) / rate;
            for (size_t i = 0; i < readers.size(); ++i) {
                if (gains[i] <= 0) continue;
                readers[i]->read(position, buffer.data(), kMixBlock);
                SoundMix::addWithGain(mix.data(), buffer.data(), kMixBlock, channels, time, rate, gains[i],
                                      ranges[i], fadeSeconds);
            }
            SoundMix::clip(mix.data(), mix.size());

            l.lock();
            if (generation != gen) continue;
            output->write(mix.data(), kMixBlock);
            position += static_cast<int64_t>(kMixBlock);
        }
    }
};

MulticamPlayer::MulticamPlayer(const std::vector<MediaSource>& sources, const SyncResult& result, Options options)
    : now_(std::move(options.now)),
      scheduler_(options.scheduler),
      wakeup_(std::move(options.wakeup)),
      output_(std::move(options.output)),
      framesAhead_(std::max(1, options.framesAhead)) {
    if (!output_) output_ = std::make_unique<SilentAudioOutput>(now_);
    duration_ = result.duration();
    const int cores = options.cores > 0 ? options.cores : platform::processorCores();
    budget_ = std::make_unique<TileBudget>(TileBudget::ruleFor(cores), static_cast<int>(std::count_if(
                                               sources.begin(), sources.end(),
                                               [](const MediaSource& s) { return s.kind == SourceKind::camera; })));
    const auto threadCpu = options.threadCpu ? options.threadCpu : platform::threadCpuSeconds;
    // The program angle's decoder over several cores: a seek lands sooner.
    const int frontThreads = std::clamp(cores, 1, 4);
    mixer_ = std::make_unique<Mixer>();
    mixer_->output = output_.get();
    mixer_->rate = output_->sampleRate();
    mixer_->channels = output_->channels();
    const auto& opener = options.opener;

    int camera = 0;
    std::optional<Uuid> firstRecorder;
    for (size_t i = 0; i < sources.size(); ++i) {
        const auto& source = sources[i];
        std::vector<PlacedItem> files;
        for (const auto& p : result.placed) {
            if (p.sourceIndex == static_cast<int>(i)) files.push_back(p);
        }
        std::stable_sort(files.begin(), files.end(),
                         [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
        if (source.kind == SourceKind::camera) {
            Angle angle;
            angle.id = camera++;
            angle.sourceId = source.id;
            angle.name = source.name;
            angle.hasPlayer = !files.empty();
            angle.ranges = Angle::rangesOf(files);
            if (!files.empty()) {
                angle.width = files.front().item.width;
                angle.height = files.front().item.height;
                if (!clockSource_) clockSource_ = source.id;
            }
            std::unique_ptr<AngleWorker> worker;
            if (!files.empty() && opener.video) {
                if (auto reader = opener.video(files, duration_)) {
                    worker = std::make_unique<AngleWorker>();
                    worker->camera = angle.id;
                    worker->fileWidth = angle.width;
                    worker->fileHeight = angle.height;
                    worker->ahead = framesAhead_;
                    worker->order = &order_;
                    worker->budget = budget_.get();
                    worker->now = now_;
                    worker->threadCpu = threadCpu;
                    worker->frontThreads = frontThreads;
                    worker->wakeup = wakeup_;
                    worker->reader = std::move(reader);
                }
            }
            video_.push_back(std::move(worker));
            videoDrifts_.push_back(std::any_of(files.begin(), files.end(), [](const PlacedItem& p) {
                return p.drift.value_or(0.0) != 0;
            }));
            videoWindows_.emplace_back();
            angleInfos_.push_back({angle.name, angle.hasPlayer, angle.ranges});
            angles_.push_back(std::move(angle));
        } else if (!files.empty() && !firstRecorder) {
            firstRecorder = source.id;
        }
        if (files.empty() || !opener.soundRanges || !opener.sound) continue;
        auto ranges = opener.soundRanges(files, duration_);
        if (ranges.empty()) continue;
        auto reader = opener.sound(files, duration_, mixer_->rate, mixer_->channels);
        if (!reader) continue;
        sound_.push_back({source.id, source.kind == SourceKind::camera ? camera - 1 : -1, ranges, 1.0});
        mixer_->readers.push_back(std::move(reader));
        mixer_->ranges.push_back(std::move(ranges));
        mixer_->volumes.push_back(1.0);
        mixer_->windows.emplace_back();
        soundDrifts_.push_back(std::any_of(files.begin(), files.end(), [](const PlacedItem& p) {
            return p.drift.value_or(0.0) != 0;
        }));
        soundWindows_.emplace_back();
    }
    if (!clockSource_) clockSource_ = firstRecorder;
    if (clockSource_) clockKind_ = sound_.empty() ? ClockKind::steady : ClockKind::sound;

    shown_.resize(angles_.size());
    shownByAngle_.assign(angles_.size(), 0);
    for (auto& worker : video_) {
        if (!worker) continue;
        std::lock_guard guard(worker->lock);
        worker->request(0, false);
        worker->start();
    }
    mixer_->thread = std::thread([m = mixer_.get()] { m->run(); });
}

MulticamPlayer::~MulticamPlayer() {
    if (scheduler_ && tick_) scheduler_->cancel(tick_);
    for (auto& worker : video_)
        if (worker) worker->stop();
    {
        std::lock_guard guard(mixer_->lock);
        mixer_->quit = true;
        mixer_->work.notify_all();
    }
    mixer_->thread.join();
    output_->pause();
}

double MulticamPlayer::clockTime() {
    if (!playing_) return currentTime_;
    if (prerolling_) return startAt_;
    if (clockKind_ == ClockKind::sound) {
        return startAt_ + static_cast<double>(output_->playedFrames()) / output_->sampleRate();
    }
    return startAt_ + (now_() - runningSince_);
}

void MulticamPlayer::restartWorkers(double at, bool playing) {
    holdTilesForProgram();
    for (auto& worker : video_) {
        if (!worker) continue;
        std::lock_guard guard(worker->lock);
        worker->request(at, playing);
    }
    std::lock_guard guard(mixer_->lock);
    mixer_->request(at, playing && clockKind_ == ClockKind::sound);
}

void MulticamPlayer::start(double at) {
    output_->pause();
    programWarm_ = false;
    startAt_ = at;
    prerolling_ = true;
    prerollSince_ = now_();
    playing_ = true;
    restartWorkers(at, true);
    scheduleTick();
    changed();
}

void MulticamPlayer::play() {
    if (stopped_ || !clockSource_ || duration_ <= 0) return;
    if (currentTime_ >= duration_ - 0.05) currentTime_ = 0;
    start(currentTime_);
}

void MulticamPlayer::pause() {
    if (!playing_) return;
    double t = clockTime();
    playing_ = false;
    prerolling_ = false;
    output_->pause();
    if (std::isfinite(t)) currentTime_ = std::clamp(t, 0.0, duration_);
    if (scheduler_ && tick_) {
        scheduler_->cancel(tick_);
        tick_ = 0;
    }
    // Every angle decodes the clock's instant again: a paused player shows
    // all cameras at exactly the same moment.
    seek(currentTime_);
}

void MulticamPlayer::stop() {
    pause();
    stopped_ = true;
}

void MulticamPlayer::seek(double time) {
    currentTime_ = std::isfinite(time) ? std::clamp(time, 0.0, duration_) : 0.0;
    if (playing_) {
        start(currentTime_);
        return;
    }
    restartWorkers(currentTime_, false);
    changed();
}

void MulticamPlayer::scheduleTick() {
    if (!scheduler_ || tick_) return;
    tick_ = scheduler_->schedule(kTickSeconds, [this] {
        tick_ = 0;
        update();
        if (playing_) scheduleTick();
    });
}

void MulticamPlayer::update() {
    bool dirty = false;
    if (playing_ && prerolling_) {
        bool allReady = true;
        for (auto& worker : video_) {
            if (!worker) continue;
            std::lock_guard guard(worker->lock);
            allReady = allReady && worker->ready;
        }
        if (allReady || now_() - prerollSince_ >= kStartWait) {
            prerolling_ = false;
            runningSince_ = now_();
            if (clockKind_ == ClockKind::sound) output_->start();
        }
    }
    double t = clockTime();
    if (playing_ && std::isfinite(t)) {
        double clamped = std::clamp(t, 0.0, duration_);
        if (clamped != currentTime_) dirty = true;
        currentTime_ = clamped;
    }
    t = currentTime_;
    // Set times are sums of doubles: a frame starting within a microsecond
    // of the clock is the one due, as the readers count it.
    const double due = t + 1e-6;
    std::optional<bool> programPressed;
    for (size_t i = 0; i < video_.size(); ++i) {
        auto& worker = video_[i];
        if (!worker) continue;
        std::shared_ptr<const PreviewFrame> show;
        {
            std::lock_guard guard(worker->lock);
            auto& queue = worker->queue;
            bool popped = false;
            // Past its end, or a later picture is due (a key frame shown
            // ahead of the exact frames gives way to them).
            while (!queue.empty() && (queue.front()->end <= t || (queue.size() > 1 && queue[1]->start <= due))) {
                if (queue.front() != shown_[i]) ++droppedCount_;
                queue.pop_front();
                popped = true;
            }
            if (!queue.empty() && queue.front()->start <= due) {
                show = queue.front();
            } else if (playing_ && (worker->tile || worker->program) && !worker->ended && shown_[i] &&
                       angles_[i].hasImage(t)) {
                // A tile catching up, or an angle just put on program, keeps
                // its last picture rather than going black.
                show = shown_[i];
            }
            if (playing_ && !prerolling_) worker->playhead = t;
            if (popped) worker->work.notify_all();
            if (worker->program && playing_ && !prerolling_ && angles_[i].hasImage(t) && !worker->ended) {
                // Short of pictures ahead once it had them all, or late just now: the tiles give way.
                if (queue.size() >= static_cast<size_t>(framesAhead_)) programWarm_ = true;
                const double lead = queue.empty() ? 0 : queue.back()->end - t;
                const double late = order_.programLateAt;
                programPressed = (programWarm_ && lead < kProgramLowLead) || (late <= t && t - late < 0.25);
            }
        }
        if (show != shown_[i]) {
            if (show) {
                ++shownCount_;
                ++shownByAngle_[i];
            }
            shown_[i] = std::move(show);
            dirty = true;
        }
    }
    if (playing_ && !prerolling_ && programAngle_) budget_->steer(now_(), programPressed.value_or(false));
    if (playing_ && currentTime_ >= duration_ - 0.02) {
        pause();
        return;
    }
    if (dirty) changed();
}

void MulticamPlayer::changed() {
    if (onChange_) onChange_();
}

void MulticamPlayer::applyVolumes(const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, double masterDb,
                                  std::optional<int> follow) {
    std::vector<double> gains;
    for (auto& source : sound_) {
        auto level = levels.find(source.sourceId);
        bool followOther = follow && source.camera >= 0 && source.camera != *follow;
        source.volume = SoundMix::volume(level == levels.end() ? 0.0 : level->second, masterDb,
                                         muted.count(source.sourceId) > 0, followOther);
        gains.push_back(source.volume);
    }
    {
        std::lock_guard guard(mixer_->lock);
        mixer_->volumes = std::move(gains);
    }
    if (soundFollows_ != follow.has_value()) {
        soundFollows_ = follow.has_value();
        updateInStep();
    }
}

void MulticamPlayer::keepInStep(std::vector<TimeRange> plans, TimeRange range) {
    plans_ = std::move(plans);
    range_ = range;
    updateInStep();
}

void MulticamPlayer::updateInStep() {
    bool changedAny = false;
    for (size_t i = 0; i < video_.size(); ++i) {
        if (!video_[i] || !videoDrifts_[i] || videoWindows_[i] == plans_) continue;
        videoWindows_[i] = plans_;
        std::lock_guard guard(video_[i]->lock);
        video_[i]->windows = plans_;
        changedAny = true;
    }
    const std::vector<TimeRange> whole = range_ ? std::vector<TimeRange>{*range_} : std::vector<TimeRange>{};
    {
        std::lock_guard guard(mixer_->lock);
        for (size_t i = 0; i < sound_.size(); ++i) {
            const auto& want = sound_[i].camera >= 0 && soundFollows_ ? plans_ : whole;
            if (!soundDrifts_[i] || soundWindows_[i] == want) continue;
            soundWindows_[i] = want;
            mixer_->windows[i] = want;
            changedAny = true;
        }
    }
    // While playing the readers take their windows at the next start.
    if (changedAny && !playing_) seek(currentTime_);
}

void MulticamPlayer::applyFades(double seconds) {
    std::lock_guard guard(mixer_->lock);
    mixer_->fade = std::max(0.0, seconds);
}

std::map<Uuid, double> MulticamPlayer::volumes() const {
    std::map<Uuid, double> out;
    for (const auto& source : sound_) out[source.sourceId] = source.volume;
    return out;
}

void MulticamPlayer::configureVideo(int division, std::shared_ptr<LookRenderer> renderer) {
    division = std::max(1, division);
    bool changedAny = false;
    double at = clockTime();
    for (size_t i = 0; i < angles_.size(); ++i) {
        auto& worker = video_[i];
        if (!worker || angles_[i].width <= 0 || angles_[i].height <= 0) continue;
        VideoState state{division, renderer && renderer->changesCamera(angles_[i].id)};
        auto found = installed_.find(angles_[i].id);
        if (found != installed_.end() && found->second == state) continue;
        installed_[angles_[i].id] = state;
        changedAny = true;
        std::lock_guard guard(worker->lock);
        worker->state = state;
        worker->renderer = state.looks ? renderer : nullptr;
        worker->request(at, playing_);
    }
    renderer_ = std::move(renderer);
    if (changedAny || renderer_) refreshStill();
}

void MulticamPlayer::holdTilesForProgram() {
    // Before any request goes out: a tile asked before the program angle
    // must not begin ahead of it.
    const bool program = programAngle_ && video_[static_cast<size_t>(*programAngle_)] != nullptr;
    order_.programPending = program;
    order_.glancesDue = program ? static_cast<int>(std::count_if(video_.begin(), video_.end(), [](const auto& w) {
        return w != nullptr;
    })) - 1 : 0;
}

void MulticamPlayer::refreshStill() {
    if (playing_) return;
    holdTilesForProgram();
    for (auto& worker : video_) {
        if (!worker) continue;
        std::lock_guard guard(worker->lock);
        worker->request(currentTime_, false);
    }
}

std::shared_ptr<const PreviewFrame> MulticamPlayer::shownFrame(int angle) const {
    if (angle < 0 || static_cast<size_t>(angle) >= shown_.size()) return nullptr;
    return shown_[angle];
}

MulticamPlayer::Counters MulticamPlayer::counters() const {
    int64_t skipped = 0;
    for (const auto& worker : video_) {
        if (!worker) continue;
        std::lock_guard guard(worker->lock);
        skipped += worker->skipped;
    }
    return {shownCount_, droppedCount_ + skipped, shownByAngle_};
}

void MulticamPlayer::setProgramAngle(std::optional<int> angle) {
    if (angle && (*angle < 0 || static_cast<size_t>(*angle) >= video_.size())) angle.reset();
    if (angle == programAngle_) return;
    programAngle_ = angle;
    // A wait for the program angle that went away would never end.
    order_.programPending = false;
    order_.glancesDue = 0;
    order_.programLateAt = -1e300;
    programWarm_ = false;
    for (size_t i = 0; i < video_.size(); ++i) {
        auto& worker = video_[i];
        if (!worker) continue;
        std::lock_guard guard(worker->lock);
        const bool program = angle && static_cast<int>(i) == *angle;
        worker->setRole(program, angle && !program, currentTime_);
    }
}

void MulticamPlayer::settle() {
    for (auto& worker : video_) {
        if (!worker) continue;
        std::unique_lock l(worker->lock);
        uint64_t want = ++worker->poke;
        worker->work.notify_all();
        worker->settled.wait(l, [&] { return worker->pokeSeen >= want; });
    }
    std::unique_lock l(mixer_->lock);
    uint64_t want = ++mixer_->poke;
    mixer_->work.notify_all();
    mixer_->settled.wait(l, [&] { return mixer_->pokeSeen >= want; });
}

}  // namespace qv
