// The export's pipeline: reads the cameras' pictures in order on one thread,
// filters and places frames on worker threads (one when a shutter trail
// needs its frames in order), and encodes on the calling thread together
// with the sound mix. At most `framesInFlight` frames exist between reading
// and encoding, whatever the length, so memory stays bounded.
#pragma once

#include <atomic>

#include "base/Result.h"
#include "platform/MediaWriter.h"
#include "render/VideoRender.h"

namespace qv::RenderPipeline {

inline constexpr int framesInFlight = 6;
inline constexpr int soundRate = 48000;
inline constexpr int soundChannels = 2;

// Shared with the thread that watches: `cancel` may be set from any thread,
// `progress` (0 to 1) read from any thread.
struct Control {
    std::atomic<bool> cancel{false};
    std::atomic<double> progress{0};
};

// Loudness: the limiter holds the peaks a little under the -1 dBTP that
// platforms ask, since the sound's encoder adds some overshoot of its own;
// a near-silent mix is not raised by more than maximumGainDb.
inline constexpr double truePeakCeilingDb = -1.0;
inline constexpr double limiterCeilingDb = -1.8;
inline constexpr double maximumGainDb = 30.0;

// The message of a run stopped by `cancel`.
inline const char* const cancelledMessage = "Export vidéo annulé";

// Renders every frame and the sound of `built` into `writer`, then finishes
// the file. Fails with the first French message of any stage.
Status run(const VideoRender::Built& built, media::MediaWriter& writer, Control& control);

// The gain in dB that brings `built`'s mix to its loudness target, the
// limiter included (0 without a target or for a silent mix). Reads the
// whole range's sound once, or up to three times when the limiter acts.
Result<double> loudnessGain(const VideoRender::Built& built, Control& control);

}  // namespace qv::RenderPipeline
