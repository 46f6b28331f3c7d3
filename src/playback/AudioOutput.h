// AudioOutput: where the player's mixed sound goes, and the clock of the
// whole player: its played position is the time every angle follows.
//
// Samples are interleaved 32-bit floats at `sampleRate()` with `channels()`
// channels. The output keeps a bounded queue: `write` takes what fits and
// never blocks. `playedFrames` counts the frames that really left the queue
// since the last `flush`; it stands still while paused or starved.
//
// Threads: `write` and `space` from the mixer thread; every other call from
// the owner's thread. Implementations guard their own state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "playback/SampleRing.h"

namespace qv {

// Seconds of a steady clock; injected so tests run on virtual time.
using TimeSource = std::function<double()>;

// std::chrono::steady_clock in seconds.
TimeSource steadyTimeSource();

class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    virtual int sampleRate() const = 0;
    virtual int channels() const = 0;

    // Frames the queue can take now.
    virtual size_t space() = 0;
    // Copies up to `frames` frames into the queue; returns how many it took.
    virtual size_t write(const float* interleaved, size_t frames) = 0;

    // Starts or resumes playing what is queued.
    virtual void start() = 0;
    // Stops playing; the queue and the played count stay.
    virtual void pause() = 0;
    // Drops everything queued and sets the played count back to 0.
    virtual void flush() = 0;

    virtual int64_t playedFrames() = 0;
};

// An output without a device: it "plays" at the rate of a steady clock, so
// it is the clock of the player in tests, CI and --cli. It can keep what it
// played, for tests that measure the mix.
class SilentAudioOutput : public AudioOutput {
public:
    explicit SilentAudioOutput(TimeSource now = steadyTimeSource(), int sampleRate = 48000, int channels = 2,
                               double queueSeconds = 0.25);

    int sampleRate() const override { return rate_; }
    int channels() const override { return channels_; }
    size_t space() override;
    size_t write(const float* interleaved, size_t frames) override;
    void start() override;
    void pause() override;
    void flush() override;
    int64_t playedFrames() override;

    // Keeps every played sample from now on (interleaved), or stops keeping.
    void setCapture(bool on);
    std::vector<float> takeCaptured();

private:
    void advance();  // lock held: moves the frames whose time has come out of the queue

    const TimeSource now_;
    const int rate_;
    const int channels_;

    std::mutex lock_;
    // -- All the following fields are guarded by lock_.
    SampleRing queue_;
    bool playing_ = false;
    double anchorTime_ = 0;     // clock time at which `anchorPlayed_` frames had been played
    double anchorPlayed_ = 0;   // fractional, so no rounding drifts
    int64_t played_ = 0;
    bool capture_ = false;
    std::vector<float> captured_;
};

}  // namespace qv
