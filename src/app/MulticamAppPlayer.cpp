#include "app/MulticamAppPlayer.h"

#include <atomic>

#include "diagnostics/Log.h"
#include "playback/ProxyEncoder.h"
#include "playback/TimelineTracks.h"
#include "platform/Processor.h"

namespace qv {

// Shared between the player and the posts in flight, so a post that lands
// after the player is gone does nothing.
struct MulticamAppPlayer::Wake {
    std::atomic<bool> pending{false};
    MulticamPlayer* player = nullptr;  // main thread only
};

MulticamAppPlayer::MulticamAppPlayer(const std::vector<MediaSource>& sources, const SyncResult& result,
                                     MainThread& main, std::unique_ptr<AudioOutput> output, TimeSource now)
    : wake_(std::make_shared<Wake>()), proxies_(std::make_unique<ProxyCache>()), now_(now) {
    MulticamPlayer::Options options;
    options.opener = timelineTracks(proxies_.get());
    options.output = std::move(output);
    options.now = std::move(now);
    options.scheduler = &main;
    std::weak_ptr<Wake> weak = wake_;
    options.wakeup = [weak, &main] {
        auto wake = weak.lock();
        if (!wake || wake->pending.exchange(true)) return;
        main.post([weak] {
            auto w = weak.lock();
            if (!w) return;
            w->pending = false;
            if (w->player) w->player->update();
        });
    };
    player_ = std::make_unique<MulticamPlayer>(sources, result, std::move(options));
    wake_->player = player_.get();
    player_->setOnChange([this] { changed(); });

    // Proxy chunks for the heavy cameras, made where the user is; each one
    // takes over from its original as soon as it is there.
    auto files = ProxyMaker::candidates(sources, result);
    if (!files.empty()) {
        ProxyMaker::Options proxyOptions;
        proxyOptions.log = [](const std::string& line) { Log::write(line); };
        maker_ = std::make_unique<ProxyMaker>(*proxies_, proxyEncoder(), std::move(proxyOptions));
        maker_->setPlayhead(player_->currentTime(), false);
        maker_->start(std::move(files));
    }
}

MulticamAppPlayer::~MulticamAppPlayer() {
    maker_.reset();
    wake_->player = nullptr;
    player_->setOnChange({});
}

PlayerFactory MulticamAppPlayer::factory(OutputMaker makeOutput, TimeSource now) {
    return [makeOutput = std::move(makeOutput), now = std::move(now)](
               const std::vector<MediaSource>& sources, const SyncResult& result, MainThread& main) {
        return std::make_shared<MulticamAppPlayer>(sources, result, main, makeOutput ? makeOutput() : nullptr, now);
    };
}

std::optional<PixelSize> MulticamAppPlayer::pictureSize(int camera) const {
    const auto& angles = player_->cameraAngles();
    if (camera < 0 || static_cast<size_t>(camera) >= angles.size()) return std::nullopt;
    const Angle& a = angles[static_cast<size_t>(camera)];
    if (a.width <= 0 || a.height <= 0) return std::nullopt;
    return PixelSize{static_cast<double>(a.width), static_cast<double>(a.height)};
}

AppPlayer::PreviewWork MulticamAppPlayer::previewWork() const {
    PreviewWork work;
    if (!maker_) return work;
    const ProxyMaker::Progress progress = maker_->progress();
    work.line = maker_->status();
    if (progress.total > 0) work.share = static_cast<double>(progress.done) / progress.total;
    work.failedFiles = static_cast<int>(progress.failed.size());
    return work;
}

void MulticamAppPlayer::measureLoad() {
    if (!player_->isPlaying()) {
        loadSince_ = -1;
        return;
    }
    const double now = now_();
    const double cpu = platform::processCpuSeconds(), proxyCpu = maker_->processorSeconds();
    if (loadSince_ >= 0 && now - loadSince_ >= 1.0) {
        const double load = ((cpu - loadCpu_) - (proxyCpu - loadProxyCpu_)) / (now - loadSince_);
        maker_->setPlayerLoad(load);
    } else if (loadSince_ >= 0) {
        return;
    }
    loadSince_ = now;
    loadCpu_ = cpu;
    loadProxyCpu_ = proxyCpu;
}

void MulticamAppPlayer::changed() {
    // New pictures while paused must repaint without touching the model.
    if (frames_) frames_();
    const double t = player_->currentTime();
    if (maker_) {
        maker_->setPlayhead(t, player_->isPlaying());
        measureLoad();
    }
    if (t == reported_) return;
    reported_ = t;
    if (observer_) observer_(t);
}

}  // namespace qv
