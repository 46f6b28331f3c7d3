#include "platform/DecodeLoop.h"

#include <algorithm>
#include <utility>

namespace qv::ff {

DecodeLoop::DecodeLoop(AVCodecContext* codec) : codec_(codec), frame_(av_frame_alloc()) {}

DecodeLoop::Status DecodeLoop::decode(const AVPacket* packet, const std::function<void(AVFrame*)>& onFrame) {
    if (!frame_) return Status::decodeFailed;
    bool sent = false;
    while (true) {
        int r = avcodec_send_packet(codec_, packet);
        if (r >= 0) sent = true;
        else if (r == AVERROR_EOF) sent = true;  // already flushed: only draining is left
        else if (r != AVERROR(EAGAIN)) return Status::sendFailed;
        // Drain what the codec holds; with EAGAIN above, this makes room.
        while (true) {
            int got = avcodec_receive_frame(codec_, frame_.get());
            if (got == AVERROR(EAGAIN)) break;
            if (got == AVERROR_EOF) return Status::endOfStream;
            if (got < 0) return Status::decodeFailed;
            onFrame(frame_.get());
            av_frame_unref(frame_.get());
        }
        if (sent) return Status::okay;
    }
}

void DecodeLoop::reset() { avcodec_flush_buffers(codec_); }

StreamDecoder::StreamDecoder(AVFormatContext* format, int streamIndex, AVCodecContext* codec)
    : format_(format), stream_(streamIndex), codec_(codec), loop_(codec), packet_(av_packet_alloc()) {}

FramePtr StreamDecoder::next() {
    auto keep = [this](AVFrame* f) {
        if (AVFrame* copy = av_frame_clone(f)) ready_.emplace_back(copy);
    };
    int failures = 0;
    while (ready_.empty() && !ended_ && packet_) {
        if (flushed_) {
            if (loop_.decode(nullptr, keep) != DecodeLoop::Status::okay) ended_ = true;
            if (ready_.empty()) ended_ = true;
            break;
        }
        if (!readPacket(format_, packet_.get(), failures)) {
            flushed_ = true;
            continue;
        }
        if (packet_->stream_index == stream_) {
            if (switchTo_ && (packet_->flags & AV_PKT_FLAG_KEY)) {
                loop_.decode(nullptr, keep);  // every picture the old codec holds, before the key frame's
                switchTo_->skip_frame = codec_->skip_frame;
                switchTo_->skip_loop_filter = codec_->skip_loop_filter;
                codec_ = std::exchange(switchTo_, nullptr);
                loop_ = DecodeLoop(codec_);
            }
            if (skipBefore_ != AV_NOPTS_VALUE && packet_->pts != AV_NOPTS_VALUE && packet_->pts >= skipBefore_) {
                codec_->skip_frame = skipBase_;
                skipBefore_ = AV_NOPTS_VALUE;
            }
            DecodeLoop::Status s = loop_.decode(packet_.get(), keep);
            if (s == DecodeLoop::Status::endOfStream) ended_ = true;
        }
        av_packet_unref(packet_.get());
    }
    if (ready_.empty()) return nullptr;
    FramePtr f = std::move(ready_.front());
    ready_.pop_front();
    return f;
}

FramePtr StreamDecoder::nextAlone() {
    FramePtr out;
    auto keep = [&out](AVFrame* f) {
        if (!out) out.reset(av_frame_clone(f));
    };
    ready_.clear();
    for (int failures = 0; !out && failures < 16 && packet_;) {
        int r = av_read_frame(format_, packet_.get());
        if (r == AVERROR(EAGAIN)) continue;
        if (r < 0) break;
        const bool ours = packet_->stream_index == stream_;
        DecodeLoop::Status s = ours ? loop_.decode(packet_.get(), keep) : DecodeLoop::Status::okay;
        av_packet_unref(packet_.get());
        if (!ours) continue;
        if (s == DecodeLoop::Status::okay) break;
        ++failures;  // a damaged packet: try the next one
    }
    // Frame threads and reordering hold the picture back: a flush hands it over.
    if (!out) loop_.decode(nullptr, keep);
    loop_.reset();
    ended_ = true;  // decoding on would start after the picture, without it
    return out;
}

void StreamDecoder::skipUnreferencedBefore(int64_t timestamp) {
    if (skipBefore_ == AV_NOPTS_VALUE) skipBase_ = codec_->skip_frame;
    skipBefore_ = timestamp;
    codec_->skip_frame = std::max(skipBase_, AVDISCARD_NONREF);
}

void StreamDecoder::setSkipFrame(AVDiscard skip) {
    if (skipBefore_ == AV_NOPTS_VALUE) {
        codec_->skip_frame = skip;
    } else {
        skipBase_ = skip;
        codec_->skip_frame = std::max(skip, AVDISCARD_NONREF);
    }
}

void StreamDecoder::switchAtKeyFrame(AVCodecContext* codec) { switchTo_ = codec; }

bool StreamDecoder::seek(int64_t timestamp, bool forward) {
    switchTo_ = nullptr;
    if (skipBefore_ != AV_NOPTS_VALUE) codec_->skip_frame = skipBase_;
    skipBefore_ = AV_NOPTS_VALUE;
    ready_.clear();
    flushed_ = false;
    ended_ = false;
    int r = av_seek_frame(format_, stream_, timestamp, forward ? 0 : AVSEEK_FLAG_BACKWARD);
    loop_.reset();
    return r >= 0;
}

int channelsOf(const AVFrame* frame) { return std::max(1, frame->ch_layout.nb_channels); }

namespace {

// Sum of squares of `count` samples `step` apart, scaled to full scale 1.
template <class T>
double squares(const uint8_t* base, int count, int step, int offset, double scale, double bias = 0) {
    const T* p = reinterpret_cast<const T*>(base) + offset;
    double sum = 0;
    for (int i = 0; i < count; ++i) {
        const double v = (static_cast<double>(p[static_cast<ptrdiff_t>(i) * step]) - bias) * scale;
        sum += v * v;
    }
    return sum;
}

}  // namespace

void addChannelEnergy(const AVFrame* frame, std::vector<double>& sums) {
    const int channels = channelsOf(frame);
    if (sums.size() < static_cast<size_t>(channels)) sums.resize(static_cast<size_t>(channels), 0.0);
    const auto format = static_cast<AVSampleFormat>(frame->format);
    const bool planar = av_sample_fmt_is_planar(format);
    const int n = frame->nb_samples;
    for (int c = 0; c < channels; ++c) {
        const uint8_t* base = planar ? frame->extended_data[c] : frame->extended_data[0];
        const int step = planar ? 1 : channels, offset = planar ? 0 : c;
        double sum = 0;
        switch (av_get_packed_sample_fmt(format)) {
        case AV_SAMPLE_FMT_U8: sum = squares<uint8_t>(base, n, step, offset, 1.0 / 128, 128); break;
        case AV_SAMPLE_FMT_S16: sum = squares<int16_t>(base, n, step, offset, 1.0 / 32768); break;
        case AV_SAMPLE_FMT_S32: sum = squares<int32_t>(base, n, step, offset, 1.0 / 2147483648.0); break;
        case AV_SAMPLE_FMT_S64: sum = squares<int64_t>(base, n, step, offset, 1.0 / 9.223372036854775808e18); break;
        case AV_SAMPLE_FMT_FLT: sum = squares<float>(base, n, step, offset, 1.0); break;
        case AV_SAMPLE_FMT_DBL: sum = squares<double>(base, n, step, offset, 1.0); break;
        default: break;
        }
        sums[static_cast<size_t>(c)] += sum;
    }
}

SwrPtr openResampler(const AVFrame* frame, int channels, int rate, const std::vector<double>* matrix) {
    AVChannelLayout in{};
    if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame->ch_layout.nb_channels <= 0)
        av_channel_layout_default(&in, channelsOf(frame));
    else
        av_channel_layout_copy(&in, &frame->ch_layout);
    AVChannelLayout out{};
    av_channel_layout_default(&out, channels);
    SwrContext* raw = nullptr;
    int r = swr_alloc_set_opts2(&raw, &out, AV_SAMPLE_FMT_FLT, rate, &in, static_cast<AVSampleFormat>(frame->format),
                                frame->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
    SwrPtr swr(raw);
    if (r < 0 || !swr) return nullptr;
    if (matrix && matrix->size() == static_cast<size_t>(channels * channelsOf(frame)) &&
        swr_set_matrix(swr.get(), matrix->data(), channelsOf(frame)) < 0)
        return nullptr;
    if (swr_init(swr.get()) < 0) return nullptr;
    return swr;
}

}  // namespace qv::ff
