#include "platform/MediaReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "platform/DecodeLoop.h"
#include "platform/Deinterlacer.h"
#include "platform/FfmpegPtr.h"
#include "platform/RgbaConverter.h"

namespace qv::media {

namespace {

Error unreadable(const std::filesystem::path& file) {
    return Error{"Impossible de lire " + file.filename().string() + "."};
}

using ff::streamStamp;

// Quarter turns clockwise that bring the coded picture upright.
int quarterTurns(const AVStream* s) {
    const uint8_t* m = av_stream_get_side_data(s, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (!m) return 0;
    double degrees = -av_display_rotation_get(reinterpret_cast<const int32_t*>(m));
    if (!std::isfinite(degrees)) return 0;
    long turns = std::lround(degrees / 90.0) % 4;
    return static_cast<int>(turns < 0 ? turns + 4 : turns);
}

RgbaFrame rotate(RgbaFrame in, int turns) {
    if (turns == 0) return in;
    const int w = in.width, h = in.height;
    RgbaFrame out;
    out.width = turns == 2 ? w : h;
    out.height = turns == 2 ? h : w;
    out.pixels.resize(in.pixels.size());
    const auto* src = reinterpret_cast<const uint32_t*>(in.pixels.data());
    auto* dst = reinterpret_cast<uint32_t*>(out.pixels.data());
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            int sx, sy;
            if (turns == 1) sx = y, sy = h - 1 - x;
            else if (turns == 2) sx = w - 1 - x, sy = h - 1 - y;
            else sx = w - 1 - y, sy = x;
            dst[static_cast<size_t>(y) * out.width + x] = src[static_cast<size_t>(sy) * w + sx];
        }
    return out;
}

}  // namespace

// One stream of a file, open for decoding; the demuxer skips the others.
struct OpenStream {
    std::filesystem::path file;
    ff::FormatPtr format;
    ff::CodecPtr codec;
    AVStream* stream = nullptr;
    std::unique_ptr<ff::StreamDecoder> decoder;

    // The first stream `wanted` accepts; `missing` when there is none.
    Status open(const std::filesystem::path& path, const std::function<bool(const AVStream*)>& wanted,
                const Error& missing, int threads) {
        file = path;
        format = ff::openInput(path.string());
        if (!format) return unreadable(path);
        int si = -1;
        for (unsigned i = 0; i < format->nb_streams; ++i) {
            AVStream* st = format->streams[i];
            if (si < 0 && wanted(st)) si = static_cast<int>(i);
            else st->discard = AVDISCARD_ALL;
        }
        if (si < 0) return missing;
        stream = format->streams[si];
        codec = ff::openDecoder(stream, threads);
        if (!codec) return unreadable(path);
        decoder = std::make_unique<ff::StreamDecoder>(format.get(), si, codec.get());
        return Ok{};
    }
};

// ---------------------------------------------------------------- video

struct VideoReader::State : OpenStream {
    ff::RgbaConverter converter;
    std::unique_ptr<ff::Deinterlacer> deinterlacer;  // made at the first interlaced picture
    double origin = 0;
    double nominal = 0.04;  // one frame at the nominal rate
    int turns = 0;
    int width = 0, height = 0;  // display size: upright, anamorphic pixels widened
    int wideWidth = 0;          // the stored picture's width widened, before any turn; 0 for square pixels
    double rate = 0;

    std::shared_ptr<VideoPicture> current;
    ff::FramePtr currentRaw;      // the current picture until it is asked for: skipped ones are never converted
    int outWidth = 0, outHeight = 0;  // display size asked for; 0 keeps the file's
    DecodeCost cost = DecodeCost::full;
    bool currentIsFirst = false;  // nothing lies before it
    bool glance = false;          // `current` was decoded alone: reading on must seek
    std::function<bool()> interrupted;
    ff::FramePtr pending;         // the next picture, decoded but not converted
    double pendingStart = 0;
    double lastStart = -std::numeric_limits<double>::infinity();

    double startOf(const AVFrame* f) {
        int64_t pts = f->best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) return lastStart + nominal;
        return static_cast<double>(pts) * av_q2d(stream->time_base) - origin;
    }

    void pull() {
        pending = ff::nextWhole(*decoder, deinterlacer);
        if (pending) lastStart = pendingStart = startOf(pending.get());
    }

    // Decoding starts again elsewhere: nothing held for the picture before.
    bool seekDecoder(int64_t stamp, bool forward = false) {
        if (deinterlacer) deinterlacer->reset();
        return decoder->seek(stamp, forward);
    }

    // Makes the pending picture the current one and decodes the next.
    bool promote() {
        if (!pending) return false;
        auto picture = std::make_shared<VideoPicture>();
        picture->start = pendingStart;
        currentRaw = std::move(pending);
        pull();
        picture->end = pending && pendingStart > picture->start ? pendingStart : picture->start + nominal;
        current = std::move(picture);
        return true;
    }

    // Pictures two frames or more before `t` cannot be the one shown at
    // `t` (at a constant rate): those nothing refers to are skipped.
    void skipToward(double t) { decoder->skipUnreferencedBefore(streamStamp(stream, t - 2 * nominal + origin)); }

    // Seeks to the key frame before `t`, further back when the demuxer lands
    // after it, and to the very start at last. `alone`: only that picture is
    // decoded, and the next read seeks again (`glance`).
    void seekBefore(double t, bool alone = false) {
        static constexpr double backoffs[] = {0, 1, 4, 16};
        current.reset();
        currentRaw.reset();
        pending.reset();
        glance = false;
        for (double b : backoffs) {
            if (t - b <= 0) break;
            if (!seekDecoder(streamStamp(stream, t - b + origin))) break;
            if (alone) {
                ff::FramePtr key = decoder->nextAlone();
                if (!key || startOf(key.get()) > t + 1e-6) continue;
                auto picture = std::make_shared<VideoPicture>();
                picture->start = lastStart = startOf(key.get());
                picture->end = picture->start + nominal;
                currentRaw = std::move(key);
                current = std::move(picture);
                currentIsFirst = false;
                glance = true;
                return;
            }
            skipToward(t);
            pull();
            if (pending && pendingStart <= t + 1e-6) {
                currentIsFirst = false;
                promote();
                return;
            }
        }
        int64_t begin = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
        if (!seekDecoder(begin)) {
            // A file that cannot seek is read again from the top.
            format = ff::openInput(file.string());
            if (!format) return;
            stream = format->streams[stream->index];
            for (unsigned i = 0; i < format->nb_streams; ++i)
                if (format->streams[i] != stream) format->streams[i]->discard = AVDISCARD_ALL;
            avcodec_flush_buffers(codec.get());
            decoder = std::make_unique<ff::StreamDecoder>(format.get(), stream->index, codec.get());
        }
        pull();
        currentIsFirst = true;
        promote();
    }

    // The current picture in RGBA at the size asked for, turned upright.
    bool convertCurrent() {
        if (!currentRaw) return true;
        // Scaled before turning: the coded picture's axes are swapped by odd turns.
        bool swap = turns % 2 != 0;
        int w = swap ? outHeight : outWidth, h = swap ? outWidth : outHeight;
        // Anamorphic pixels are widened to square ones at the file's own size too.
        if ((w <= 0 || h <= 0) && wideWidth > 0 && currentRaw->width == stream->codecpar->width)
            w = wideWidth, h = currentRaw->height;
        auto rgba = converter.convert(currentRaw.get(), w, h);
        if (auto failure = converter.takeHdrFailure()) ff::noticeHdrFallback(file, *failure);
        if (!rgba) return false;
        current->frame = rotate(std::move(rgba).value(), turns);
        currentRaw.reset();
        return true;
    }
};

VideoReader::VideoReader(std::unique_ptr<State> s) : s_(std::move(s)) {}
VideoReader::~VideoReader() = default;
VideoReader::VideoReader(VideoReader&&) noexcept = default;
VideoReader& VideoReader::operator=(VideoReader&&) noexcept = default;

Result<VideoReader> VideoReader::open(const std::filesystem::path& file) {
    auto s = std::make_unique<State>();
    // Two frame threads: the program angle and a seek use both cores, while
    // a tile whose queue is full leaves its second thread idle. One count for
    // all, since any tile may go on program at a key press.
    if (Status st = s->open(file, ff::isPictureStream, Error{file.filename().string() + " ne contient pas d'image."}, 2); !st)
        return st.error();
    s->origin = ff::timeZero(s->format.get(), 0);
    AVRational r = s->stream->avg_frame_rate.num > 0 ? s->stream->avg_frame_rate : s->stream->r_frame_rate;
    s->rate = r.num > 0 && r.den > 0 ? av_q2d(r) : 0;
    if (s->rate > 0) s->nominal = 1 / s->rate;
    s->turns = quarterTurns(s->stream);
    int w = s->stream->codecpar->width;
    const int h = s->stream->codecpar->height;
    if (const double aspect = ff::pixelAspect(s->format.get(), s->stream); aspect != 1)
        w = s->wideWidth = std::max(2, static_cast<int>(std::lround(w * aspect)));
    s->width = s->turns % 2 ? h : w;
    s->height = s->turns % 2 ? w : h;
    return VideoReader(std::move(s));
}

Result<std::shared_ptr<const VideoPicture>> VideoReader::frameAt(double seconds) {
    State& s = *s_;
    // Times on the set's line are sums of doubles: a time within a
    // microsecond of a frame's start belongs to that frame.
    seconds += 1e-6;
    // How far ahead decoding on beats a seek.
    constexpr double readAhead = 3.0;
    const bool before = s.current && seconds < s.current->start && !s.currentIsFirst;
    if (!s.current || s.glance || before || seconds > s.current->start + readAhead) s.seekBefore(seconds);
    if (!s.current) return unreadable(s.file);
    while (s.pending && s.pendingStart <= seconds) {
        s.currentIsFirst = false;
        if (!s.promote()) break;
        if (s.interrupted && s.interrupted()) break;
    }
    if (!s.convertCurrent()) return unreadable(s.file);
    return std::shared_ptr<const VideoPicture>(s.current);
}

void VideoReader::setCost(DecodeCost cost) {
    if (cost == s_->cost) return;
    s_->cost = cost;
    // Read by the codec for every packet sent from now on (frame threads
    // take the value with each packet), so a change never needs a flush.
    AVCodecContext* c = s_->codec.get();
    c->skip_loop_filter = cost == DecodeCost::full ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    s_->decoder->setSkipFrame(cost == DecodeCost::light     ? AVDISCARD_NONREF
                              : cost == DecodeCost::anchors ? AVDISCARD_BIDIR
                                                            : AVDISCARD_DEFAULT);
}

DecodeCost VideoReader::cost() const { return s_->cost; }

void VideoReader::setInterrupt(std::function<bool()> interrupted) { s_->interrupted = std::move(interrupted); }

Result<std::shared_ptr<const VideoPicture>> VideoReader::keyFrameBefore(double seconds) {
    State& s = *s_;
    // Only the key frame: the pictures after it in decoding order (that
    // frame threads and B-frame reordering would pull in) cost as much again.
    s.seekBefore(seconds + 1e-6, true);
    if (!s.current || !s.convertCurrent()) return unreadable(s.file);
    return std::shared_ptr<const VideoPicture>(s.current);
}

std::optional<double> VideoReader::keyFrameAfter(double seconds) {
    State& s = *s_;
    if (!s.seekDecoder(streamStamp(s.stream, seconds + s.origin), true)) {
        // Past the last key frame: the demuxer stays put, but the decoder
        // was flushed, so the next frameAt starts afresh.
        s.current.reset();
        s.currentRaw.reset();
        s.pending.reset();
        return std::nullopt;
    }
    s.current.reset();
    s.currentRaw.reset();
    s.glance = false;
    s.pull();
    if (!s.pending) return std::nullopt;
    s.currentIsFirst = false;
    s.promote();
    return s.current->start;
}

void VideoReader::setOutputSize(int width, int height) {
    if (width == s_->outWidth && height == s_->outHeight) return;
    s_->outWidth = width;
    s_->outHeight = height;
    // The picture already made has the old size: make the next one afresh.
    s_->current.reset();
    s_->currentRaw.reset();
}

int VideoReader::width() const { return s_->width; }
int VideoReader::height() const { return s_->height; }
double VideoReader::frameRate() const { return s_->rate; }

// ---------------------------------------------------------------- sound

struct AudioReader::State : OpenStream {
    ff::SwrPtr swr;
    int rate = 48000;
    int channels = 2;
    bool spread = false;  // mono file, stereo output
    double origin = 0;

    std::vector<float> buffer;  // interleaved; frames from `head` on are live
    size_t head = 0;            // first live frame in `buffer`
    int64_t first = 0;          // frame number of buffer frame `head`
    bool positioned = false;    // `first` known from a time stamp
    bool ended = false;

    int64_t live() const { return static_cast<int64_t>(buffer.size() / channels - head); }
    int64_t end() const { return first + live(); }

    bool ensureResampler(const AVFrame* f) {
        if (swr) return true;
        // Mono goes to both sides at full level (not as a centre at -3 dB):
        // resampled as one channel and copied.
        spread = ff::channelsOf(f) == 1 && channels == 2;
        swr = ff::openResampler(f, spread ? 1 : channels, rate);
        return swr != nullptr;
    }

    void append(const uint8_t** in, int inCount) {
        int capacity = swr_get_out_samples(swr.get(), inCount);
        if (capacity <= 0) return;
        size_t at = buffer.size();
        buffer.resize(at + static_cast<size_t>(capacity) * channels);
        uint8_t* out = reinterpret_cast<uint8_t*>(buffer.data() + at);
        int got = std::max(swr_convert(swr.get(), &out, capacity, in, inCount), 0);
        if (spread)
            for (int k = got - 1; k >= 0; --k) buffer[at + 2 * k] = buffer[at + 2 * k + 1] = buffer[at + k];
        buffer.resize(at + static_cast<size_t>(got) * channels);
    }

    void pull() {
        ff::FramePtr f = decoder->next();
        if (!f) {
            if (swr) append(nullptr, 0);
            ended = true;
            return;
        }
        if (!ensureResampler(f.get())) return;
        if (!positioned) {
            int64_t pts = f->best_effort_timestamp;
            double t = pts == AV_NOPTS_VALUE ? 0 : pts * av_q2d(stream->time_base) - origin;
            first = std::llround(t * rate);
            positioned = true;
        }
        append(const_cast<const uint8_t**>(f->extended_data), f->nb_samples);
    }

    void seek(int64_t frame) {
        double t = static_cast<double>(frame) / rate - 0.1;
        int64_t begin = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
        decoder->seek(t > 0 ? streamStamp(stream, t + origin) : begin);
        swr.reset();
        buffer.clear();
        head = 0;
        positioned = false;
        ended = false;
    }

    void dropBefore(int64_t frame) {
        int64_t n = std::clamp<int64_t>(frame - first, 0, live());
        head += static_cast<size_t>(n);
        first += n;
        if (head > 1 << 16 && head * channels * 2 > buffer.size()) {
            buffer.erase(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(head * channels));
            head = 0;
        }
    }
};

AudioReader::AudioReader(std::unique_ptr<State> s) : s_(std::move(s)) {}
AudioReader::~AudioReader() = default;
AudioReader::AudioReader(AudioReader&&) noexcept = default;
AudioReader& AudioReader::operator=(AudioReader&&) noexcept = default;

Result<AudioReader> AudioReader::open(const std::filesystem::path& file, int rate, int channels) {
    auto s = std::make_unique<State>();
    s->rate = rate;
    s->channels = std::clamp(channels, 1, 2);
    auto isSound = [](const AVStream* st) { return st->codecpar->codec_type == AVMEDIA_TYPE_AUDIO; };
    if (Status st = s->open(file, isSound, Error{"Impossible de lire l'audio de " + file.filename().string() + "."}, 1); !st)
        return st.error();
    bool picture = false;
    for (unsigned i = 0; i < s->format->nb_streams; ++i) picture = picture || ff::isPictureStream(s->format->streams[i]);
    if (picture) {
        s->origin = ff::timeZero(s->format.get(), 0);
    } else {
        // Without picture, time zero is the first sound the decoder gives
        // (its delay and priming dropped): decode it, then start again.
        ff::FramePtr first = s->decoder->next();
        const int64_t pts = first ? first->best_effort_timestamp : AV_NOPTS_VALUE;
        s->origin = pts != AV_NOPTS_VALUE ? static_cast<double>(pts) * av_q2d(s->stream->time_base) : 0.0;
        s->decoder->seek(s->stream->start_time != AV_NOPTS_VALUE ? s->stream->start_time : 0);
    }
    return AudioReader(std::move(s));
}

void AudioReader::read(int64_t first, int64_t count, float* out) {
    State& s = *s_;
    const int ch = s.channels;
    std::fill(out, out + count * ch, 0.0f);
    if (count <= 0) return;
    if (!s.positioned && s.ended) return;
    if (!s.positioned && first > s.rate) s.seek(first);
    if (s.positioned && (first < s.first || first > s.end() + s.rate)) s.seek(first);
    while (!s.ended && (!s.positioned || s.end() < first + count)) {
        s.pull();
        if (s.positioned && s.end() <= first) s.dropBefore(s.end());  // keeps the buffer small on a long read-in
    }
    if (!s.positioned) return;
    s.dropBefore(first);
    int64_t from = std::max(first, s.first), to = std::min(first + count, s.end());
    if (to > from)
        std::memcpy(out + (from - first) * ch, s.buffer.data() + (s.head + static_cast<size_t>(from - s.first)) * ch,
                    static_cast<size_t>(to - from) * ch * sizeof(float));
}

}  // namespace qv::media
