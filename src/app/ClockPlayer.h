// ClockPlayer: a player without picture or sound. It knows each camera's
// angle from the placed files and runs a clock at 30 ticks a second on the
// main thread while playing, so the edit, the sound follow and the timeline
// work where no decoding player is plugged in (the command-line demo, a
// headless run). The orders about volumes, fades and video are kept as the
// last values given, which is all a silent player can do with them.
#pragma once

#include "app/Ports.h"

namespace qv {

class ClockPlayer : public AppPlayer {
public:
    ClockPlayer(const std::vector<MediaSource>& sources, const SyncResult& result, MainThread& main);
    ~ClockPlayer() override;

    static PlayerFactory factory();

    bool isPlaying() const override { return playing_; }
    double currentTime() const override { return time_; }
    const std::vector<AngleInfo>& angles() const override { return angles_; }
    void pause() override;
    void seek(double time) override;
    void play() override;
    void stop() override { pause(); }

    void applyVolumes(const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, double masterDb,
                      std::optional<int> follow) override;
    void applyFades(double seconds) override { fade_ = seconds; }
    void configureVideo(int division, std::shared_ptr<LookRenderer> renderer) override;
    void setTimeObserver(std::function<void(double)> observer) override { observer_ = std::move(observer); }
    std::optional<PixelSize> pictureSize(int camera) const override;

    // The last orders given.
    std::optional<int> follow() const { return follow_; }
    double fade() const { return fade_; }
    int division() const { return division_; }
    int videoConfigurations() const { return configurations_; }

private:
    void tick();

    MainThread& main_;
    std::vector<AngleInfo> angles_;
    std::vector<std::optional<PixelSize>> sizes_;
    double duration_ = 0;
    double time_ = 0;
    bool playing_ = false;
    Scheduler::TimerId timer_ = 0;
    std::optional<int> follow_;
    double fade_ = -1;
    int division_ = 1;
    int configurations_ = 0;
    std::shared_ptr<LookRenderer> renderer_;
    std::function<void(double)> observer_;
};

}  // namespace qv
