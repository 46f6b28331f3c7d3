#include "platform/MediaProbe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <string>

#include "base/SystemError.h"

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

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

// The timecode a camera wrote: a tag of the file or of any of its streams
// (the demuxer reads a QuickTime timecode track into one).
std::string timecodeTag(const AVFormatContext* ctx) {
    if (auto* e = av_dict_get(ctx->metadata, "timecode", nullptr, 0)) return e->value;
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        if (auto* e = av_dict_get(ctx->streams[i]->metadata, "timecode", nullptr, 0)) return e->value;
    return {};
}

using ff::usableSound;

// Any real sound or picture takes more bytes per second than this.
constexpr double minBytesPerSecond = 1000;

// Seconds the longest picture or sound stream spans by its packets, read to
// the end of the file (the packets already read for the stream information
// come first). Each stream counts on its own, so a stream whose start time
// lies far from the others' adds no empty stretch. 0 when none carries a time.
double packetSpan(AVFormatContext* ctx) {
    ff::PacketPtr packet(av_packet_alloc());
    if (!packet) return 0;
    std::vector<double> first(ctx->nb_streams, INFINITY), last(ctx->nb_streams, -INFINITY);
    int failures = 0;
    while (ff::readPacket(ctx, packet.get(), failures)) {
        size_t i = static_cast<size_t>(packet->stream_index);
        const AVStream* s = ctx->streams[i];
        int64_t t = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (t != AV_NOPTS_VALUE && (ff::isPictureStream(s) || usableSound(s->codecpar))) {
            double tb = av_q2d(s->time_base);
            first[i] = std::min(first[i], static_cast<double>(t) * tb);
            last[i] = std::max(last[i], (static_cast<double>(t) + std::max<double>(packet->duration, 0)) * tb);
        }
        av_packet_unref(packet.get());
    }
    double span = 0;
    for (size_t i = 0; i < first.size(); ++i)
        if (last[i] > first[i]) span = std::max(span, last[i] - first[i]);
    return span;
}

// How many frame times the probe looks at, at most: from an index, which
// costs nothing to read; from packets, about two seconds, which costs a few
// megabytes of a camcorder's stream (those keep a constant rate anyway:
// phones, the variable ones, write indexed MP4 and MOV).
constexpr size_t sampledFrames = 4000;
constexpr size_t sampledPackets = 48;

// The spread of frame durations (see PictureTags::frameSpread) from the
// presentation times of a sample of frames, in any order.
double spreadOf(std::vector<int64_t> times) {
    std::sort(times.begin(), times.end());
    std::vector<int64_t> steps;
    for (size_t i = 1; i < times.size(); ++i)
        if (times[i] > times[i - 1]) steps.push_back(times[i] - times[i - 1]);
    if (steps.size() < 8) return 0;
    std::sort(steps.begin(), steps.end());
    auto at = [&](double q) { return static_cast<double>(steps[static_cast<size_t>(q * (steps.size() - 1))]); };
    const double median = at(0.5);
    return median > 0 ? (at(0.9) - at(0.1)) / median : 0;
}

// The frame spread of picture stream `s`: from the container's index when
// it holds (nearly) every frame, so nothing is read; otherwise from the
// packets at the start of the file, which the caller's reading position
// must still be. Keyframe-only indexes (Matroska cues) are not enough.
double frameSpread(AVFormatContext* ctx, AVStream* s, double duration, double rate) {
    const int entries = avformat_index_get_entries_count(s);
    const double expected = duration * rate;
    if (entries >= 8 && entries >= 0.9 * expected) {
        std::vector<int64_t> times;
        for (int i = 0; i < entries && times.size() < sampledFrames; ++i)
            if (const AVIndexEntry* e = avformat_index_get_entry(s, i)) times.push_back(e->timestamp);
        return spreadOf(std::move(times));
    }
    ff::PacketPtr packet(av_packet_alloc());
    if (!packet) return 0;
    std::vector<int64_t> times;
    for (size_t read = 0; times.size() < sampledPackets && read < 20 * sampledPackets; ++read) {
        if (av_read_frame(ctx, packet.get()) < 0) break;
        if (packet->stream_index == s->index && packet->pts != AV_NOPTS_VALUE) times.push_back(packet->pts);
        av_packet_unref(packet.get());
    }
    return spreadOf(std::move(times));
}

FieldOrder fieldOrderOf(const AVCodecParameters* par) {
    switch (par->field_order) {
        case AV_FIELD_TT:
        case AV_FIELD_TB: return FieldOrder::topFirst;
        case AV_FIELD_BB:
        case AV_FIELD_BT: return FieldOrder::bottomFirst;
        default: return FieldOrder::progressive;
    }
}

}  // namespace

std::string mediaFormats() { return ff::mediaDemuxers; }

std::string whyUnreadable(const std::filesystem::path& file) {
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) {
        int code = errno;
        struct stat link {};
        if (code == ENOENT && lstat(file.c_str(), &link) == 0) return "lien cassé";
        return code == EACCES || code == EPERM ? "accès refusé" : systemMessage(code);
    }
    if (S_ISDIR(st.st_mode)) return "c'est un dossier";
    if (!S_ISREG(st.st_mode)) return "pas un fichier ordinaire";
    if (st.st_size == 0) return "fichier vide";
    int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return errno == EACCES || errno == EPERM ? "accès refusé" : systemMessage(errno);
    // A file whose beginning looks like a media container but that will not
    // open has lost its end (or its index); anything else is no media.
    std::vector<unsigned char> head(64 * 1024 + AVPROBE_PADDING_SIZE, 0);
    ssize_t got = read(fd, head.data(), 64 * 1024);
    close(fd);
    if (got <= 0) return "fichier tronqué";
    const std::string name = file.string();
    // A header cut shorter than the probes look at still counts as that
    // header: the zeros of the padding stand for its lost end.
    AVProbeData pd{name.c_str(), head.data(), static_cast<int>(std::max<ssize_t>(got, 64)), nullptr};
    int score = AVPROBE_SCORE_RETRY;
    const AVInputFormat* format = av_probe_input_format2(&pd, 1, &score);
    return format && ff::isMediaDemuxer(format->name) ? "fichier tronqué" : "pas un fichier vidéo ou audio";
}

Result<ProbeInfo> probe(const std::filesystem::path& file) {
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return Error{whyUnreadable(file)};

    ProbeInfo info;
    AVStream* picture = nullptr;

    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        AVStream* s = ctx->streams[i];
        const AVCodecParameters* par = s->codecpar;
        if (ff::isPictureStream(s) && !info.hasVideo) {
            info.hasVideo = true;
            picture = s;
            info.picture.fields = fieldOrderOf(par);
            info.picture.pixelAspect = ff::pixelAspect(ctx.get(), s);
            // Anamorphic pixels widen the stored picture before any turn.
            double w = par->width * info.picture.pixelAspect, h = par->height;
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
            info.colour.primaries = par->color_primaries;
            info.colour.transfer = par->color_trc;
            info.colour.matrix = par->color_space;
            info.colour.fullRange = par->color_range == AVCOL_RANGE_JPEG;
            if (const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(par->format)))
                info.colour.bitDepth = d->comp[0].depth;
            if (par->bits_per_raw_sample > 8 && par->bits_per_raw_sample <= 16)
                info.colour.bitDepth = std::max(info.colour.bitDepth, par->bits_per_raw_sample);
            AVRational rate = s->avg_frame_rate.num > 0 ? s->avg_frame_rate : s->r_frame_rate;
            info.frameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
        } else if (usableSound(par)) {
            info.audioChannels = std::max(info.audioChannels, par->ch_layout.nb_channels);
            info.sampleRate = std::max(info.sampleRate, static_cast<double>(par->sample_rate));
            ++info.audioStreams;
        }
    }
    info.creationTime = parseIsoDate(creationTag(ctx.get()));
    info.timecode = timecodeTag(ctx.get()).substr(0, 32);
    if (!info.hasVideo && info.audioChannels < 1) {
        bool anySound = false;
        for (unsigned i = 0; i < ctx->nb_streams; ++i)
            anySound = anySound || ctx->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        return Error{anySound ? "fréquence ou nombre de canaux hors normes" : "pas un fichier vidéo ou audio"};
    }

    // The streams' own lengths first: a container header that claims fifty
    // days over eleven seconds of packets must not make a fifty-day item.
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        const AVStream* s = ctx->streams[i];
        bool counted = ff::isPictureStream(s) || usableSound(s->codecpar);
        if (counted && s->duration != AV_NOPTS_VALUE && s->duration > 0)
            info.duration = std::max(info.duration, s->duration * av_q2d(s->time_base));
    }
    if (!(info.duration > 0) && ctx->duration != AV_NOPTS_VALUE && ctx->duration > 0)
        info.duration = static_cast<double>(ctx->duration) / AV_TIME_BASE;
    // Fewer bytes than the claimed length could hold: the header lies, and
    // what the packets really span is the file's length.
    int64_t bytes = ctx->pb ? avio_size(ctx->pb) : -1;
    const bool lying = bytes >= 0 && info.duration > 0 && static_cast<double>(bytes) < info.duration * minBytesPerSecond;
    if (lying) info.duration = std::min(info.duration, packetSpan(ctx.get()));
    if (!(info.duration > 0) || !std::isfinite(info.duration)) return Error{"fichier tronqué"};
    if (picture) {
        // The packets were read to the end for the length: start again.
        if (lying) avformat_seek_file(ctx.get(), -1, INT64_MIN, 0, 0, AVSEEK_FLAG_BACKWARD);
        info.picture.frameSpread = frameSpread(ctx.get(), picture, info.duration, info.frameRate);
    }
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
    std::vector<double> energy;  // sum of squares per channel
    int64_t counted = 0;         // samples per channel summed there

    bool ensureResampler(const AVFrame* frame) {
        if (swr) return true;
        // Every channel weighs the same, so none is lost to a layout's idea
        // of which channels matter.
        const int channels = ff::channelsOf(frame);
        const std::vector<double> even(static_cast<size_t>(channels), 1.0 / channels);
        swr = ff::openResampler(frame, 1, outRate, &even);
        return swr != nullptr;
    }

    void take(const AVFrame* frame, const AVStream* stream) {
        ff::addChannelEnergy(frame, energy);
        counted += frame->nb_samples;
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

Result<DecodedSound> decodeMonoAudio(const std::filesystem::path& file, int sampleRate) {
    const std::string name = file.filename().string();
    const Error unreadable{"Impossible de lire l'audio de " + name + "."};
    ff::FormatPtr ctx = ff::openInput(file.string());
    if (!ctx) return unreadable;

    const int64_t fileBytes = ctx->pb ? avio_size(ctx->pb) : 0;
    std::vector<AudioLane> lanes;
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        AVStream* s = ctx->streams[i];
        if (!usableSound(s->codecpar)) {
            s->discard = AVDISCARD_ALL;  // lets the demuxer skip video packets
            continue;
        }
        AudioLane lane;
        lane.streamIndex = static_cast<int>(i);
        lane.codec = ff::openDecoder(s);
        lane.outRate = sampleRate;
        // Room for the whole stream at once: growing by doubling would hold
        // up to twice an hour's signal while decoding. The header's length is
        // believed only as far as the file's bytes could hold that much sound.
        double seconds = s->duration != AV_NOPTS_VALUE ? s->duration * av_q2d(s->time_base)
                         : ctx->duration != AV_NOPTS_VALUE ? static_cast<double>(ctx->duration) / AV_TIME_BASE
                                                           : 0.0;
        double room = std::min(seconds * sampleRate, static_cast<double>(std::max<int64_t>(fileBytes, 0)));
        if (room > 0) lane.samples.reserve(static_cast<size_t>(room) + 8192);
        if (lane.codec) lanes.push_back(std::move(lane));
        else s->discard = AVDISCARD_ALL;
    }
    if (lanes.empty()) return unreadable;

    std::vector<int> laneOf(ctx->nb_streams, -1);
    for (size_t k = 0; k < lanes.size(); ++k) laneOf[static_cast<size_t>(lanes[k].streamIndex)] = static_cast<int>(k);

    ff::PacketPtr packet(av_packet_alloc());
    if (!packet) return unreadable;

    int failures = 0;
    // A broken stretch of a damaged file ends the pass with what was decoded.
    while (ff::readPacket(ctx.get(), packet.get(), failures)) {
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
    // Levels of every usable stream in file order; one that would not
    // decode stays empty, so stream numbers match the readers'.
    DecodedSound out;
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        if (!usableSound(ctx->streams[i]->codecpar)) continue;
        std::vector<float> rms;
        const int k = laneOf[i];
        if (k >= 0)
            for (double e : lanes[static_cast<size_t>(k)].energy) {
                const int64_t n = lanes[static_cast<size_t>(k)].counted;
                rms.push_back(n > 0 ? static_cast<float>(std::sqrt(e / static_cast<double>(n))) : 0.0f);
            }
        out.levels.streams.push_back(std::move(rms));
    }
    const double moved = ff::soundMove(ctx.get());
    for (auto& lane : lanes) lane.startSeconds += moved;
    double firstSound = INFINITY;
    for (const auto& lane : lanes)
        if (!lane.samples.empty()) firstSound = std::min(firstSound, lane.startSeconds);
    if (!std::isfinite(firstSound)) return out;
    const double zero = ff::timeZero(ctx.get(), firstSound);
    auto shiftOf = [&](const AudioLane& lane) { return std::lround((lane.startSeconds - zero) * sampleRate); };
    if (lanes.size() == 1 && shiftOf(lanes[0]) == 0) {
        out.samples = std::move(lanes[0].samples);
        return out;
    }
    // A start far beyond what the streams hold is a lie of the header: a
    // stream is pushed right only by less than the longest one lasts.
    double longest = 0;
    for (const auto& lane : lanes) longest = std::max(longest, static_cast<double>(lane.samples.size()));
    std::vector<float>& mix = out.samples;
    for (auto& lane : lanes) {
        if (lane.samples.empty()) continue;
        long shift = shiftOf(lane);
        if (shift > 0 && static_cast<double>(shift) >= longest) shift = 0;
        size_t skip = shift < 0 ? std::min(lane.samples.size(), static_cast<size_t>(-shift)) : 0;
        size_t offset = shift > 0 ? static_cast<size_t>(shift) : 0;
        size_t need = offset + lane.samples.size() - skip;
        if (mix.size() < need) mix.resize(need, 0.0f);
        for (size_t n = skip; n < lane.samples.size(); ++n) mix[offset + n - skip] += lane.samples[n];
    }
    return out;
}

}  // namespace qv::media
