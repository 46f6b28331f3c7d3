#include "platform/VideoFrame.h"

#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/FfmpegPtr.h"
#include "platform/Paths.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace qv::media {

namespace {

struct SwsFreer {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using SwsPtr = std::unique_ptr<SwsContext, SwsFreer>;

Error cannotRead(const std::filesystem::path& file) {
    return Error{"Impossible de lire une image de " + file.filename().string() + "."};
}

// YUV pictures carry their matrix; untagged ones follow the usual rule of
// BT.709 from HD up and BT.601 below.
int swsColorspace(const AVFrame* f) {
    switch (f->colorspace) {
        case AVCOL_SPC_BT709: return SWS_CS_ITU709;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL: return SWS_CS_BT2020;
        case AVCOL_SPC_SMPTE170M:
        case AVCOL_SPC_BT470BG: return SWS_CS_ITU601;
        default: return f->height >= 720 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    }
}

Result<RgbaFrame> toRgba(const AVFrame* f) {
    RgbaFrame out;
    out.width = f->width;
    out.height = f->height;
    if (out.width <= 0 || out.height <= 0) return Error{"Image vide."};
    SwsPtr sws(sws_getContext(f->width, f->height, static_cast<AVPixelFormat>(f->format), f->width, f->height,
                              AV_PIX_FMT_RGBA, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr,
                              nullptr, nullptr));
    if (!sws) return Error{"Format d'image non pris en charge."};
    int fullRange = f->color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    sws_setColorspaceDetails(sws.get(), sws_getCoefficients(swsColorspace(f)), fullRange,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    out.pixels.resize(static_cast<size_t>(out.width) * out.height * 4);
    uint8_t* dst[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
    int dstStride[4] = {out.width * 4, 0, 0, 0};
    sws_scale(sws.get(), f->data, f->linesize, 0, f->height, dst, dstStride);
    return out;
}

}  // namespace

Result<RgbaFrame> decodeVideoFrame(const std::filesystem::path& file, double seconds) {
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return cannotRead(file);
    int si = av_find_best_stream(ctx.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (si < 0) return Error{file.filename().string() + " ne contient pas d'image."};
    AVStream* stream = ctx->streams[si];
    ff::CodecPtr dec = ff::openDecoder(stream, 1);
    if (!dec) return cannotRead(file);

    int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    int64_t target = start + av_rescale_q(std::llround(std::max(seconds, 0.0) * AV_TIME_BASE), AV_TIME_BASE_Q,
                                          stream->time_base);
    // A failed seek just means decoding from the start.
    if (target > start) av_seek_frame(ctx.get(), si, target, AVSEEK_FLAG_BACKWARD);

    ff::FramePtr frame(av_frame_alloc());
    ff::FramePtr kept(av_frame_alloc());
    ff::PacketPtr packet(av_packet_alloc());
    if (!frame || !kept || !packet) return cannotRead(file);
    bool have = false;
    bool done = false;

    // Keeps the latest frame at or before the target; the first frame stands
    // in when even it starts later.
    auto drain = [&] {
        while (!done) {
            if (avcodec_receive_frame(dec.get(), frame.get()) < 0) return;
            int64_t pts = frame->best_effort_timestamp;
            if (have && pts != AV_NOPTS_VALUE && pts > target) {
                done = true;
                return;
            }
            av_frame_unref(kept.get());
            av_frame_move_ref(kept.get(), frame.get());
            have = true;
            if (pts != AV_NOPTS_VALUE && pts >= target) done = true;
        }
    };

    while (!done && av_read_frame(ctx.get(), packet.get()) >= 0) {
        if (packet->stream_index == si && avcodec_send_packet(dec.get(), packet.get()) >= 0) drain();
        av_packet_unref(packet.get());
    }
    if (!done) {
        avcodec_send_packet(dec.get(), nullptr);
        drain();
    }
    if (!have) return cannotRead(file);
    return toRgba(kept.get());
}

Status writePng(const std::filesystem::path& file, const RgbaFrame& frame) {
    if (frame.width <= 0 || frame.height <= 0 ||
        frame.pixels.size() != static_cast<size_t>(frame.width) * frame.height * 4)
        return Error{"Image vide."};
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (!codec) return Error{"Cet ordinateur ne sait pas écrire de PNG."};
    ff::CodecPtr enc(avcodec_alloc_context3(codec));
    if (!enc) return Error{"Cet ordinateur ne sait pas écrire de PNG."};
    enc->width = frame.width;
    enc->height = frame.height;
    enc->pix_fmt = AV_PIX_FMT_RGBA;
    enc->time_base = AVRational{1, 25};
    if (avcodec_open2(enc.get(), codec, nullptr) < 0) return Error{"Cet ordinateur ne sait pas écrire de PNG."};

    ff::FramePtr f(av_frame_alloc());
    ff::PacketPtr packet(av_packet_alloc());
    if (!f || !packet) return Error{"Mémoire insuffisante."};
    f->format = AV_PIX_FMT_RGBA;
    f->width = frame.width;
    f->height = frame.height;
    if (av_frame_get_buffer(f.get(), 0) < 0) return Error{"Mémoire insuffisante."};
    for (int y = 0; y < frame.height; ++y)
        std::memcpy(f->data[0] + static_cast<ptrdiff_t>(y) * f->linesize[0],
                    frame.pixels.data() + static_cast<size_t>(y) * frame.width * 4, static_cast<size_t>(frame.width) * 4);

    if (avcodec_send_frame(enc.get(), f.get()) < 0 || avcodec_send_frame(enc.get(), nullptr) < 0 ||
        avcodec_receive_packet(enc.get(), packet.get()) < 0)
        return Error{"Impossible d'encoder l'image."};
    std::string_view bytes(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
    if (!paths::writeAtomically(file, bytes)) return Error{"Impossible d'écrire " + file.filename().string() + "."};
    return Ok{};
}

}  // namespace qv::media
