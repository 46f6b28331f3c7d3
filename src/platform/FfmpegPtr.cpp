#include "platform/FfmpegPtr.h"

#include "base/SystemError.h"

#include <sys/stat.h>

#include <cmath>

#include "platform/MediaProbe.h"

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

bool readPacket(AVFormatContext* format, AVPacket* packet, int& failures) {
    for (;;) {
        const int r = av_read_frame(format, packet);
        if (r == AVERROR(EAGAIN)) continue;
        if (r >= 0) return true;
        if (r == AVERROR_EOF || ++failures >= 16 || avio_feof(format->pb)) return false;
    }
}

int64_t streamStamp(const AVStream* s, double seconds) {
    return av_rescale_q(std::llround(seconds * AV_TIME_BASE), AVRational{1, AV_TIME_BASE}, s->time_base);
}

bool usableSound(const AVCodecParameters* par) {
    return par->codec_type == AVMEDIA_TYPE_AUDIO && par->sample_rate >= media::minSampleRate &&
           par->sample_rate <= media::maxSampleRate && par->ch_layout.nb_channels >= 1 &&
           par->ch_layout.nb_channels <= media::maxChannels;
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
    // System errors (a full disk, a folder in the way) in the user's words.
    if (code < 0 && code > -4096) return systemMessage(-code);
    switch (code) {
        case AVERROR_EOF: return "fin de fichier inattendue";
        case AVERROR_INVALIDDATA: return "données invalides";
        case AVERROR_ENCODER_NOT_FOUND: return "encodeur introuvable";
        case AVERROR_DECODER_NOT_FOUND: return "décodeur introuvable";
        case AVERROR_MUXER_NOT_FOUND: return "format de fichier inconnu";
        case AVERROR_DEMUXER_NOT_FOUND: return "format de fichier illisible";
        case AVERROR_PROTOCOL_NOT_FOUND: return "protocole inconnu";
        case AVERROR_STREAM_NOT_FOUND: return "flux introuvable";
        case AVERROR_EXIT: return "arrêt demandé";
        default: return "erreur FFmpeg " + std::to_string(code);
    }
}

}  // namespace qv::ff
