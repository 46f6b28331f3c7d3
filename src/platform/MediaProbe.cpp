#include "platform/MediaProbe.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <string>

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"

namespace qv::media {

namespace {

std::optional<std::chrono::system_clock::time_point> parseIsoDate(const char* text) {
    if (!text) return std::nullopt;
    std::tm tm{};
    int year, month, day, hour = 0, minute = 0;
    double second = 0;
    int n = std::sscanf(text, "%d-%d-%dT%d:%d:%lf", &year, &month, &day, &hour, &minute, &second);
    if (n < 3) n = std::sscanf(text, "%d-%d-%d %d:%d:%lf", &year, &month, &day, &hour, &minute, &second);
    if (n < 3 || year < 1901 || month < 1 || month > 12 || day < 1 || day > 31) return std::nullopt;
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = static_cast<int>(second);
    std::time_t t = timegm(&tm);
    auto tp = std::chrono::system_clock::from_time_t(t);
    double frac = second - std::floor(second);
    return tp + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                    std::chrono::duration<double>(frac));
}

const char* creationTag(const AVFormatContext* ctx) {
    if (auto* e = av_dict_get(ctx->metadata, "creation_time", nullptr, 0)) return e->value;
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        if (auto* e = av_dict_get(ctx->streams[i]->metadata, "creation_time", nullptr, 0)) return e->value;
    return nullptr;
}

}  // namespace

Result<ProbeInfo> probe(const std::filesystem::path& file) {
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return Error{"Impossible d'ouvrir " + file.filename().string() + "."};

    ProbeInfo info;
    if (ctx->duration != AV_NOPTS_VALUE && ctx->duration > 0) {
        info.duration = static_cast<double>(ctx->duration) / AV_TIME_BASE;
    } else {
        for (unsigned i = 0; i < ctx->nb_streams; ++i) {
            const AVStream* s = ctx->streams[i];
            if (s->duration != AV_NOPTS_VALUE && s->duration > 0)
                info.duration = std::max(info.duration, s->duration * av_q2d(s->time_base));
        }
    }

    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        const AVStream* s = ctx->streams[i];
        const AVCodecParameters* par = s->codecpar;
        if (ff::isPictureStream(s) && !info.hasVideo) {
            info.hasVideo = true;
            double w = par->width, h = par->height;
            if (const uint8_t* m = av_stream_get_side_data(s, AV_PKT_DATA_DISPLAYMATRIX, nullptr)) {
                double degrees = av_display_rotation_get(reinterpret_cast<const int32_t*>(m));
                if (std::isfinite(degrees)) {
                    double r = degrees * M_PI / 180.0;
                    double x = w * std::cos(r) - h * std::sin(r);
                    double y = w * std::sin(r) + h * std::cos(r);
                    w = std::fabs(x);
                    h = std::fabs(y);
                }
            }
            info.width = static_cast<int>(std::lround(w));
            info.height = static_cast<int>(std::lround(h));
            AVRational rate = s->avg_frame_rate.num > 0 ? s->avg_frame_rate : s->r_frame_rate;
            info.frameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
        } else if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
            info.audioChannels = std::max(info.audioChannels, par->ch_layout.nb_channels);
            info.sampleRate = std::max(info.sampleRate, static_cast<double>(par->sample_rate));
        }
    }
    info.creationTime = parseIsoDate(creationTag(ctx.get()));
    return info;
}

namespace {

// One audio stream on its way to a mono signal at the target rate.
struct AudioLane {
    int streamIndex = 0;
    ff::CodecPtr codec;
    std::unique_ptr<ff::DecodeLoop> loop;  // over `codec`, so declared after it
    ff::SwrPtr swr;
    std::vector<float> samples;
    bool started = false;
    double startSeconds = 0;  // time of its first decoded frame
    int outRate = 0;

    bool ensureResampler(const AVFrame* frame) {
        if (swr) return true;
        AVChannelLayout in{};
        if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame->ch_layout.nb_channels <= 0)
            av_channel_layout_default(&in, std::max(1, frame->ch_layout.nb_channels));
        else
            av_channel_layout_copy(&in, &frame->ch_layout);
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext* raw = nullptr;
        int r = swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, outRate, &in,
                                    static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0,
                                    nullptr);
        av_channel_layout_uninit(&in);
        swr.reset(raw);
        if (r < 0 || !swr || swr_init(swr.get()) < 0) {
            swr.reset();
            return false;
        }
        return true;
    }

    void take(const AVFrame* frame, const AVStream* stream) {
        if (!started) {
            started = true;
            int64_t pts = frame->best_effort_timestamp;
            if (pts != AV_NOPTS_VALUE) startSeconds = pts * av_q2d(stream->time_base);
        }
        if (!ensureResampler(frame)) return;
        int capacity = swr_get_out_samples(swr.get(), frame->nb_samples);
        if (capacity <= 0) return;
        size_t at = samples.size();
        samples.resize(at + static_cast<size_t>(capacity));
        uint8_t* out = reinterpret_cast<uint8_t*>(samples.data() + at);
        int got = swr_convert(swr.get(), &out, capacity, const_cast<const uint8_t**>(frame->extended_data),
                              frame->nb_samples);
        samples.resize(at + static_cast<size_t>(std::max(got, 0)));
    }

    void drain() {
        if (!swr) return;
        while (true) {
            int capacity = 4096;
            size_t at = samples.size();
            samples.resize(at + capacity);
            uint8_t* out = reinterpret_cast<uint8_t*>(samples.data() + at);
            int got = swr_convert(swr.get(), &out, capacity, nullptr, 0);
            samples.resize(at + static_cast<size_t>(std::max(got, 0)));
            if (got <= 0) break;
        }
    }
};

// Feeds one packet (or null to flush) through the lane's decode loop.
void decodePacket(AudioLane& lane, const AVStream* stream, const AVPacket* packet) {
    if (!lane.loop) lane.loop = std::make_unique<ff::DecodeLoop>(lane.codec.get());
    lane.loop->decode(packet, [&](AVFrame* f) { lane.take(f, stream); });  // a damaged packet is skipped
}

}  // namespace

Result<std::vector<float>> decodeMonoAudio(const std::filesystem::path& file, int sampleRate) {
    const std::string name = file.filename().string();
    const Error unreadable{"Impossible de lire l'audio de " + name + "."};
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return unreadable;

    std::vector<AudioLane> lanes;
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        AVStream* s = ctx->streams[i];
        if (s->codecpar->codec_type != AVMEDIA_TYPE_AUDIO) {
            s->discard = AVDISCARD_ALL;  // lets the demuxer skip video packets
            continue;
        }
        AudioLane lane;
        lane.streamIndex = static_cast<int>(i);
        lane.codec = ff::openDecoder(s);
        lane.outRate = sampleRate;
        // Room for the whole stream at once: growing by doubling would hold
        // up to twice an hour's signal while decoding.
        double seconds = s->duration != AV_NOPTS_VALUE ? s->duration * av_q2d(s->time_base)
                         : ctx->duration != AV_NOPTS_VALUE ? static_cast<double>(ctx->duration) / AV_TIME_BASE
                                                           : 0.0;
        if (seconds > 0 && seconds < 48 * 3600) lane.samples.reserve(static_cast<size_t>(seconds * sampleRate) + 8192);
        if (lane.codec) lanes.push_back(std::move(lane));
        else s->discard = AVDISCARD_ALL;
    }
    if (lanes.empty()) return unreadable;

    std::vector<int> laneOf(ctx->nb_streams, -1);
    for (size_t k = 0; k < lanes.size(); ++k) laneOf[static_cast<size_t>(lanes[k].streamIndex)] = static_cast<int>(k);

    ff::PacketPtr packet(av_packet_alloc());
    if (!packet) return unreadable;

    int failures = 0;
    while (true) {
        int r = av_read_frame(ctx.get(), packet.get());
        if (r == AVERROR(EAGAIN)) continue;
        if (r < 0) {
            // A broken stretch of a damaged file: keep reading a little,
            // then give up with what was decoded.
            if (r != AVERROR_EOF && ++failures < 16 && !avio_feof(ctx->pb)) continue;
            break;
        }
        int lane = packet->stream_index < static_cast<int>(laneOf.size()) ? laneOf[static_cast<size_t>(packet->stream_index)] : -1;
        if (lane >= 0) decodePacket(lanes[static_cast<size_t>(lane)], ctx->streams[packet->stream_index], packet.get());
        av_packet_unref(packet.get());
    }
    for (auto& lane : lanes) {
        decodePacket(lane, ctx->streams[lane.streamIndex], nullptr);
        lane.drain();
    }

    // Sample 0 is the file's time zero (its first picture, else its first
    // sound). Each stream lands at its first decoded sample's time from
    // there: later streams are shifted right by silence, sound before the
    // first picture is cut.
    double firstSound = INFINITY;
    for (const auto& lane : lanes)
        if (!lane.samples.empty()) firstSound = std::min(firstSound, lane.startSeconds);
    if (!std::isfinite(firstSound)) return std::vector<float>{};
    const double zero = ff::timeZero(ctx.get(), firstSound);
    auto shiftOf = [&](const AudioLane& lane) { return std::lround((lane.startSeconds - zero) * sampleRate); };
    if (lanes.size() == 1 && shiftOf(lanes[0]) == 0) return std::move(lanes[0].samples);
    std::vector<float> mix;
    for (auto& lane : lanes) {
        if (lane.samples.empty()) continue;
        long shift = shiftOf(lane);
        size_t skip = shift < 0 ? std::min(lane.samples.size(), static_cast<size_t>(-shift)) : 0;
        size_t offset = shift > 0 ? static_cast<size_t>(shift) : 0;
        size_t need = offset + lane.samples.size() - skip;
        if (mix.size() < need) mix.resize(need, 0.0f);
        for (size_t n = skip; n < lane.samples.size(); ++n) mix[offset + n - skip] += lane.samples[n];
    }
    return mix;
}

}  // namespace qv::media
