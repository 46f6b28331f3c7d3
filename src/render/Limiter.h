// PeakLimiter: holds a sound under a peak ceiling without clipping. It looks
// ahead: the gain starts to fall before a peak arrives and is at its lowest
// when the peak passes, then recovers slowly, so no sample (and no peak
// between samples, estimated at four times the rate) rises above the
// ceiling. The output is the input delayed by `latency()` frames.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

namespace qv {

class PeakLimiter {
public:
    // `ceiling` linear (0.89 is about -1 dB); look-ahead and release in seconds.
    PeakLimiter(int sampleRate, int channels, float ceiling, double lookAhead = 0.005, double release = 0.08);

    int latency() const;

    // Interleaved frames in, as many out, `latency()` frames late; `in` and
    // `out` may be the same buffer.
    void process(const float* in, float* out, size_t frames);

    // The smallest gain applied so far (1: the limiter never acted).
    float deepestGain() const { return deepest_; }

private:
    float peakOf() const;

    int channels_;
    int lookAhead_;
    float ceiling_;
    float recover_;  // share of the way back to 1 per frame

    // Frames seen by the peak detector, for the estimate between samples.
    std::vector<float> history_;  // kTaps frames per channel, oldest first
    // Frames waiting to leave, with the gain each one needs.
    std::deque<float> delayed_;   // interleaved samples, lookAhead_ frames
    std::deque<std::pair<long long, float>> minima_;  // sliding minimum of the needed gains
    std::deque<float> held_;      // gain after the hold and release, last lookAhead_ values
    double heldSum_ = 0;
    long long frame_ = 0;
    float released_ = 1;
    float deepest_ = 1;
};

}  // namespace qv
