#include "playback/AudioOutput.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace qv {

TimeSource steadyTimeSource() {
    return [] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
}

SilentAudioOutput::SilentAudioOutput(TimeSource now, int sampleRate, int channels, double queueSeconds)
    : now_(std::move(now)),
      rate_(sampleRate),
      channels_(channels),
      queue_(static_cast<size_t>(std::max(1.0, std::round(queueSeconds * sampleRate))), channels) {}

void SilentAudioOutput::advance() {
    if (!playing_) return;
    double t = now_();
    // The epsilon keeps 0.2 s at 1000 Hz from reading as 199.9999 frames.
    auto due = static_cast<int64_t>(std::floor(anchorPlayed_ + (t - anchorTime_) * rate_ + 1e-6)) - played_;
    if (due <= 0) return;
    auto take = static_cast<size_t>(std::min<int64_t>(due, static_cast<int64_t>(queue_.queued())));
    queue_.take(take, [this](const float* frame) {
        if (capture_) captured_.insert(captured_.end(), frame, frame + channels_);
    });
    played_ += static_cast<int64_t>(take);
    if (static_cast<int64_t>(take) < due) {
        // Starved: a device plays silence and its position stands still.
        anchorTime_ = t;
        anchorPlayed_ = static_cast<double>(played_);
    }
}

size_t SilentAudioOutput::space() {
    std::lock_guard guard(lock_);
    advance();
    return queue_.space();
}

size_t SilentAudioOutput::write(const float* interleaved, size_t frames) {
    std::lock_guard guard(lock_);
    advance();
    return queue_.write(interleaved, frames);
}

void SilentAudioOutput::start() {
    std::lock_guard guard(lock_);
    if (playing_) return;
    playing_ = true;
    anchorTime_ = now_();
    anchorPlayed_ = static_cast<double>(played_);
}

void SilentAudioOutput::pause() {
    std::lock_guard guard(lock_);
    advance();
    playing_ = false;
}

void SilentAudioOutput::flush() {
    std::lock_guard guard(lock_);
    advance();
    queue_.clear();
    played_ = 0;
    anchorTime_ = now_();
    anchorPlayed_ = 0;
}

int64_t SilentAudioOutput::playedFrames() {
    std::lock_guard guard(lock_);
    advance();
    return played_;
}

void SilentAudioOutput::setCapture(bool on) {
    std::lock_guard guard(lock_);
    advance();
    capture_ = on;
}

std::vector<float> SilentAudioOutput::takeCaptured() {
    std::lock_guard guard(lock_);
    advance();
    return std::exchange(captured_, {});
}

}  // namespace qv
