#include "render/Limiter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qv {

namespace {

// The peak between two samples is estimated at three points by a Lanczos
// kernel over 8 frames, centred on the pair: the detector is 4 frames late.
constexpr int kTaps = 8;
constexpr int kHalf = 4;

struct Kernel {
    float c[3][kTaps];
    Kernel() {
        for (int k = 0; k < 3; ++k) {
            const double f = 0.25 * (k + 1);
            for (int t = 0; t < kTaps; ++t) {
                const double x = f - (t - (kHalf - 1));
                auto sinc = [](double v) { return v == 0 ? 1.0 : std::sin(M_PI * v) / (M_PI * v); };
                c[k][t] = static_cast<float>(sinc(x) * sinc(x / kHalf));
            }
        }
    }
};
const Kernel kernel;

}  // namespace

PeakLimiter::PeakLimiter(int sampleRate, int channels, float ceiling, double lookAhead, double release)
    : channels_(std::max(1, channels)),
      lookAhead_(std::max(1, static_cast<int>(std::lround(lookAhead * sampleRate)))),
      ceiling_(ceiling),
      recover_(static_cast<float>(1 - std::exp(-1.0 / (std::max(release, 1e-4) * sampleRate)))) {
    history_.assign(static_cast<size_t>(kTaps * channels_), 0.0f);
    delayed_.assign(static_cast<size_t>((lookAhead_ + kHalf) * channels_), 0.0f);
    held_.assign(static_cast<size_t>(lookAhead_), 1.0f);
    heldSum_ = lookAhead_;
}

int PeakLimiter::latency() const { return lookAhead_ + kHalf; }

float PeakLimiter::peakOf() const {
    float peak = 0;
    for (int ch = 0; ch < channels_; ++ch) {
        auto at = [&](int t) { return history_[static_cast<size_t>(t * channels_ + ch)]; };
        peak = std::max({peak, std::abs(at(kHalf - 1)), std::abs(at(kHalf))});
        for (const auto& c : kernel.c) {
            float v = 0;
            for (int t = 0; t < kTaps; ++t) v += c[t] * at(t);
            peak = std::max(peak, std::abs(v));
        }
    }
    return peak;
}

void PeakLimiter::process(const float* in, float* out, size_t frames) {
    const size_t ch = static_cast<size_t>(channels_);
    for (size_t i = 0; i < frames; ++i) {
        const float* x = in + i * ch;
        std::memmove(history_.data(), history_.data() + ch, (kTaps - 1) * ch * sizeof(float));
        std::memcpy(history_.data() + (kTaps - 1) * ch, x, ch * sizeof(float));
        delayed_.insert(delayed_.end(), x, x + ch);

        // The gain the pair at the detector's centre needs, and the lowest
        // such gain over the look-ahead.
        const float peak = peakOf();
        const float need = peak > ceiling_ ? ceiling_ / peak : 1.0f;
        while (!minima_.empty() && minima_.back().second >= need) minima_.pop_back();
        minima_.emplace_back(frame_, need);
        while (minima_.front().first < frame_ - lookAhead_) minima_.pop_front();

        // Held at that minimum, recovering slowly, then averaged over the
        // look-ahead: the average at a peak only takes values at or below
        // the gain that peak needs, so the fall is smooth and in time.
        released_ = std::min(minima_.front().second, released_ + (1 - released_) * recover_);
        heldSum_ += static_cast<double>(released_) - held_.front();
        held_.pop_front();
        held_.push_back(released_);
        const float gain = std::clamp(static_cast<float>(heldSum_ / lookAhead_), 0.0f, 1.0f);
        deepest_ = std::min(deepest_, gain);

        for (size_t k = 0; k < ch; ++k) {
            out[i * ch + k] = delayed_.front() * gain;
            delayed_.pop_front();
        }
        ++frame_;
    }
}

}  // namespace qv
