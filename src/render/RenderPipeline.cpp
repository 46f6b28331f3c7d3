#include "render/RenderPipeline.h"

#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "platform/LoudnessMeter.h"
#include "render/Limiter.h"

namespace qv::RenderPipeline {

namespace {

using VideoRender::Built;
using VideoRender::Plan;

struct Work {
    int64_t n = 0;
    const Plan* plan = nullptr;
    std::shared_ptr<const media::VideoPicture> picture;  // null: black
};

// State shared by the stages.
struct Shared {
    std::mutex lock;
    std::condition_variable changed;
    // -- All the following fields are guarded by lock.
    std::deque<Work> todo;                         // read, not yet filtered
    std::map<int64_t, std::vector<uint8_t>> done;  // filtered, not yet encoded
    int64_t written = 0;                           // frames encoded
    bool readingDone = false;
    bool stop = false;
    std::optional<Error> failure;
    std::vector<std::vector<uint8_t>> spare;  // encoded frames' buffers, for reuse

    // A frame buffer of `bytes`, from the spares when one is left.
    std::vector<uint8_t> buffer(size_t bytes) {
        std::vector<uint8_t> b;
        {
            std::lock_guard guard(lock);
            if (!spare.empty()) {
                b = std::move(spare.back());
                spare.pop_back();
            }
        }
        b.resize(bytes);
        return b;
    }
    void recycle(std::vector<uint8_t> b) {
        std::lock_guard guard(lock);
        spare.push_back(std::move(b));
    }

    void fail(Error e) {
        std::lock_guard guard(lock);
        if (!failure) failure = std::move(e);
        stop = true;
        changed.notify_all();
    }
};

bool needsOrder(const Built& built) {
    for (const Plan& p : built.plans)
        if (p.effect.shutter) return true;
    return false;
}

// Sound of output frames [a, b) of every track, mixed, into `mix`.
class SoundMixer {
public:
    explicit SoundMixer(const Built& built) : built_(built), loFrame_(std::llround(built.lo * soundRate)) {
        readers_.resize(built.sound.size());
    }

    Status mix(int64_t a, int64_t b, std::vector<float>& mix) {
        mix.assign(static_cast<size_t>(b - a) * soundChannels, 0.0f);
        for (size_t k = 0; k < built_.sound.size(); ++k) {
            const VideoRender::SoundTrack& track = built_.sound[k];
            for (const VideoRender::SoundInsert& ins : track.inserts) {
                const int64_t from = std::max<int64_t>(a, std::llround(ins.start * soundRate));
                const int64_t to = std::min<int64_t>(b, std::llround(ins.end * soundRate));
                if (to <= from) continue;
                auto reader = readers_[k].find(ins.source);
                const auto& lines = track.whole ? built_.wholeLines : built_.lines;
                if (reader == readers_[k].end())
                    reader = readers_[k].emplace(ins.source, SourceReader(lines[static_cast<size_t>(ins.source)])).first;
                scratch_.resize(static_cast<size_t>(to - from) * soundChannels);
                if (Status s = reader->second.sound(from + loFrame_, to - from, soundRate, soundChannels, scratch_.data()); !s)
                    return s;
                float* dst = mix.data() + (from - a) * soundChannels;
                for (int64_t i = 0; i < to - from; ++i) {
                    const float v = track.volume.at(static_cast<double>(from + i) / soundRate);
                    for (int c = 0; c < soundChannels; ++c) dst[i * soundChannels + c] += v * scratch_[i * soundChannels + c];
                }
            }
        }
        return Ok{};
    }

private:
    const Built& built_;
    int64_t loFrame_;
    std::vector<std::map<int, SourceReader>> readers_;  // per track, per source
    std::vector<float> scratch_;
};

// The mix brought to a loudness: gained, then held under the true-peak
// ceiling by the limiter, which runs ahead of the output by its latency.
class Leveler {
public:
    Leveler(const Built& built, double gainDb)
        : mixer_(built),
          limiter_(soundRate, soundChannels, static_cast<float>(std::pow(10.0, limiterCeilingDb / 20))),
          gain_(static_cast<float>(std::pow(10.0, gainDb / 20))) {}

    // Output frames [a, b), asked in order without gaps.
    Status mix(int64_t a, int64_t b, std::vector<float>& out) {
        const int64_t latency = limiter_.latency();
        const int64_t from = fed_, to = b + latency;
        if (Status s = mixer_.mix(from, to, buffer_); !s) return s;
        for (float& v : buffer_) v *= gain_;
        limiter_.process(buffer_.data(), buffer_.data(), static_cast<size_t>(to - from));
        fed_ = to;
        // The limiter's output stands for frames [from - latency, b); the
        // first call also gives the frames before 0, which are dropped.
        const int64_t first = std::max<int64_t>(a, from - latency);
        out.assign(buffer_.begin() + (first - (from - latency)) * soundChannels, buffer_.end());
        return Ok{};
    }

private:
    SoundMixer mixer_;
    PeakLimiter limiter_;
    float gain_;
    int64_t fed_ = 0;
    std::vector<float> buffer_;
};

// Feeds the whole range's sound through `next` (a mixer or a leveler) into
// a meter, a second at a time. None: a silent mix.
template <class Source>
Result<std::optional<double>> measure(Source& source, int64_t end, Control& control, double* truePeak) {
    auto meter = media::LoudnessMeter::create(soundRate, soundChannels);
    if (!meter) return meter.error();
    std::vector<float> sound;
    for (int64_t a = 0; a < end; a += soundRate) {
        if (control.cancel) return Error{cancelledMessage};
        const int64_t b = std::min(end, a + soundRate);
        if (Status s = source.mix(a, b, sound); !s) return s.error();
        if (Status s = meter->add(sound.data(), static_cast<size_t>(b - a)); !s) return s.error();
    }
    if (truePeak) *truePeak = meter->truePeak();
    return meter->integrated();
}

}  // namespace

Result<double> loudnessGain(const VideoRender::Built& built, Control& control) {
    if (!built.loudness) return 0.0;
    const double target = *built.loudness;
    const int64_t end = std::llround((built.hi - built.lo) * soundRate);
    SoundMixer mixer(built);
    double peak = 0;
    auto measured = measure(mixer, end, control, &peak);
    if (!measured) return measured.error();
    // Silence stays silence: there is nothing to bring to a loudness.
    if (!*measured) return 0.0;
    double gain = std::min(target - **measured, maximumGainDb);
    if (peak * std::pow(10.0, gain / 20) <= std::pow(10.0, limiterCeilingDb / 20)) return gain;
    // The limiter takes some loudness off the peaks: measure what leaves
    // it and make up the difference, twice at most.
    for (int pass = 0; pass < 2; ++pass) {
        Leveler leveler(built, gain);
        auto after = measure(leveler, end, control, nullptr);
        if (!after) return after.error();
        if (!*after) break;
        const double missing = target - **after;
        if (std::abs(missing) < 0.1) break;
        gain = std::min(gain + missing, maximumGainDb);
    }
    return gain;
}

Status run(const Built& built, media::MediaWriter& writer, Control& control) {
    // The whole mix is measured before the first frame is written.
    auto measuredGain = loudnessGain(built, control);
    if (!measuredGain) return measuredGain.error();
    const double gain = *measuredGain;
    const int64_t count = built.frameCount;
    const int W = built.width, H = built.height;
    Shared shared;

    // Reading: the cameras' pictures in output order.
    std::thread reader([&] {
        std::vector<std::optional<SourceReader>> cameras(built.framing.size());
        for (int64_t n = 0; n < count; ++n) {
            {
                std::unique_lock guard(shared.lock);
                shared.changed.wait(guard, [&] { return shared.stop || n - shared.written < framesInFlight; });
                if (shared.stop) return;
            }
            Work work;
            work.n = n;
            const double t = built.frameTime(n);
            work.plan = built.planAt(t);
            if (work.plan && t < work.plan->end) {
                auto& camera = cameras.at(static_cast<size_t>(work.plan->camera));
                if (!camera) camera.emplace(built.lines.at(static_cast<size_t>(built.cameraLine(work.plan->camera))));
                auto picture = camera->pictureAt(t + built.lo);
                if (!picture) return shared.fail(picture.error());
                work.picture = std::move(picture).value();
            }
            std::lock_guard guard(shared.lock);
            shared.todo.push_back(std::move(work));
            shared.changed.notify_all();
        }
        std::lock_guard guard(shared.lock);
        shared.readingDone = true;
        shared.changed.notify_all();
    });

    // Filtering and placing.
    auto filter = [&] {
        Image image;  // one buffer per worker, kept from frame to frame
        while (true) {
            Work work;
            {
                std::unique_lock guard(shared.lock);
                shared.changed.wait(guard, [&] { return shared.stop || !shared.todo.empty() || shared.readingDone; });
                if (shared.stop || shared.todo.empty()) return;
                work = std::move(shared.todo.front());
                shared.todo.pop_front();
            }
            std::vector<uint8_t> frame = shared.buffer(static_cast<size_t>(W) * H * 4);
            if (!work.picture) {
                for (size_t i = 0; i < frame.size(); i += 4) frame[i] = frame[i + 1] = frame[i + 2] = 0, frame[i + 3] = 255;
            } else {
                const media::RgbaFrame& f = work.picture->frame;
                const double t = built.frameTime(work.n);
                image.assignRgba8(f.pixels.data(), f.width, f.height, f.width * 4);
                image = built.looks->process(std::move(image), work.plan->camera, t + built.lo);
                VideoRender::compose(built, *work.plan, t, image, frame.data());
            }
            std::lock_guard guard(shared.lock);
            shared.done.emplace(work.n, std::move(frame));
            shared.changed.notify_all();
        }
    };
    std::vector<std::thread> filters;
    const unsigned workers = needsOrder(built) ? 1 : std::max(2u, std::thread::hardware_concurrency());
    for (unsigned k = 0; k < workers; ++k) filters.emplace_back(filter);

    // Encoding, with the sound of each frame's stretch, brought to the
    // loudness asked when one is.
    std::optional<SoundMixer> mixer;
    std::optional<Leveler> leveler;
    if (built.loudness) leveler.emplace(built, gain);
    else mixer.emplace(built);
    std::vector<float> sound;
    const int64_t soundEnd = std::llround((built.hi - built.lo) * soundRate);
    for (int64_t n = 0; n < count; ++n) {
        std::vector<uint8_t> frame;
        {
            std::unique_lock guard(shared.lock);
            shared.changed.wait(guard, [&] { return shared.stop || shared.done.count(n); });
            if (shared.stop) break;
            frame = std::move(shared.done[n]);
            shared.done.erase(n);
        }
        Status s = writer.writePicture(frame.data(), W * 4);
        shared.recycle(std::move(frame));
        const int64_t a = std::llround(built.frameTime(n) * soundRate);
        const int64_t b = n + 1 == count ? soundEnd : std::llround(built.frameTime(n + 1) * soundRate);
        if (s && b > a) s = leveler ? leveler->mix(a, b, sound) : mixer->mix(a, b, sound);
        if (s && b > a) s = writer.writeSound(sound.data(), b - a);
        if (!s) {
            shared.fail(s.error());
            break;
        }
        control.progress = static_cast<double>(n + 1) / static_cast<double>(count);
        std::lock_guard guard(shared.lock);
        shared.written = n + 1;
        if (control.cancel) {
            shared.stop = true;
            if (!shared.failure) shared.failure = Error{cancelledMessage};
        }
        shared.changed.notify_all();
    }
    {
        std::lock_guard guard(shared.lock);
        shared.stop = true;
        shared.changed.notify_all();
    }
    reader.join();
    for (auto& t : filters) t.join();
    if (shared.failure) return *shared.failure;
    return writer.finish();
}

}  // namespace qv::RenderPipeline
