#include "platform/VideoFrame.h"

#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"
#include "platform/Paths.h"
#include "platform/RgbaConverter.h"

namespace qv::media {

namespace {

Error cannotRead(const std::filesystem::path& file) {
    return Error{"Impossible de lire une image de " + file.filename().string() + "."};
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
    int64_t target = start + ff::streamStamp(stream, std::max(seconds, 0.0));
    // A failed seek just means decoding from the start.
    ff::StreamDecoder decoder(ctx.get(), si, dec.get());
    if (target > start) decoder.seek(target);
    // Keeps the latest frame at or before the target; the first frame stands
    // in when even it starts later.
    ff::FramePtr kept;
    bool have = false;
    while (ff::FramePtr frame = decoder.next()) {
        int64_t pts = frame->best_effort_timestamp;
        if (have && pts != AV_NOPTS_VALUE && pts > target) break;
        kept = std::move(frame);
        have = true;
        if (pts != AV_NOPTS_VALUE && pts >= target) break;
    }
    if (!have) return cannotRead(file);
    return ff::RgbaConverter().convert(kept.get());
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
