// The sampler's single forward pass: packets read in file order, the ones
// the chosen road does not need never reach the decoder, and a picture is
// converted only when it is handed over.
#include "platform/PictureSampler.h"

#include <algorithm>
#include <cmath>

#include "platform/DecodeLoop.h"
#include "platform/FfmpegPtr.h"
#include "platform/RgbaConverter.h"

namespace qv::media {

namespace {

Error unreadable(const std::filesystem::path& file) {
    return Error{"Impossible de lire les images de " + file.filename().string() + "."};
}

SamplerRoad chooseRoad(const AVStream* stream, const SamplerOptions& options) {
    const AVCodecParameters* par = stream->codecpar;
    AVRational r = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
    const double rate = r.num > 0 && r.den > 0 ? av_q2d(r) : 30.0;
    const double pixelsPerSecond = static_cast<double>(par->width) * par->height * std::clamp(rate, 1.0, 240.0);
    const AVCodecDescriptor* d = avcodec_descriptor_get(par->codec_id);
    if (d && (d->props & AV_CODEC_PROP_INTRA_ONLY)) return SamplerRoad::intraPicked;
    if (pixelsPerSecond <= options.fullBudget) return SamplerRoad::every;
    // Reordering delay means B-frames; dropping them leaves about one
    // picture in four (three B-frames between anchors is the usual pattern).
    if (par->video_delay > 0 && pixelsPerSecond / 4 <= options.fullBudget) return SamplerRoad::anchors;
    return SamplerRoad::keysOnly;
}

}  // namespace

Result<SamplerRoad> samplePictures(const std::filesystem::path& file, const SamplerOptions& options,
                                   const std::function<bool(SampledPicture&&)>& onPicture) {
    ff::FormatPtr format = ff::openInput(file.string());
    if (!format) return unreadable(file);
    int index = -1;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        AVStream* st = format->streams[i];
        if (index < 0 && ff::isPictureStream(st)) index = static_cast<int>(i);
        else st->discard = AVDISCARD_ALL;
    }
    if (index < 0) return Error{file.filename().string() + " ne contient pas d'image."};
    AVStream* stream = format->streams[index];
    // Two frame threads: the sampler runs at the lowest priority, so it may
    // take both cores whenever nothing else wants them.
    ff::CodecPtr codec = ff::openDecoder(stream, 2);
    if (!codec) return unreadable(file);

    const SamplerRoad road = chooseRoad(stream, options);
    // The deblocking stays: without it each predicted picture drifts from
    // what the camera meant, differently for every kind of picture, and two
    // copies of one frozen picture would no longer look alike.
    if (road == SamplerRoad::anchors) codec->skip_frame = AVDISCARD_BIDIR;

    const double origin = ff::timeZero(format.get(), 0);
    const double timeBase = av_q2d(stream->time_base);
    const int outW = std::max(2, options.width & ~1);
    const int outH = std::max(2, static_cast<int>(std::lround(static_cast<double>(outW) * stream->codecpar->height /
                                                              std::max(1, stream->codecpar->width) / 2)) * 2);

    ff::DecodeLoop loop(codec.get());
    ff::RgbaConverter converter;
    double nextPair = -1e9;  // start of the next pair wanted
    bool partnerDue = false; // the picture after a pair's first one is wanted
    bool stop = false, failed = false;
    double lastTime = -1e9;
    int converted = 0;

    auto wanted = [&](double t) { return partnerDue || t >= nextPair - 1e-6; };
    auto take = [&](double t) {
        if (partnerDue) {
            partnerDue = false;
        } else {
            partnerDue = true;
            nextPair = std::max(nextPair + options.pairStep, t + options.pairStep * 0.5);
        }
    };
    auto onFrame = [&](AVFrame* f) {
        if (stop) return;
        const int64_t pts = f->best_effort_timestamp;
        const double t = pts == AV_NOPTS_VALUE ? lastTime + 0.04 : static_cast<double>(pts) * timeBase - origin;
        if (t <= lastTime) return;  // a repeated stamp after damage
        lastTime = t;
        if (!wanted(t)) return;
        take(t);
        auto rgba = converter.convert(f, outW, outH);
        if (!rgba) {
            failed = true;
            return;
        }
        ++converted;
        if (!onPicture(SampledPicture{t, std::move(rgba).value()})) stop = true;
    };

    ff::PacketPtr packet(av_packet_alloc());
    if (!packet) return unreadable(file);
    int failures = 0;
    while (!stop && ff::readPacket(format.get(), packet.get(), failures)) {
        if (packet->stream_index == index) {
            const bool key = packet->flags & AV_PKT_FLAG_KEY;
            bool send = true;
            if (road == SamplerRoad::keysOnly) {
                send = key;
            } else if (road == SamplerRoad::intraPicked) {
                // Each picture decodes alone: only the wanted ones are sent.
                const int64_t stamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
                send = stamp == AV_NOPTS_VALUE || wanted(static_cast<double>(stamp) * timeBase - origin);
            }
            if (send && loop.decode(packet.get(), onFrame) == ff::DecodeLoop::Status::endOfStream) stop = true;
        }
        av_packet_unref(packet.get());
    }
    if (!stop) loop.decode(nullptr, onFrame);
    if (converted == 0 && failed) return unreadable(file);
    return road;
}

}  // namespace qv::media
