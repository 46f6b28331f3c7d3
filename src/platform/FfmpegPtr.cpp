#include "platform/FfmpegPtr.h"

#include <sys/stat.h>

#include <cmath>

extern "C" {
#include <libavutil/avstring.h>
}

namespace qv::ff {

// Containers of camera and recorder files, and single still pictures.
// Playlists, concatenation lists, image sequences and devices are left out:
// they name other files (or streams) and could read anything, block on a
// FIFO or follow themselves.
const char* const mediaDemuxers =
    "mov,matroska,avi,mxf,mpegts,mpeg,wav,w64,mp3,aac,flac,aiff,caf,ogg,m4v,h264,hevc,dv,asf,flv,amr,ac3,eac3,"
    "dts,truehd,wv,ape,au,loas,png_pipe,jpeg_pipe";

FormatPtr openInput(const std::string& path) {
    av_log_set_level(AV_LOG_QUIET);
    // Only regular files: opening a FIFO or a device would block for ever.
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    AVDictionary* raw_options = nullptr;
    av_dict_set(&raw_options, "protocol_whitelist", "file", 0);
    av_dict_set(&raw_options, "format_whitelist", mediaDemuxers, 0);
    std::unique_ptr<AVDictionary*, void (*)(AVDictionary**)> options(&raw_options, av_dict_free);
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, options.get()) < 0) return nullptr;
    FormatPtr ctx(raw);
    if (avformat_find_stream_info(ctx.get(), nullptr) < 0) return nullptr;
    return ctx;
}

bool isMediaDemuxer(const char* name) { return name && av_match_list(name, mediaDemuxers, ',') > 0; }

CodecPtr openDecoder(const AVStream* stream, int threads) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec) return nullptr;
    CodecPtr ctx(avcodec_alloc_context3(codec));
    if (!ctx) return nullptr;
    if (avcodec_parameters_to_context(ctx.get(), stream->codecpar) < 0) return nullptr;
    ctx->thread_count = threads;
    ctx->pkt_timebase = stream->time_base;
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0) return nullptr;
    return ctx;
}

int64_t streamStamp(const AVStream* s, double seconds) {
    return av_rescale_q(std::llround(seconds * AV_TIME_BASE), AV_TIME_BASE_Q, s->time_base);
}

double pixelAspect(AVFormatContext* ctx, AVStream* s) {
    const AVRational sar = av_guess_sample_aspect_ratio(ctx, s, nullptr);
    if (sar.num <= 0 || sar.den <= 0) return 1;
    const double aspect = av_q2d(sar);
    return aspect >= 0.25 && aspect <= 4 ? aspect : 1;
}

bool isPictureStream(const AVStream* s) {
    return s->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !(s->disposition & AV_DISPOSITION_ATTACHED_PIC);
}

std::string errorText(int code) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof buf);
    return buf;
}

}  // namespace qv::ff
