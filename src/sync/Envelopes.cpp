#include "sync/Envelopes.h"

#include <algorithm>
#include <cmath>

namespace qv::Envelopes {

std::vector<float> waveform(const std::vector<float>& signal) {
    const size_t block = 100;
    if (signal.size() < block) return {};
    std::vector<float> peaks(signal.size() / block);
    for (size_t b = 0; b < peaks.size(); ++b) {
        float m = 0;
        for (size_t i = b * block; i < (b + 1) * block; ++i) m = std::max(m, std::fabs(signal[i]));
        peaks[b] = m;
    }
    std::vector<float> sorted = peaks;
    std::sort(sorted.begin(), sorted.end());
    float reference = std::max(sorted[static_cast<size_t>((sorted.size() - 1) * 0.99)], 1e-6f);
    for (float& p : peaks) p = std::min(p / reference, 1.0f);
    return peaks;
}

std::vector<float> bassEnvelope(const std::vector<float>& signal) {
    const size_t block = 200;
    if (signal.size() < block) return {};
    const float k = 0.37577155f;  // one pole at 150 Hz for 2000 Hz
    float y1 = 0, y2 = 0;
    std::vector<float> out(signal.size() / block);
    for (size_t b = 0; b < out.size(); ++b) {
        double sum = 0;
        for (size_t i = b * block; i < (b + 1) * block; ++i) {
            y1 += (signal[i] - y1) * k;
            y2 += (y1 - y2) * k;
            sum += static_cast<double>(y2) * y2;
        }
        out[b] = static_cast<float>(std::sqrt(sum / block));
    }
    return out;
}

}  // namespace qv::Envelopes
