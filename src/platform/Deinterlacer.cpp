#include "platform/Deinterlacer.h"

#include <string>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace qv::ff {

void Deinterlacer::GraphFreer::operator()(AVFilterGraph* g) const { avfilter_graph_free(&g); }

Deinterlacer::Deinterlacer() = default;
Deinterlacer::~Deinterlacer() = default;

bool Deinterlacer::build(const AVFrame* f) {
    graph_.reset(avfilter_graph_alloc());
    source_ = sink_ = nullptr;
    width_ = f->width, height_ = f->height, format_ = f->format;
    if (!graph_) return false;
    graph_->nb_threads = 1;  // the readers already run one per angle
    const AVRational sar = f->sample_aspect_ratio.num > 0 && f->sample_aspect_ratio.den > 0 ? f->sample_aspect_ratio
                                                                                              : AVRational{1, 1};
    // Stamps are carried as they are; the time base only has to be valid.
    const std::string args = "video_size=" + std::to_string(f->width) + "x" + std::to_string(f->height) +
                             ":pix_fmt=" + std::to_string(f->format) + ":time_base=1/90000:pixel_aspect=" +
                             std::to_string(sar.num) + "/" + std::to_string(sar.den);
    AVFilterContext* deint = nullptr;
    // One picture per picture, each field's parity read from the picture,
    // only pictures marked interlaced touched.
    if (avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in", args.c_str(), nullptr,
                                     graph_.get()) < 0 ||
        avfilter_graph_create_filter(&deint, avfilter_get_by_name("bwdif"), "deint",
                                     "mode=send_frame:parity=auto:deint=interlaced", nullptr, graph_.get()) < 0 ||
        avfilter_graph_create_filter(&sink_, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                     graph_.get()) < 0 ||
        avfilter_link(source_, 0, deint, 0) < 0 || avfilter_link(deint, 0, sink_, 0) < 0 ||
        avfilter_graph_config(graph_.get(), nullptr) < 0) {
        graph_.reset();
        return false;
    }
    return true;
}

void Deinterlacer::give(FramePtr frame) {
    if (frame && !failed_ && (!graph_ || frame->width != width_ || frame->height != height_ || frame->format != format_)) {
        // A new size or format starts a new graph; the pictures held by the
        // old one are given up, as after a seek.
        if (!build(frame.get())) failed_ = true;
    }
    if (failed_ || (!graph_ && !frame)) {
        if (frame) passing_.push_back(std::move(frame));
        else drained_ = passing_.empty();
        return;
    }
    if (frame) frame->pts = frame->best_effort_timestamp;
    // A picture the filter refuses ends its use: the next ones pass as they are.
    if (av_buffersrc_add_frame_flags(source_, frame.get(), 0) < 0) failed_ = true;
}

FramePtr Deinterlacer::take() {
    if (!passing_.empty()) {
        FramePtr f = std::move(passing_.front());
        passing_.pop_front();
        return f;
    }
    if (!graph_) return nullptr;
    FramePtr out(av_frame_alloc());
    if (!out) return nullptr;
    const int r = av_buffersink_get_frame(sink_, out.get());
    if (r == AVERROR_EOF) drained_ = true;
    if (r < 0) return nullptr;
    out->best_effort_timestamp = out->pts;
    return out;
}

void Deinterlacer::reset() {
    graph_.reset();
    source_ = sink_ = nullptr;
    passing_.clear();
    drained_ = false;
    failed_ = false;
}

FramePtr nextWhole(StreamDecoder& decoder, std::unique_ptr<Deinterlacer>& deinterlacer) {
    for (;;) {
        if (deinterlacer) {
            if (FramePtr f = deinterlacer->take()) return f;
            if (deinterlacer->drained()) return nullptr;
            deinterlacer->give(decoder.next());
            continue;
        }
        FramePtr f = decoder.next();
        if (!f || !f->interlaced_frame) return f;
        deinterlacer = std::make_unique<Deinterlacer>();
        deinterlacer->give(std::move(f));
    }
}

}  // namespace qv::ff
