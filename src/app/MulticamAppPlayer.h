// MulticamAppPlayer: the multicam player as the application model drives it.
// It forwards the model's orders to MulticamPlayer and keeps the player's
// rule on threads: the decoder and mixer threads only wake the main thread
// (one pending post at a time), and the main thread pulls their frames with
// `update()`; the model hears of each new clock time from there. While it
// plays it tells the proxy maker how many cores it takes, so the preview
// copies use the others.
#pragma once

#include <memory>

#include "app/Ports.h"
#include "playback/AudioOutput.h"
#include "playback/MulticamPlayer.h"
#include "playback/Proxies.h"

namespace qv {

class MulticamAppPlayer : public AppPlayer {
public:
    // Makes the sound output of each new player; null (or no maker): the
    // silent output that plays on the steady clock.
    using OutputMaker = std::function<std::unique_ptr<AudioOutput>()>;

    MulticamAppPlayer(const std::vector<MediaSource>& sources, const SyncResult& result, MainThread& main,
                      std::unique_ptr<AudioOutput> output, TimeSource now = steadyTimeSource());
    ~MulticamAppPlayer() override;

    // Players that read the placed files themselves, through `makeOutput`'s
    // sound device.
    static PlayerFactory factory(OutputMaker makeOutput = {}, TimeSource now = steadyTimeSource());

    bool isPlaying() const override { return player_->isPlaying(); }
    double currentTime() const override { return player_->currentTime(); }
    const std::vector<AngleInfo>& angles() const override { return player_->angles(); }
    void pause() override { player_->pause(); }
    void seek(double time) override { player_->seek(time); }
    void play() override { player_->play(); }
    void stop() override { player_->stop(); }

    void applyVolumes(const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, double masterDb,
                      std::optional<int> follow) override {
        player_->applyVolumes(levels, muted, masterDb, follow);
    }
    void applyFades(double seconds) override { player_->applyFades(seconds); }
    void keepInStep(std::vector<TimeRange> plans, TimeRange range) override {
        player_->keepInStep(std::move(plans), range);
    }
    void configureVideo(int division, std::shared_ptr<LookRenderer> renderer) override {
        player_->configureVideo(division, std::move(renderer));
    }
    void setTimeObserver(std::function<void(double)> observer) override { observer_ = std::move(observer); }
    std::optional<PixelSize> pictureSize(int camera) const override;
    std::shared_ptr<const PreviewFrame> shownFrame(int camera) const override { return player_->shownFrame(camera); }
    void setFrameObserver(std::function<void()> observer) override { frames_ = std::move(observer); }
    void setProgramAngle(int camera) override { player_->setProgramAngle(camera); }
    PreviewWork previewWork() const override;
    std::shared_ptr<const ProxyOutlook> previewOutlook() const override { return maker_ ? maker_->outlook() : nullptr; }

    MulticamPlayer& engine() { return *player_; }

private:
    struct Wake;
    void changed();

    std::shared_ptr<Wake> wake_;
    std::unique_ptr<ProxyCache> proxies_;  // read by the player's threads: outlives the player
    std::unique_ptr<MulticamPlayer> player_;
    std::unique_ptr<ProxyMaker> maker_;
    std::function<void(double)> observer_;
    std::function<void()> frames_;
    double reported_ = -1;
    // The player's processor use while it plays, for the proxy workers:
    // the process's time less the workers' own, over a second or more.
    void measureLoad();
    TimeSource now_;
    double loadSince_ = -1, loadCpu_ = 0, loadProxyCpu_ = 0;
};

}  // namespace qv
