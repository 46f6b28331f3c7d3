#include "platform/MediaTime.h"

#include <cmath>
#include <string_view>

#include "platform/FfmpegPtr.h"

namespace qv {

namespace ff {

namespace {

const AVStream* firstPicture(const AVFormatContext* ctx) {
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        if (isPictureStream(ctx->streams[i])) return ctx->streams[i];
    return nullptr;
}

}  // namespace

double soundMove(const AVFormatContext* ctx) {
    // FFmpeg's Matroska writer moves every stream later by a sound codec's
    // delay (Opus pre-skip), then writes the sound's blocks that delay early
    // again: the picture starts one delay after zero, the sound's first
    // packet one delay before zero, and the sound the decoder keeps begins
    // at zero, one delay before the picture it was recorded with.
    if (!ctx->iformat || !std::string_view(ctx->iformat->name).starts_with("matroska")) return 0;
    const AVStream* picture = firstPicture(ctx);
    if (!picture || picture->start_time == AV_NOPTS_VALUE) return 0;
    const double tick = av_q2d(picture->time_base);
    const double start = static_cast<double>(picture->start_time) * tick;
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        const AVStream* s = ctx->streams[i];
        const AVCodecParameters* par = s->codecpar;
        if (par->codec_type != AVMEDIA_TYPE_AUDIO || par->initial_padding <= 0 || par->sample_rate <= 0 ||
            s->start_time == AV_NOPTS_VALUE)
            continue;
        const double delay = static_cast<double>(par->initial_padding) / par->sample_rate;
        const double soundStart = static_cast<double>(s->start_time) * av_q2d(s->time_base);
        if (std::fabs(start - delay) <= tick && std::fabs(soundStart + delay) <= av_q2d(s->time_base)) return start;
    }
    return 0;
}

double timeZero(const AVFormatContext* ctx, double firstSound) {
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        const AVStream* s = ctx->streams[i];
        if (!isPictureStream(s)) continue;
        // The demuxer has already applied edit lists and stream offsets, so
        // the stream's start is the first frame an editor shows.
        if (s->start_time != AV_NOPTS_VALUE) return static_cast<double>(s->start_time) * av_q2d(s->time_base);
        break;
    }
    return firstSound;
}

}  // namespace ff

namespace media {

Result<double> soundLead(const std::filesystem::path& file) {
    const Error unreadable{"Impossible de lire l'audio de " + file.filename().string() + "."};
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return unreadable;
    int index = av_find_best_stream(ctx.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0) return unreadable;
    AVStream* stream = ctx->streams[index];
    ff::CodecPtr codec = ff::openDecoder(stream);
    ff::PacketPtr packet(av_packet_alloc());
    ff::FramePtr frame(av_frame_alloc());
    if (!codec || !packet || !frame) return unreadable;
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        if (static_cast<int>(i) != index) ctx->streams[i]->discard = AVDISCARD_ALL;

    // The first frame out of the decoder, its delay and priming dropped.
    // A few hundred packets without one mean a broken stream.
    for (int packets = 0; packets < 500; ++packets) {
        int r = av_read_frame(ctx.get(), packet.get());
        if (r < 0) break;
        bool mine = packet->stream_index == index;
        if (mine) avcodec_send_packet(codec.get(), packet.get());
        av_packet_unref(packet.get());
        if (mine && avcodec_receive_frame(codec.get(), frame.get()) == 0) {
            int64_t pts = frame->best_effort_timestamp;
            double firstSound = pts != AV_NOPTS_VALUE ? static_cast<double>(pts) * av_q2d(stream->time_base)
                                : stream->start_time != AV_NOPTS_VALUE
                                    ? static_cast<double>(stream->start_time) * av_q2d(stream->time_base)
                                    : 0.0;
            firstSound += ff::soundMove(ctx.get());
            return firstSound - ff::timeZero(ctx.get(), firstSound);
        }
    }
    return unreadable;
}

}  // namespace media

}  // namespace qv
