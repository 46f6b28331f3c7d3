// Owning handles for FFmpeg objects. Private to the platform layer: nothing
// outside src/platform includes FFmpeg headers. Every object is released by
// its own deleter, so a reader that fails half-way leaks nothing.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <string>

namespace qv::ff {

struct FormatCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwrFreer {
    void operator()(SwrContext* s) const { swr_free(&s); }
};

using FormatPtr = std::unique_ptr<AVFormatContext, FormatCloser>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using SwrPtr = std::unique_ptr<SwrContext, SwrFreer>;

// The demuxers a media file may be read with, as a comma-separated list.
extern const char* const mediaDemuxers;

// Opens a regular local file with one of `mediaDemuxers`, through the file
// protocol only, and reads its stream information; null on failure.
FormatPtr openInput(const std::string& path);

// Whether a demuxer's name (or one of its comma-separated aliases) is allowed.
bool isMediaDemuxer(const char* name);

// Opens a decoder for one stream; null when none exists or it won't open.
CodecPtr openDecoder(const AVStream* stream, int threads = 1);

// An FFmpeg error code in French words (system errors through systemMessage).
std::string errorText(int code);

// A real picture stream: cover art attached to a sound file does not count.
bool isPictureStream(const AVStream* s);

// The next packet of `format`. Past a damaged stretch it reads on a little
// (`failures`, counted over the whole pass) before taking the end of the
// file; false at that end.
bool readPacket(AVFormatContext* format, AVPacket* packet, int& failures);

// Sound whose header can be believed: a rate of 1 Hz or a thousand channels
// would make the decoded signal thousands of times larger than the file.
bool usableSound(const AVCodecParameters* par);
// Width over height of a stored pixel of picture stream `s`; 1 when the
// file says nothing, or nothing a camera would write.
double pixelAspect(AVFormatContext* ctx, AVStream* s);

// `seconds` on the container's clock as a time stamp of stream `s`.
int64_t streamStamp(const AVStream* s, double seconds);

// Media time zero of an open file, in seconds of its container's clock: the
// presentation time of the first frame of its first picture stream or, with
// no picture, `firstSound`, the time of the first decoded sound sample
// (decoders drop codec delay and priming and move that time accordingly).
// The one rule every reader of this program measures from.
double timeZero(const AVFormatContext* ctx, double firstSound);

// Seconds to add to the time stamps of an open file's sound so that they
// stand where it was recorded against the picture: 0 but for writers known
// to move them (MediaTime.cpp).
double soundMove(const AVFormatContext* ctx);

}  // namespace qv::ff
