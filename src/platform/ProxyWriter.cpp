#include "platform/ProxyWriter.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/DecodeLoop.h"
#include "platform/Deinterlacer.h"
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

// Times within a microsecond of a chunk's edge belong to the later side,
// as the readers round them.
constexpr double edge = 1e-6;

}  // namespace

struct ProxyWriter::State {
    std::filesystem::path file;
    std::string name;
    ProxyOptions options;
    ff::FormatPtr input;
    AVStream* source = nullptr;
    ff::CodecPtr decoder;
    std::unique_ptr<ff::StreamDecoder> frames;
    std::unique_ptr<ff::Deinterlacer> deinterlacer;  // made at the first interlaced picture
    const AVCodec* h264 = nullptr;
    double origin = 0;
    int width = 0, height = 0;
    ff::SwsPtr scaler;
    ff::HdrConverter hdr;
    ff::FramePtr scaled;
    ff::PacketPtr packet;

    // Where decoding stands after the last chunk: the last picture it wrote
    // and the first one past its end, so the next chunk goes on from there.
    bool positioned = false;
    double position = 0;
    ff::FramePtr last;
    ff::FramePtr ahead;
    int64_t lastRaw = AV_NOPTS_VALUE;

    int64_t rawStamp(const AVFrame* f) {
        int64_t pts = f->best_effort_timestamp;
        return pts == AV_NOPTS_VALUE ? (lastRaw == AV_NOPTS_VALUE ? 0 : lastRaw + 1) : pts;
    }
    double timeOf(int64_t raw) const { return static_cast<double>(raw) * av_q2d(source->time_base) - origin; }

    // The next picture in order, and whether it is new from the decoder
    // (not the one kept past the last chunk's end).
    std::pair<ff::FramePtr, bool> pull() {
        if (ahead) return {std::move(ahead), false};
        return {ff::nextWhole(*frames, deinterlacer), true};
    }

    bool onGrid() const { return options.rateNum > 0 && options.rateDen > 0; }
    // Where the picture stream ends on the file's time line; infinite when
    // the file does not say.
    double streamEnd() const {
        const double tb = av_q2d(source->time_base);
        if (source->duration != AV_NOPTS_VALUE && source->duration > 0) {
            const int64_t start = source->start_time != AV_NOPTS_VALUE ? source->start_time : 0;
            return static_cast<double>(start + source->duration) * tb - origin;
        }
        if (input->duration != AV_NOPTS_VALUE && input->duration > 0)
            return static_cast<double>(input->duration) / AV_TIME_BASE;
        return std::numeric_limits<double>::infinity();
    }
    int writeGrid(const std::function<int(const AVFrame*, int64_t)>& emit, double from, double to,
                  const std::atomic<bool>& cancel);

    ChunkOutcome writeChunk(const std::filesystem::path& out, double from, double to, const std::atomic<bool>& cancel);

    bool seekTo(double from) {
        last.reset();
        ahead.reset();
        lastRaw = AV_NOPTS_VALUE;
        int64_t begin = source->start_time != AV_NOPTS_VALUE ? source->start_time : 0;
        int64_t target = from > 0 ? ff::streamStamp(source, from + origin) : begin;
        if (deinterlacer) deinterlacer->reset();
        return frames->seek(std::max(target, begin));
    }

    // The picture as the proxy holds it. Pictures of other depths and
    // colours come here the same way, scaled and converted in one pass.
    bool toProxyPicture(const AVFrame* input) {
        // HDR and wide gamut become BT.709 SDR first: the proxy is tagged BT.709.
        const AVFrame* frame = input;
        ff::FramePtr sdr;
        if (const auto road = media::colourRoad(ff::colourTagsOf(input));
            road == media::ColourRoad::hdr || road == media::ColourRoad::wideGamut) {
            if (auto converted = hdr.toYuv(input)) frame = (sdr = std::move(converted).value()).get();
            else ff::noticeHdrFallback(file, converted.error().message);
        }
        scaler.reset(sws_getCachedContext(scaler.release(), frame->width, frame->height,
                                          static_cast<AVPixelFormat>(frame->format), width, height,
                                          AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!scaler || av_frame_make_writable(scaled.get()) < 0) return false;
        sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, scaled->data, scaled->linesize);
        return true;
    }
};

ProxyWriter::ProxyWriter(std::unique_ptr<State> s) : s_(std::move(s)) {}
ProxyWriter::~ProxyWriter() = default;
ProxyWriter::ProxyWriter(ProxyWriter&&) noexcept = default;
ProxyWriter& ProxyWriter::operator=(ProxyWriter&&) noexcept = default;

Result<ProxyWriter> ProxyWriter::open(const std::filesystem::path& original, const ProxyOptions& options) {
    auto s = std::make_unique<State>();
    s->file = original;
    s->name = original.filename().string();
    s->options = options;
    s->input = ff::openInput(original.string());
    if (!s->input) return Error{"Impossible de lire " + s->name};
    int index = av_find_best_stream(s->input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0 || !ff::isPictureStream(s->input->streams[index])) return Error{s->name + " n'a pas d'image"};
    for (unsigned i = 0; i < s->input->nb_streams; ++i)
        if (static_cast<int>(i) != index) s->input->streams[i]->discard = AVDISCARD_ALL;
    s->source = s->input->streams[index];
    s->decoder = ff::openDecoder(s->source, options.threads);
    if (!s->decoder) return Error{"Impossible de décoder " + s->name};
    if (options.lightDecode) s->decoder->skip_loop_filter = AVDISCARD_ALL;
    s->frames = std::make_unique<ff::StreamDecoder>(s->input.get(), index, s->decoder.get());
    s->origin = ff::timeZero(s->input.get(), 0);

    s->h264 = avcodec_find_encoder_by_name("libx264");
    if (!s->h264) return Error{"Cet ordinateur ne sait pas écrire en H.264"};
    // Never wider than the original: a proxy only ever makes decoding
    // lighter. Anamorphic pixels become square at the display aspect.
    const int displayWidth = std::max(
        1, static_cast<int>(std::lround(s->decoder->width * ff::pixelAspect(s->input.get(), s->source))));
    const int width = options.width > 0 ? std::min(options.width, displayWidth) : displayWidth;
    s->width = std::max(2, width / 2 * 2);
    s->height = std::max(2, static_cast<int>(std::lround(double(s->width) * s->decoder->height / displayWidth / 2)) * 2);
    s->scaled.reset(av_frame_alloc());
    s->packet.reset(av_packet_alloc());
    if (!s->scaled || !s->packet) return Error{"Mémoire insuffisante"};
    s->scaled->format = AV_PIX_FMT_YUV420P;
    s->scaled->width = s->width;
    s->scaled->height = s->height;
    if (av_frame_get_buffer(s->scaled.get(), 0) < 0) return Error{"Mémoire insuffisante"};
    return ProxyWriter(std::move(s));
}

ChunkOutcome ProxyWriter::write(const std::filesystem::path& out, double from, double to,
                                const std::atomic<bool>& cancel) {
    ChunkOutcome outcome = s_->writeChunk(out, from, to, cancel);
    if (!outcome.made()) {
        std::error_code ec;
        std::filesystem::remove(out, ec);
    }
    return outcome;
}

ChunkOutcome ProxyWriter::State::writeChunk(const std::filesystem::path& out, double from, double to,
                                            const std::atomic<bool>& cancel) {
    using Kind = ChunkOutcome::Kind;
    State& s = *this;
    const std::string outName = out.filename().string();
    auto failed = [&](Kind kind, std::string message) {
        s.positioned = false;
        return ChunkOutcome{kind, std::move(message)};
    };
    auto writeError = [&](int r) { return failed(Kind::outputFailed, "Impossible d'écrire " + outName + " : " + ff::errorText(r)); };

    const bool continuing = !s.onGrid() && s.positioned && std::abs(from - s.position) < 1e-9;
    if (!continuing && !s.seekTo(from)) return failed(Kind::inputFailed, "Impossible de lire " + s.name);

    ff::CodecPtr encoder(avcodec_alloc_context3(s.h264));
    if (!encoder) return failed(Kind::outputFailed, "Mémoire insuffisante");
    encoder->width = s.width;
    encoder->height = s.height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = s.onGrid() ? AVRational{s.options.rateDen, s.options.rateNum} : s.source->time_base;
    encoder->framerate = s.onGrid() ? AVRational{s.options.rateNum, s.options.rateDen} : s.source->avg_frame_rate;
    encoder->gop_size = s.options.gop;
    encoder->max_b_frames = 0;
    encoder->thread_count = s.options.threads;
    encoder->sample_aspect_ratio = AVRational{1, 1};
    encoder->colorspace = AVCOL_SPC_BT709;
    encoder->color_primaries = AVCOL_PRI_BT709;
    encoder->color_trc = AVCOL_TRC_BT709;
    // For previews the fastest settings, and a stream that eight monitors
    // decode at once without effort.
    av_opt_set(encoder->priv_data, "preset", s.options.preset.c_str(), 0);
    if (s.options.lightDecode) av_opt_set(encoder->priv_data, "tune", "fastdecode", 0);
    av_opt_set(encoder->priv_data, "crf", std::to_string(s.options.crf).c_str(), 0);

    AVFormatContext* rawOut = nullptr;
    if (avformat_alloc_output_context2(&rawOut, nullptr, "mp4", out.c_str()) < 0 || !rawOut)
        return failed(Kind::outputFailed, "Impossible d'écrire " + outName);
    OutputPtr output(rawOut);
    if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (int r = avcodec_open2(encoder.get(), s.h264, nullptr); r < 0)
        return failed(Kind::outputFailed, "H.264 refuse la copie de " + s.name + " : " + ff::errorText(r));
    AVStream* stream = avformat_new_stream(output.get(), nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, encoder.get()) < 0)
        return failed(Kind::outputFailed, "Impossible d'écrire " + outName);
    stream->time_base = encoder->time_base;
    stream->avg_frame_rate = encoder->framerate;
    // The picture is shown turned as the original is.
    size_t matrixSize = 0;
    if (const uint8_t* matrix = av_stream_get_side_data(s.source, AV_PKT_DATA_DISPLAYMATRIX, &matrixSize)) {
        if (uint8_t* copy = av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, matrixSize))
            std::memcpy(copy, matrix, matrixSize);
    }
    if (int r = avio_open(&output->pb, out.c_str(), AVIO_FLAG_WRITE); r < 0) return writeError(r);
    if (int r = avformat_write_header(output.get(), nullptr); r < 0) return writeError(r);

    // Stamps of the chunk count from `from`: its first picture, the one the
    // original shows at `from`, stands at 0 even when it began earlier.
    const int64_t zero = ff::streamStamp(s.source, from + s.origin);
    int64_t lastOut = -1;
    auto emit = [&](const AVFrame* frame, int64_t stamp) -> int {
        if (stamp <= lastOut) return 0;  // a repeated stamp: the encoder needs order
        if (!s.toProxyPicture(frame)) return AVERROR(EINVAL);
        s.scaled->pts = stamp;
        lastOut = stamp;
        return encode(encoder.get(), s.scaled.get(), output.get(), stream, s.packet.get());
    };
    auto emitFailed = [&](int r) {
        return r == AVERROR(EINVAL) ? failed(Kind::inputFailed, "Impossible de décoder " + s.name) : writeError(r);
    };

    if (s.onGrid()) {
        const int r = s.writeGrid(emit, from, to, cancel);
        if (r == AVERROR_EXIT) return failed(Kind::cancelled, "Copie de " + s.name + " interrompue");
        if (r < 0) return emitFailed(r);
    } else {
        ff::FramePtr held = continuing ? std::move(s.last) : nullptr;
        bool started = false;
        for (;;) {
            auto [frame, fresh] = s.pull();
            if (!frame) break;
            if (cancel) return failed(Kind::cancelled, "Copie de " + s.name + " interrompue");
            const int64_t raw = fresh ? s.rawStamp(frame.get()) : s.lastRaw;
            if (fresh) {
                if (s.lastRaw != AV_NOPTS_VALUE && raw <= s.lastRaw) continue;  // a repeated stamp
                s.lastRaw = raw;
            }
            const double t = s.timeOf(raw);
            if (!started) {
                if (t <= from + edge) {
                    held = std::move(frame);
                    continue;
                }
                started = true;
                // Without a picture before `from` (a seek that landed late), the
                // first one found stands for the start.
                if (!held) {
                    if (int r = emit(frame.get(), 0); r < 0) return emitFailed(r);
                    s.last = std::move(frame);
                    continue;
                }
                if (int r = emit(held.get(), 0); r < 0) return emitFailed(r);
                s.last = std::move(held);
            }
            if (t >= to - edge) {
                s.ahead = std::move(frame);
                break;
            }
            if (int r = emit(frame.get(), raw - zero); r < 0) return emitFailed(r);
            s.last = std::move(frame);
        }
        if (cancel) return failed(Kind::cancelled, "Copie de " + s.name + " interrompue");
        // The stream ended before passing `from`: its last picture holds the stretch.
        if (!started && held) {
            if (int r = emit(held.get(), 0); r < 0) return emitFailed(r);
            s.last = std::move(held);
        }
    }
    if (lastOut < 0) return failed(Kind::inputFailed, "Impossible de décoder " + s.name);
    if (int r = encode(encoder.get(), nullptr, output.get(), stream, s.packet.get()); r < 0) return writeError(r);
    if (int r = av_write_trailer(output.get()); r < 0) return writeError(r);
    if (int r = avio_closep(&output->pb); r < 0) return writeError(r);
    s.positioned = true;
    s.position = to;
    return {};
}

int ProxyWriter::State::writeGrid(const std::function<int(const AVFrame*, int64_t)>& emit, double from, double to,
                                  const std::atomic<bool>& cancel) {
    const double step = static_cast<double>(options.rateDen) / options.rateNum;
    double end = std::min(to, streamEnd());
    int64_t n = 0;  // grid steps from `from`
    ff::FramePtr held;
    double lastStart = from;
    auto gridTime = [&] { return from + static_cast<double>(n) * step; };
    // The held picture for every grid time before `limit`.
    auto holdUntil = [&](double limit) -> int {
        while (held && gridTime() < limit - edge && gridTime() < end - edge) {
            if (cancel) return AVERROR_EXIT;
            if (int r = emit(held.get(), n); r < 0) return r;
            ++n;
            if (options.progress && n % 25 == 0 && std::isfinite(end) && end > from)
                options.progress(std::clamp((gridTime() - from) / (end - from), 0.0, 1.0));
        }
        return 0;
    };
    for (;;) {
        auto [frame, fresh] = pull();
        if (!frame) break;
        if (cancel) return AVERROR_EXIT;
        const int64_t raw = fresh ? rawStamp(frame.get()) : lastRaw;
        if (fresh) {
            if (lastRaw != AV_NOPTS_VALUE && raw <= lastRaw) continue;  // a repeated stamp
            lastRaw = raw;
        }
        const double t = timeOf(raw);
        // The first picture stands for the grid times before it, as the
        // readers show it there.
        if (int r = holdUntil(held ? t : from); r < 0) return r;
        if (t >= to - edge) break;
        held = std::move(frame);
        lastStart = t;
    }
    // A file that does not tell its length ends one step after its last picture.
    if (!std::isfinite(end)) end = std::min(to, lastStart + step);
    return holdUntil(end);
}

Status writeProxy(const std::filesystem::path& in, const std::filesystem::path& out, const ProxyOptions& options,
                  const std::atomic<bool>& cancel) {
    auto writer = ProxyWriter::open(in, options);
    ChunkOutcome outcome = writer ? writer->write(out, 0, std::numeric_limits<double>::infinity(), cancel)
                                  : ChunkOutcome{ChunkOutcome::Kind::inputFailed, writer.error().message};
    if (outcome.made()) return Ok{};
    return Error{outcome.message};
}

}  // namespace qv::media
