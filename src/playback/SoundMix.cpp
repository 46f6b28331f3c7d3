#include "playback/SoundMix.h"

#include <algorithm>
#include <cmath>

namespace qv::SoundMix {

double volume(double levelDb, double masterDb, bool muted, bool followOther) {
    if (muted || followOther) return 0;
    return std::min(std::pow(10.0, (levelDb + masterDb) / 20.0), 1.0);
}

double fadeAt(const std::vector<TimeRange>& ranges, double fade, double t) {
    for (const auto& r : ranges) {
        if (t < r.start || t >= r.end) continue;
        if (fade <= 0) return 1;
        double d = std::min(fade, (r.end - r.start) * 0.5);
        if (d <= 0) return 1;
        return std::clamp(std::min(t - r.start, r.end - t) / d, 0.0, 1.0);
    }
    return 0;
}

void addWithGain(float* mix, const float* source, size_t frames, int channels, double t0, double rate,
                 double volume, const std::vector<TimeRange>& ranges, double fade) {
    if (volume <= 0) return;
    // The block usually lies inside one stretch away from its edges: one gain.
    double t1 = t0 + static_cast<double>(frames) / rate;
    double d = fade;
    bool flat = fade <= 0;
    for (const auto& r : ranges) {
        if (!flat) d = std::min(fade, (r.end - r.start) * 0.5);
        if (t0 >= r.start + (flat ? 0 : d) && t1 <= r.end - (flat ? 0 : d)) {
            auto g = static_cast<float>(volume);
            for (size_t i = 0; i < frames * channels; ++i) mix[i] += g * source[i];
            return;
        }
    }
    for (size_t i = 0; i < frames; ++i) {
        auto g = static_cast<float>(volume * fadeAt(ranges, fade, t0 + static_cast<double>(i) / rate));
        if (g == 0) continue;
        for (int c = 0; c < channels; ++c) mix[i * channels + c] += g * source[i * channels + c];
    }
}

void clip(float* samples, size_t count) {
    for (size_t i = 0; i < count; ++i) samples[i] = std::clamp(samples[i], -1.0f, 1.0f);
}

}  // namespace qv::SoundMix
