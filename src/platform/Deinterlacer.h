// Interlaced pictures made whole, for every reader of pictures (the player,
// the proxies, the render, the constant-rate copies): FFmpeg's `bwdif`
// filter, one picture out for each picture in, its two fields joined by
// motion-adaptive interpolation, time stamps kept. Progressive pictures of
// the same stream pass untouched. Private to the platform layer.
//
// The filter looks one picture ahead, so what comes out trails what goes
// in by one picture until the end of the stream. One thread at a time.
#pragma once

#include <deque>
#include <memory>

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"

struct AVFilterGraph;
struct AVFilterContext;

namespace qv::ff {

class Deinterlacer {
public:
    Deinterlacer();
    ~Deinterlacer();
    Deinterlacer(const Deinterlacer&) = delete;
    Deinterlacer& operator=(const Deinterlacer&) = delete;

    // A decoded picture in; null at the end of the stream.
    void give(FramePtr frame);
    // The next whole picture, or null when none is ready yet.
    FramePtr take();
    // Everything given has come out after the end of the stream.
    bool drained() const { return drained_; }
    // Forgets what was given, after a seek.
    void reset();

private:
    bool build(const AVFrame* frame);

    struct GraphFreer {
        void operator()(AVFilterGraph* g) const;
    };
    std::unique_ptr<AVFilterGraph, GraphFreer> graph_;
    AVFilterContext* source_ = nullptr;  // owned by graph_
    AVFilterContext* sink_ = nullptr;
    int width_ = 0, height_ = 0, format_ = -1;
    bool failed_ = false;             // the filter refused these pictures: they pass as they are
    std::deque<FramePtr> passing_;
    bool drained_ = false;
};

// The next picture of `decoder` as it is shown. At the first interlaced
// picture a deinterlacer is made in `deinterlacer` and kept: from then on
// every picture goes through it.
FramePtr nextWhole(StreamDecoder& decoder, std::unique_ptr<Deinterlacer>& deinterlacer);

}  // namespace qv::ff
