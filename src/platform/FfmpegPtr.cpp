#include "platform/FfmpegPtr.h"

#include <sys/stat.h>

namespace qv::ff {

FormatPtr openInput(const std::string& path) {
    av_log_set_level(AV_LOG_QUIET);
    // Only regular files: opening a FIFO or a device would block for ever.
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    FormatPtr ctx(raw);
    if (avformat_find_stream_info(ctx.get(), nullptr) < 0) return nullptr;
    return ctx;
}

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

bool isPictureStream(const AVStream* s) {
    return s->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !(s->disposition & AV_DISPOSITION_ATTACHED_PIC);
}

std::string errorText(int code) {
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buf, sizeof buf);
    return buf;
}

}  // namespace qv::ff
