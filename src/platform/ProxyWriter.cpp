#include "platform/ProxyWriter.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <cstring>

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"
#include "platform/HdrConverter.h"
#include "platform/RgbaConverter.h"

namespace qv::media {

namespace {

struct OutputCloser {
    void operator()(AVFormatContext* c) const {
        if (c->pb) avio_closep(&c->pb);
        avformat_free_context(c);
    }
};
using OutputPtr = std::unique_ptr<AVFormatContext, OutputCloser>;

// Sends one frame (null to flush) and writes every packet the encoder gives.
int encode(AVCodecContext* encoder, const AVFrame* frame, AVFormatContext* out, AVStream* stream, AVPacket* packet) {
    int r = avcodec_send_frame(encoder, frame);
    if (r < 0) return r;
    for (;;) {
        r = avcodec_receive_packet(encoder, packet);
        if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return 0;
        if (r < 0) return r;
        av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
        packet->stream_index = stream->index;
        r = av_interleaved_write_frame(out, packet);
        if (r < 0) return r;
    }
}

Status write(const std::filesystem::path& in, const std::filesystem::path& out, const ProxyOptions& options,
             const std::atomic<bool>& cancel) {
    const std::string name = in.filename().string();
    ff::FormatPtr input = ff::openInput(in.string());
    if (!input) return Error{"Impossible de lire " + name};
    int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0 || (input->streams[index]->disposition & AV_DISPOSITION_ATTACHED_PIC))
        return Error{name + " n'a pas d'image"};
    AVStream* source = input->streams[index];
    ff::CodecPtr decoder = ff::openDecoder(source, options.threads);
    if (!decoder) return Error{"Impossible de décoder " + name};

    const AVCodec* h264 = avcodec_find_encoder_by_name("libx264");
    if (!h264) return Error{"Cet ordinateur ne sait pas écrire en H.264"};
    // Never wider than the original: a proxy only ever makes decoding lighter.
    const int width = std::max(2, std::min(options.width, decoder->width) / 2 * 2);
    const int height = std::max(2, static_cast<int>(std::lround(double(width) * decoder->height /
                                                                std::max(1, decoder->width) / 2)) * 2);
    ff::CodecPtr encoder(avcodec_alloc_context3(h264));
    if (!encoder) return Error{"Mémoire insuffisante"};
    encoder->width = width;
    encoder->height = height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = source->time_base;
    encoder->framerate = source->avg_frame_rate;
    encoder->gop_size = options.gop;
    encoder->max_b_frames = 0;
    encoder->thread_count = options.threads;
    encoder->sample_aspect_ratio = AVRational{1, 1};
    encoder->colorspace = AVCOL_SPC_BT709;
    encoder->color_primaries = AVCOL_PRI_BT709;
    encoder->color_trc = AVCOL_TRC_BT709;
    av_opt_set(encoder->priv_data, "preset", "veryfast", 0);
    av_opt_set(encoder->priv_data, "crf", std::to_string(options.crf).c_str(), 0);

    AVFormatContext* rawOut = nullptr;
    if (avformat_alloc_output_context2(&rawOut, nullptr, "mp4", out.c_str()) < 0 || !rawOut)
        return Error{"Impossible d'écrire " + out.filename().string()};
    OutputPtr output(rawOut);
    if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (int r = avcodec_open2(encoder.get(), h264, nullptr); r < 0)
        return Error{"H.264 refuse la copie de " + name + " : " + ff::errorText(r)};
    AVStream* stream = avformat_new_stream(output.get(), nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, encoder.get()) < 0)
        return Error{"Impossible d'écrire " + out.filename().string()};
    stream->time_base = encoder->time_base;
    stream->avg_frame_rate = source->avg_frame_rate;
    // The picture is shown turned as the original is.
    size_t matrixSize = 0;
    if (const uint8_t* matrix = av_stream_get_side_data(source, AV_PKT_DATA_DISPLAYMATRIX, &matrixSize)) {
        if (uint8_t* copy = av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, matrixSize))
            std::memcpy(copy, matrix, matrixSize);
    }
    if (int r = avio_open(&output->pb, out.c_str(), AVIO_FLAG_WRITE); r < 0)
        return Error{"Impossible d'écrire " + out.filename().string() + " : " + ff::errorText(r)};
    if (int r = avformat_write_header(output.get(), nullptr); r < 0)
        return Error{"Impossible d'écrire " + out.filename().string() + " : " + ff::errorText(r)};

    ff::SwsPtr scaler;
    ff::HdrConverter hdr;
    ff::FramePtr scaled(av_frame_alloc());
    ff::PacketPtr packet(av_packet_alloc());
    if (!scaled || !packet) return Error{"Mémoire insuffisante"};
    scaled->format = AV_PIX_FMT_YUV420P;
    scaled->width = width;
    scaled->height = height;
    if (av_frame_get_buffer(scaled.get(), 0) < 0) return Error{"Mémoire insuffisante"};

    ff::StreamDecoder frames(input.get(), index, decoder.get());
    int64_t lastPts = AV_NOPTS_VALUE;
    while (ff::FramePtr frame = frames.next()) {
        if (cancel) return Error{"Copie de " + name + " interrompue"};
        int64_t pts = frame->best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) pts = lastPts == AV_NOPTS_VALUE ? 0 : lastPts + 1;
        if (lastPts != AV_NOPTS_VALUE && pts <= lastPts) continue;  // a repeated stamp: the encoder needs order
        lastPts = pts;
        // HDR and wide gamut become BT.709 SDR first: the proxy is tagged BT.709.
        const AVFrame* picture = frame.get();
        ff::FramePtr sdr;
        if (const auto road = media::colourRoad(ff::colourTagsOf(frame.get()));
            road == media::ColourRoad::hdr || road == media::ColourRoad::wideGamut)
            if (auto converted = hdr.toYuv(frame.get())) picture = (sdr = std::move(converted).value()).get();
        scaler.reset(sws_getCachedContext(scaler.release(), picture->width, picture->height,
                                          static_cast<AVPixelFormat>(picture->format), width, height,
                                          AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!scaler || av_frame_make_writable(scaled.get()) < 0) return Error{"Impossible de décoder " + name};
        sws_scale(scaler.get(), picture->data, picture->linesize, 0, picture->height, scaled->data, scaled->linesize);
        scaled->pts = pts;
        if (int r = encode(encoder.get(), scaled.get(), output.get(), stream, packet.get()); r < 0)
            return Error{"Impossible d'écrire la copie de " + name + " : " + ff::errorText(r)};
    }
    if (lastPts == AV_NOPTS_VALUE) return Error{"Impossible de décoder " + name};
    if (int r = encode(encoder.get(), nullptr, output.get(), stream, packet.get()); r < 0)
        return Error{"Impossible d'écrire la copie de " + name + " : " + ff::errorText(r)};
    if (int r = av_write_trailer(output.get()); r < 0)
        return Error{"Impossible d'écrire la copie de " + name + " : " + ff::errorText(r)};
    return Ok{};
}

}  // namespace

Status writeProxy(const std::filesystem::path& in, const std::filesystem::path& out, const ProxyOptions& options,
                  const std::atomic<bool>& cancel) {
    Status status = write(in, out, options, cancel);
    if (!status) {
        std::error_code ec;
        std::filesystem::remove(out, ec);
    }
    return status;
}

}  // namespace qv::media
