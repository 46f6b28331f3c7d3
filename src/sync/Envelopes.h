// Envelopes kept with every placed file, so drops, waveforms and exports
// never need the sound decoded again. Input: the analysis signal (2000 Hz).
#pragma once

#include <vector>

namespace qv::Envelopes {

// 20 values per second, 0..1: block peaks over their 99th percentile, clipped.
std::vector<float> waveform(const std::vector<float>& signal);

// 10 values per second, unscaled: RMS of the signal after two one-pole
// low-passes at 150 Hz.
std::vector<float> bassEnvelope(const std::vector<float>& signal);

}  // namespace qv::Envelopes
