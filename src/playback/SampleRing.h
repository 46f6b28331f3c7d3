// SampleRing: a fixed queue of interleaved audio frames, the buffer behind
// every AudioOutput. Not locked: its owner guards it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace qv {

class SampleRing {
public:
    SampleRing(size_t capacityFrames, int channels)
        : capacity_(std::max<size_t>(1, capacityFrames)), channels_(channels), samples_(capacity_ * channels) {}

    size_t queued() const { return queued_; }
    size_t space() const { return capacity_ - queued_; }

    // Appends what fits of `frames` frames; returns how many went in.
    size_t write(const float* interleaved, size_t frames) {
        size_t take = std::min(frames, space());
        for (size_t i = 0; i < take; ++i) {
            size_t slot = (head_ + queued_ + i) % capacity_;
            std::copy_n(interleaved + i * channels_, channels_, &samples_[slot * channels_]);
        }
        queued_ += take;
        return take;
    }

    // Hands each of the first `frames` queued frames to `use(const float*)`
    // in order and drops them.
    template <class Use>
    void take(size_t frames, Use&& use) {
        frames = std::min(frames, queued_);
        for (size_t i = 0; i < frames; ++i) use(&samples_[((head_ + i) % capacity_) * channels_]);
        head_ = (head_ + frames) % capacity_;
        queued_ -= frames;
    }

    void clear() { head_ = queued_ = 0; }

private:
    size_t capacity_;
    int channels_;
    std::vector<float> samples_;
    size_t head_ = 0;
    size_t queued_ = 0;
};

}  // namespace qv
