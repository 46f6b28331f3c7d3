#include "app/ClockPlayer.h"

#include <algorithm>

#include "edit/AutoEditor.h"

namespace qv {

namespace {
constexpr double tickSeconds = 1.0 / 30;
}

ClockPlayer::ClockPlayer(const std::vector<MediaSource>& sources, const SyncResult& result, MainThread& main)
    : main_(main), duration_(result.duration()) {
    std::vector<int> cameras;
    for (size_t i = 0; i < sources.size(); ++i)
        if (sources[i].kind == SourceKind::camera) cameras.push_back(static_cast<int>(i));
    auto ranges = AutoEditor::cameraRanges(result, cameras);
    for (size_t c = 0; c < cameras.size(); ++c) {
        AngleInfo angle;
        angle.name = sources[static_cast<size_t>(cameras[c])].name;
        angle.ranges = c < ranges.size() ? ranges[c] : std::vector<TimeRange>{};
        angle.hasPicture = !angle.ranges.empty();
        angles_.push_back(std::move(angle));
        std::optional<PixelSize> size;
        for (const auto& p : result.placed)
            if (p.sourceIndex == cameras[c] && p.item.width > 0 && p.item.height > 0) {
                size = PixelSize{static_cast<double>(p.item.width), static_cast<double>(p.item.height)};
                break;
            }
        sizes_.push_back(size);
    }
}

ClockPlayer::~ClockPlayer() {
    if (timer_) main_.cancel(timer_);
}

PlayerFactory ClockPlayer::factory() {
    return [](const std::vector<MediaSource>& sources, const SyncResult& result, MainThread& main) {
        return std::make_shared<ClockPlayer>(sources, result, main);
    };
}

void ClockPlayer::pause() {
    playing_ = false;
    if (timer_) main_.cancel(timer_);
    timer_ = 0;
}

void ClockPlayer::seek(double time) {
    time_ = std::clamp(time, 0.0, duration_);
    if (observer_) observer_(time_);
}

void ClockPlayer::play() {
    if (playing_) return;
    if (time_ >= duration_) time_ = 0;
    playing_ = true;
    timer_ = main_.schedule(tickSeconds, [this] { tick(); });
}

void ClockPlayer::tick() {
    timer_ = 0;
    time_ = std::min(time_ + tickSeconds, duration_);
    if (observer_) observer_(time_);
    if (time_ >= duration_) {
        playing_ = false;
        return;
    }
    if (playing_) timer_ = main_.schedule(tickSeconds, [this] { tick(); });
}

void ClockPlayer::applyVolumes(const std::map<Uuid, double>&, const std::set<Uuid>&, double, std::optional<int> follow) {
    follow_ = follow;
}

void ClockPlayer::configureVideo(int division, std::shared_ptr<LookRenderer> renderer) {
    division_ = division;
    ++configurations_;
    renderer_ = std::move(renderer);
}

std::optional<PixelSize> ClockPlayer::pictureSize(int camera) const {
    if (camera < 0 || static_cast<size_t>(camera) >= sizes_.size()) return std::nullopt;
    return sizes_[static_cast<size_t>(camera)];
}

}  // namespace qv
