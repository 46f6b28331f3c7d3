// SoundMix: the maths of the preview's sound. Each source plays at one
// volume (0..1) times its fades: inside each stretch of sound it rises from
// 0 to 1 over the first d seconds and falls back to 0 over the last d, with
// d = min(fade, half the stretch). Gains are computed for each sample's own
// time, so ramps are exact to the sample. Plain values; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "edit/TimeRange.h"

namespace qv::SoundMix {

// The preview volume of a source: 0 when muted, or when `followOther` (the
// sound follows another camera's picture), else 10^((level + master) / 20)
// capped at 1: the preview never amplifies.
double volume(double levelDb, double masterDb, bool muted, bool followOther);

// The fade factor at `t` for a source whose sound lies in `ranges`; 1 when
// `fade` is 0, and 0 outside every range.
double fadeAt(const std::vector<TimeRange>& ranges, double fade, double t);

// Adds `source` (interleaved, `frames` frames of `channels`), starting at
// set time `t0` at `rate` samples per second, into `mix`, with the gain
// volume × fadeAt(ranges, fade, t) of each sample.
void addWithGain(float* mix, const float* source, size_t frames, int channels, double t0, double rate,
                 double volume, const std::vector<TimeRange>& ranges, double fade);

// Keeps every sample within -1..1, so a loud sum clips instead of wrapping.
void clip(float* samples, size_t count);

}  // namespace qv::SoundMix
