// Microphone: what one device does to the room's sound before it is stored.
// A few early reflections and a short echo (the room), a gentle band (the
// capsule), a gain that may invert polarity, and hiss of its own on each
// channel. The band is applied forward and backward, so it colours the sound
// without delaying it: a file's true start stays exact to the sample.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/SplitMix64.h"

namespace qv::setgen {

struct Microphone {
    double gain = 1.0;      // linear; negative inverts polarity
    double highPass = 0;    // Hz, 0 for none
    double lowPass = 0;     // Hz, 0 for none
    double hiss = 0.002;    // RMS of the added noise, full scale 1
    std::vector<std::pair<double, double>> reflections;  // (delay s, gain)
    double echoDelay = 0.03, echoFeedback = 0.3, echoMix = 0.15;
    uint64_t noiseSeed = 1;

    bool filtered() const { return highPass > 0 || lowPass > 0; }

    // A camera's built-in microphone: thin in the bass, roomy, noisy.
    static Microphone camera(SplitMix64& rng);
    // A recorder on the DJ booth or in the room: full band more often than not.
    static Microphone recorder(SplitMix64& rng);

    // Records `count` samples of `mix` (at `rate`) on `channels` interleaved
    // channels, clipped to [-1, 1]. Sample i of the result is mix[i] heard by
    // this microphone; nothing from before mix[0] leaks in.
    std::vector<float> record(const float* mix, size_t count, int rate, int channels) const;
};

}  // namespace qv::setgen
