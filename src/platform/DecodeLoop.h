// The send/receive decode loop, written once for every reader of the
// program (the sync's sound, the per-source readers, the export). Private to
// the platform layer: it speaks FFmpeg types.
//
// `decode` feeds one packet, or null to flush at the end of the stream, and
// hands every frame the codec then yields to `onFrame`. EAGAIN and EOF are
// the codec's normal answers, not errors: a full input queue is drained and
// the packet sent again; EOF after a flush reports `endOfStream`.
#pragma once

#include <deque>
#include <functional>
#include <vector>

#include "platform/FfmpegPtr.h"

namespace qv::ff {

class DecodeLoop {
public:
    enum class Status {
        okay,             // the packet went in; every frame ready was handed over
        endOfStream,      // flushed and drained: nothing more will come
        sendFailed,       // the codec refused the packet (damaged data)
        decodeFailed,     // the codec failed on a frame
    };

    // `codec` must outlive the loop; the loop never owns it.
    explicit DecodeLoop(AVCodecContext* codec);

    // `onFrame` receives frames the loop still owns: take a reference
    // (av_frame_ref, av_frame_clone) to keep one beyond the call.
    Status decode(const AVPacket* packet, const std::function<void(AVFrame*)>& onFrame);

    // Drops everything buffered in the codec, after a seek.
    void reset();

private:
    AVCodecContext* codec_;
    FramePtr frame_;
};

// Pull side of the loop over one stream of an open file: `next` returns the
// following decoded frame, reading and decoding packets as needed. Damaged
// packets are skipped (a run of them ends the stream early); `seek` moves
// to the key frame at or before a stream time stamp.
class StreamDecoder {
public:
    StreamDecoder(AVFormatContext* format, int streamIndex, AVCodecContext* codec);

    // A frame the caller now owns, or null at the end of the stream.
    FramePtr next();
    // Seeks so that decoding starts at or before `timestamp` (stream time
    // base), or with `forward` at the first key frame at or after it; false
    // when the demuxer could not seek.
    bool seek(int64_t timestamp, bool forward = false);
    bool ended() const { return ended_; }
    // Until a packet stamped at or after `timestamp` comes, pictures that
    // nothing refers to are not decoded: on the way from a key frame to a
    // picture they only cost time. Ends with the next seek.
    void skipUnreferencedBefore(int64_t timestamp);
    // The codec's own choice of pictures to skip, kept through the above.
    void setSkipFrame(AVDiscard skip);
    // The next picture decoded by itself: its packet alone, the codec drained
    // right after, so nothing that follows it in decoding order is decoded
    // (a key frame for a glance). The codec is flushed then: seek before
    // decoding on.
    FramePtr nextAlone();

    // From the next key packet on, `codec` decodes instead (another thread
    // count, say): the codec in use first gives every picture it holds, so
    // nothing is lost and no seek is needed. It takes the skip settings of
    // the one it replaces. The caller owns both and frees the old one once
    // `codec()` has changed; a seek drops the change.
    void switchAtKeyFrame(AVCodecContext* codec);
    AVCodecContext* codec() const { return codec_; }

private:
    AVFormatContext* format_;
    int stream_;
    AVCodecContext* codec_;
    AVCodecContext* switchTo_ = nullptr;
    DecodeLoop loop_;
    int64_t skipBefore_ = AV_NOPTS_VALUE;
    AVDiscard skipBase_ = AVDISCARD_DEFAULT;  // the codec's own setting, put back after
    PacketPtr packet_;
    std::deque<FramePtr> ready_;
    bool flushed_ = false;
    bool ended_ = false;
};

// A resampler from the format of decoded sound `frame` to interleaved floats
// of `channels` channels at `rate`; null when it cannot be made. Frames
// without a channel layout are taken as the usual layout of their count.
// `matrix`, when given, holds channels x (frame's channels) weights, row by
// output channel, in place of the layouts' own mixing.
SwrPtr openResampler(const AVFrame* frame, int channels, int rate, const std::vector<double>* matrix = nullptr);

// Adds the sum of squares of each channel of `frame` to `sums` (grown to
// the frame's channel count).
void addChannelEnergy(const AVFrame* frame, std::vector<double>& sums);

// The channel count of a decoded sound frame (at least 1).
int channelsOf(const AVFrame* frame);

}  // namespace qv::ff
