#include "platform/MediaWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/FfmpegPtr.h"
#include "platform/RgbaConverter.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace qv::media {

namespace {

struct OutputCloser {
    void operator()(AVFormatContext* c) const {
        if (c->pb && !(c->oformat->flags & AVFMT_NOFILE)) avio_closep(&c->pb);
        avformat_free_context(c);
    }
};
using OutputPtr = std::unique_ptr<AVFormatContext, OutputCloser>;

const char* videoEncoderName(VideoEncoding e) {
    switch (e) {
        case VideoEncoding::h264: return "libx264";
        case VideoEncoding::hevc: return "libx265";
        case VideoEncoding::prores: return "prores_ks";
    }
    return "";
}

const char* soundEncoderName(VideoEncoding e) { return e == VideoEncoding::prores ? "pcm_s16le" : "aac"; }

// What went wrong while writing, in words for the user.
Error writeError(int code) {
    if (code == AVERROR(ENOSPC)) return Error{"le disque est plein."};
    if (code == AVERROR(EFBIG)) return Error{"le fichier dépasse la taille permise."};
    if (code == AVERROR(EACCES) || code == AVERROR(EPERM) || code == AVERROR(EROFS))
        return Error{"écriture refusée dans ce dossier."};
    return Error{"écriture impossible (" + ff::errorText(code) + ")."};
}

}  // namespace

struct MediaWriter::State {
    WriterSettings settings;
    OutputPtr output;
    ff::CodecPtr video, sound;
    AVStream* videoStream = nullptr;
    AVStream* soundStream = nullptr;
    ff::SwsPtr sws;
    ff::FramePtr picture;
    ff::FramePtr soundFrame;
    ff::PacketPtr packet;
    std::vector<float> pendingSound;  // interleaved, less than one encoder frame
    int64_t frames = 0;               // pictures sent
    int64_t soundFrames = 0;          // sound frames sent
    int soundFrameSize = 1024;
    bool headerWritten = false;

    Status drain(AVCodecContext* codec, AVStream* stream) {
        while (true) {
            int r = avcodec_receive_packet(codec, packet.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return Ok{};
            if (r < 0) return Error{"l'encodage a échoué (" + ff::errorText(r) + ")."};
            av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            r = av_interleaved_write_frame(output.get(), packet.get());
            if (r < 0) return writeError(r);
            if (output->pb && output->pb->error < 0) return writeError(output->pb->error);
        }
    }

    Status send(AVCodecContext* codec, AVStream* stream, const AVFrame* frame) {
        int r = avcodec_send_frame(codec, frame);
        if (r < 0 && r != AVERROR_EOF) return Error{"l'encodage a échoué (" + ff::errorText(r) + ")."};
        return drain(codec, stream);
    }

    Status sendSound(const float* interleaved, int count) {
        const int ch = settings.channels;
        if (av_frame_make_writable(soundFrame.get()) < 0) return Error{"mémoire insuffisante."};
        soundFrame->nb_samples = count;
        if (sound->sample_fmt == AV_SAMPLE_FMT_FLTP) {
            for (int c = 0; c < ch; ++c) {
                auto* dst = reinterpret_cast<float*>(soundFrame->data[c]);
                for (int i = 0; i < count; ++i) dst[i] = interleaved[i * ch + c];
            }
        } else {  // interleaved 16-bit
            auto* dst = reinterpret_cast<int16_t*>(soundFrame->data[0]);
            for (int i = 0; i < count * ch; ++i)
                dst[i] = static_cast<int16_t>(std::lround(std::clamp(interleaved[i], -1.0f, 1.0f) * 32767.0f));
        }
        soundFrame->pts = soundFrames;
        soundFrames += count;
        return send(sound.get(), soundStream, soundFrame.get());
    }
};

MediaWriter::MediaWriter(std::unique_ptr<State> s) : s_(std::move(s)) {}
MediaWriter::~MediaWriter() = default;
MediaWriter::MediaWriter(MediaWriter&&) noexcept = default;
MediaWriter& MediaWriter::operator=(MediaWriter&&) noexcept = default;

bool MediaWriter::available(VideoEncoding encoding) {
    return avcodec_find_encoder_by_name(videoEncoderName(encoding)) &&
           avcodec_find_encoder_by_name(soundEncoderName(encoding));
}

Result<MediaWriter> MediaWriter::create(const std::filesystem::path& file, const WriterSettings& settings) {
    av_log_set_level(AV_LOG_QUIET);
    auto s = std::make_unique<State>();
    s->settings = settings;
    s->settings.width += s->settings.width % 2;
    s->settings.height += s->settings.height % 2;
    const WriterSettings& set = s->settings;
    const bool prores = set.encoding == VideoEncoding::prores;
    const Error missing{"Cet ordinateur ne sait pas exporter en " + set.label};

    const AVCodec* vcodec = avcodec_find_encoder_by_name(videoEncoderName(set.encoding));
    const AVCodec* acodec = set.channels > 0 ? avcodec_find_encoder_by_name(soundEncoderName(set.encoding)) : nullptr;
    if (!vcodec || (set.channels > 0 && !acodec)) return missing;

    AVFormatContext* raw = nullptr;
    // The name is kept: moving the index to the front reads the file again.
    avformat_alloc_output_context2(&raw, nullptr, prores ? "mov" : "mp4", file.c_str());
    if (!raw) return missing;
    s->output.reset(raw);

    // Picture encoder.
    s->video.reset(avcodec_alloc_context3(vcodec));
    if (!s->video) return Error{"mémoire insuffisante."};
    AVCodecContext* v = s->video.get();
    v->width = set.width;
    v->height = set.height;
    v->time_base = AVRational{set.rateDen, set.rateNum};
    v->framerate = AVRational{set.rateNum, set.rateDen};
    v->sample_aspect_ratio = AVRational{1, 1};
    v->pix_fmt = prores ? AV_PIX_FMT_YUV422P10LE : AV_PIX_FMT_YUV420P;
    v->color_primaries = AVCOL_PRI_BT709;
    v->color_trc = AVCOL_TRC_BT709;
    v->colorspace = AVCOL_SPC_BT709;
    v->color_range = AVCOL_RANGE_MPEG;
    v->thread_count = 0;  // as many as the encoder likes
    if (s->output->oformat->flags & AVFMT_GLOBALHEADER) v->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* vopts = nullptr;
    switch (set.encoding) {
        case VideoEncoding::h264:
            av_dict_set(&vopts, "crf", "18", 0);
            av_dict_set(&vopts, "preset", "medium", 0);
            break;
        case VideoEncoding::hevc:
            av_dict_set(&vopts, "crf", "20", 0);
            av_dict_set(&vopts, "preset", "medium", 0);
            av_dict_set(&vopts, "x265-params", "log-level=error", 0);
            v->codec_tag = MKTAG('h', 'v', 'c', '1');
            break;
        case VideoEncoding::prores:
            av_dict_set(&vopts, "profile", "2", 0);  // 422 (standard)
            av_dict_set(&vopts, "vendor", "apl0", 0);
            break;
    }
    int r = avcodec_open2(v, vcodec, &vopts);
    av_dict_free(&vopts);
    if (r < 0) return missing;

    if (acodec) {
        s->sound.reset(avcodec_alloc_context3(acodec));
        if (!s->sound) return Error{"mémoire insuffisante."};
        AVCodecContext* a = s->sound.get();
        a->sample_rate = set.sampleRate;
        av_channel_layout_default(&a->ch_layout, set.channels);
        a->sample_fmt = prores ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
        a->time_base = AVRational{1, set.sampleRate};
        if (!prores) a->bit_rate = 256000;
        if (s->output->oformat->flags & AVFMT_GLOBALHEADER) a->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if (avcodec_open2(a, acodec, nullptr) < 0) return missing;
        s->soundFrameSize = a->frame_size > 0 ? a->frame_size : 1024;
    }

    // Streams, frames and the colour conversion.
    s->videoStream = avformat_new_stream(s->output.get(), nullptr);
    if (!s->videoStream || avcodec_parameters_from_context(s->videoStream->codecpar, v) < 0)
        return Error{"mémoire insuffisante."};
    s->videoStream->time_base = v->time_base;
    s->videoStream->avg_frame_rate = v->framerate;
    if (s->sound) {
        s->soundStream = avformat_new_stream(s->output.get(), nullptr);
        if (!s->soundStream || avcodec_parameters_from_context(s->soundStream->codecpar, s->sound.get()) < 0)
            return Error{"mémoire insuffisante."};
        s->soundStream->time_base = s->sound->time_base;
        s->soundFrame.reset(av_frame_alloc());
        if (!s->soundFrame) return Error{"mémoire insuffisante."};
        s->soundFrame->format = s->sound->sample_fmt;
        s->soundFrame->sample_rate = set.sampleRate;
        s->soundFrame->nb_samples = s->soundFrameSize;
        av_channel_layout_copy(&s->soundFrame->ch_layout, &s->sound->ch_layout);
        if (av_frame_get_buffer(s->soundFrame.get(), 0) < 0) return Error{"mémoire insuffisante."};
    }
    s->picture.reset(av_frame_alloc());
    s->packet.reset(av_packet_alloc());
    if (!s->picture || !s->packet) return Error{"mémoire insuffisante."};
    s->picture->format = v->pix_fmt;
    s->picture->width = v->width;
    s->picture->height = v->height;
    s->picture->color_primaries = v->color_primaries;
    s->picture->color_trc = v->color_trc;
    s->picture->colorspace = v->colorspace;
    s->picture->color_range = v->color_range;
    if (av_frame_get_buffer(s->picture.get(), 0) < 0) return Error{"mémoire insuffisante."};
    s->sws.reset(sws_getContext(set.width, set.height, AV_PIX_FMT_RGBA, set.width, set.height, v->pix_fmt,
                                SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!s->sws) return missing;
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(s->sws.get(), bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);

    // Only now the file.
    r = avio_open(&s->output->pb, file.c_str(), AVIO_FLAG_WRITE);
    if (r < 0) return writeError(r);
    AVDictionary* mopts = nullptr;
    if (!prores) av_dict_set(&mopts, "movflags", "+faststart", 0);
    r = avformat_write_header(s->output.get(), &mopts);
    av_dict_free(&mopts);
    if (r < 0) return writeError(r);
    s->headerWritten = true;
    return MediaWriter(std::move(s));
}

Status MediaWriter::writePicture(const uint8_t* rgba, int stride) {
    State& s = *s_;
    if (av_frame_make_writable(s.picture.get()) < 0) return Error{"mémoire insuffisante."};
    const uint8_t* src[4] = {rgba, nullptr, nullptr, nullptr};
    int srcStride[4] = {stride, 0, 0, 0};
    sws_scale(s.sws.get(), src, srcStride, 0, s.settings.height, s.picture->data, s.picture->linesize);
    s.picture->pts = s.frames++;
    return s.send(s.video.get(), s.videoStream, s.picture.get());
}

Status MediaWriter::writeSound(const float* interleaved, int64_t frames) {
    State& s = *s_;
    if (!s.sound || frames <= 0) return Ok{};
    const int ch = s.settings.channels;
    s.pendingSound.insert(s.pendingSound.end(), interleaved, interleaved + frames * ch);
    const size_t block = static_cast<size_t>(s.soundFrameSize) * ch;
    size_t used = 0;
    while (s.pendingSound.size() - used >= block) {
        if (Status st = s.sendSound(s.pendingSound.data() + used, s.soundFrameSize); !st) return st;
        used += block;
    }
    s.pendingSound.erase(s.pendingSound.begin(), s.pendingSound.begin() + static_cast<ptrdiff_t>(used));
    return Ok{};
}

Status MediaWriter::finish() {
    State& s = *s_;
    if (s.sound && !s.pendingSound.empty()) {
        if (Status st = s.sendSound(s.pendingSound.data(), static_cast<int>(s.pendingSound.size() / s.settings.channels)); !st)
            return st;
        s.pendingSound.clear();
    }
    if (Status st = s.send(s.video.get(), s.videoStream, nullptr); !st) return st;
    if (s.sound)
        if (Status st = s.send(s.sound.get(), s.soundStream, nullptr); !st) return st;
    int r = av_write_trailer(s.output.get());
    if (r < 0) return writeError(r);
    if (s.output->pb && s.output->pb->error < 0) return writeError(s.output->pb->error);
    r = avio_closep(&s.output->pb);
    if (r < 0) return writeError(r);
    return Ok{};
}

}  // namespace qv::media
