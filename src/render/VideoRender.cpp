#include "render/VideoRender.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "export/SetRate.h"

namespace qv::VideoRender {

namespace {

constexpr double minimumPlan = 0.001;  // shorter plans are dropped
constexpr double fadeMargin = 0.04;    // no rush fade this close to the ends, and the cut fades' length
constexpr double planSlack = 0.0005;   // a frame this close to a plan's start belongs to it

bool isCamera(const Job& job, int sourceIndex) {
    return std::find(job.cameraSources.begin(), job.cameraSources.end(), sourceIndex) != job.cameraSources.end();
}

uint8_t toByte(float v) { return static_cast<uint8_t>(std::clamp(v * 255.0f + 0.5f, 0.0f, 255.0f)); }

}  // namespace

float VolumeCurve::at(double t) const {
    auto after = std::upper_bound(entries.begin(), entries.end(), t,
                                  [](double time, const Ramp& r) { return time < r.start; });
    if (after == entries.begin()) return base;
    const Ramp& r = *(after - 1);
    if (r.duration > 0 && t < r.start + r.duration)
        return r.from + (r.to - r.from) * static_cast<float>((t - r.start) / r.duration);
    return r.to;
}

const Plan* Built::planAt(double t) const {
    auto after = std::upper_bound(plans.begin(), plans.end(), t + planSlack,
                                  [](double time, const Plan& p) { return time < p.start; });
    return after == plans.begin() ? nullptr : &*(after - 1);
}

PixelSize outputSize(const Job& job) {
    if (auto fixed = fixedSize(job.format)) return *fixed;
    std::map<std::string, std::pair<int, PixelSize>> groups;  // count, first size
    std::vector<std::string> order;
    for (const PlacedItem& p : job.result.placed) {
        if (!isCamera(job, p.sourceIndex) || !p.item.hasVideo) continue;
        std::string key = std::to_string(p.item.width) + "x" + std::to_string(p.item.height);
        auto [it, fresh] = groups.try_emplace(key, 0, PixelSize{static_cast<double>(p.item.width),
                                                                static_cast<double>(p.item.height)});
        if (fresh) order.push_back(key);
        ++it->second.first;
    }
    PixelSize best{1920, 1080};
    int count = 0;
    for (const std::string& key : order)
        if (groups[key].first > count) {
            count = groups[key].first;
            best = groups[key].second;
        }
    return best;
}

float volumeOf(const Job& job, int sourceIndex) {
    const Uuid& id = job.sources.at(static_cast<size_t>(sourceIndex)).id;
    auto level = job.levels.find(id);
    double db = (level == job.levels.end() ? 0.0 : level->second) + job.audio.masterDb;
    return static_cast<float>(std::min(std::pow(10.0, db / 20.0), 1.0));
}

std::vector<Ramp> rushFades(const std::vector<TimeRange>& ranges, const AudioSettings& settings, float volume,
                            TimeRange window, double lo, double hi) {
    std::vector<Ramp> ramps;
    if (!(settings.rushFade > 0)) return ramps;
    const double a = window.start, b = window.end;
    for (const TimeRange& r : ranges) {
        const double s = r.start, e = r.end;
        const double length = std::min((e - s) * 0.5, settings.rushFade);
        if (a + fadeMargin < s && s < b && lo + fadeMargin < s) ramps.push_back({s - lo, length, 0.0f, volume});
        if (a < e && e < b - fadeMargin && e < hi - fadeMargin) ramps.push_back({e - length - lo, length, volume, 0.0f});
    }
    return ramps;
}

VolumeCurve apply(float base, double offset, std::vector<Ramp> ramps, const std::vector<Step>& steps) {
    for (const Step& s : steps) ramps.push_back({s.time - offset, 0, s.volume, s.volume});
    std::stable_sort(ramps.begin(), ramps.end(), [](const Ramp& x, const Ramp& y) { return x.start < y.start; });
    VolumeCurve curve;
    curve.base = base;
    double end = -1;
    for (const Ramp& r : ramps) {
        // A step that falls inside a ramp has no effect.
        if (r.start < 0 || r.start < end - 0.0001) continue;
        curve.entries.push_back(r);
        end = r.start + r.duration;
    }
    return curve;
}

Built build(const Job& job) {
    Built built;
    const double total = job.result.duration();
    built.lo = job.range.start;
    built.hi = job.range.end;
    const double lo = built.lo, hi = built.hi;

    built.rate = PremiereExport::chosenRate(job.sources, job.result, job.rate);
    built.rateNum = built.rate.ntsc ? built.rate.timebase * 1000 : built.rate.timebase;
    built.rateDen = built.rate.ntsc ? 1001 : 1;
    built.frameCount = std::max<int64_t>(0, std::llround((hi - lo) * built.rateNum / built.rateDen));
    const PixelSize size = outputSize(job);
    // Encoders of 4:2:0 pictures want even sizes: an odd source size gains
    // a line of black.
    built.width = static_cast<int>(std::lround(size.width));
    built.height = static_cast<int>(std::lround(size.height));
    built.width += built.width % 2;
    built.height += built.height % 2;
    built.effects = job.effects;
    built.loudness = job.loudness;
    built.cameraSources = job.cameraSources;

    for (size_t s = 0; s < job.sources.size(); ++s)
        built.lines.push_back(SourceTimeline::of(job.result, static_cast<int>(s), total, isCamera(job, static_cast<int>(s))));
    for (int source : job.cameraSources) {
        auto f = job.framing.find(job.sources.at(static_cast<size_t>(source)).id);
        built.framing.push_back(f == job.framing.end() ? CameraFrame{} : f->second);
    }

    // One renderer for the whole export, its cubes baked before the first frame.
    built.looks = std::make_shared<LookRenderer>();
    built.looks->update(job.looks);

    // Picture: the plans cut to the range.
    for (size_t k = 0; k < job.segments.size(); ++k) {
        const Segment& seg = job.segments[k];
        if (seg.camera < 0 || static_cast<size_t>(seg.camera) >= job.cameraSources.size()) continue;
        const double a = std::max(seg.start, lo), b = std::min(seg.end, hi);
        if (b - a < minimumPlan) continue;
        Plan plan;
        plan.start = a - lo;
        plan.end = b - lo;
        plan.camera = seg.camera;
        plan.segment = static_cast<int>(k);
        plan.planStart = seg.start;
        plan.planEnd = seg.end;
        if (k < job.planEffects.size()) plan.effect = job.planEffects[k];
        built.plans.push_back(plan);
    }

    std::vector<TimeRange> windows;
    for (const Plan& plan : built.plans) windows.push_back({plan.start + lo, plan.end + lo});
    for (size_t s = 0; s < job.sources.size(); ++s) {
        built.lines[s].keepInStep(windows);
        built.wholeLines.push_back(SourceTimeline::of(job.result, static_cast<int>(s), total, false));
        built.wholeLines.back().keepInStep({{lo, hi}});
    }

    // Sound: each source whole, or the camera that follows the cut.
    auto addFull = [&](int source, bool fades) {
        if (job.muted.count(job.sources[static_cast<size_t>(source)].id)) return;
        const SourceTimeline& line = built.wholeLines[static_cast<size_t>(source)];
        if (!line.hasSound()) return;
        const float v = volumeOf(job, source);
        SoundTrack track;
        track.whole = true;
        track.inserts.push_back({0, hi - lo, source});
        std::vector<Ramp> ramps = fades ? rushFades(line.soundRanges, job.audio, v, {lo, hi}, lo, hi) : std::vector<Ramp>{};
        track.volume = apply(v, lo, std::move(ramps), {});
        built.sound.push_back(std::move(track));
    };
    for (size_t s = 0; s < job.sources.size(); ++s)
        if (job.sources[s].kind == SourceKind::audio) addFull(static_cast<int>(s), false);
    if (job.audio.mode == AudioSettings::Mode::all) {
        for (size_t s = 0; s < job.sources.size(); ++s)
            if (isCamera(job, static_cast<int>(s))) addFull(static_cast<int>(s), true);
        return built;
    }

    SoundTrack track;
    std::vector<Ramp> ramps;
    std::vector<Step> steps;
    const Plan* previous = nullptr;
    for (const Plan& plan : built.plans) {
        const int source = job.cameraSources[static_cast<size_t>(plan.camera)];
        if (job.muted.count(job.sources[static_cast<size_t>(source)].id)) continue;
        const double a = plan.start + lo, b = plan.end + lo;
        const SourceTimeline& line = built.lines[static_cast<size_t>(source)];
        if (line.hasSound()) track.inserts.push_back({plan.start, plan.end, source});
        const float v = volumeOf(job, source);
        steps.push_back({a, v});
        for (const Ramp& r : rushFades(line.soundRanges, job.audio, v, {a, b}, lo, hi)) ramps.push_back(r);
        if (job.audio.cutFade && job.audio.mode == AudioSettings::Mode::camera && previous &&
            std::abs(previous->end + lo - a) < minimumPlan) {
            const float p = volumeOf(job, job.cameraSources[static_cast<size_t>(previous->camera)]);
            ramps.push_back({a - lo - fadeMargin, fadeMargin, p, 0.0f});
            ramps.push_back({a - lo, fadeMargin, 0.0f, v});
        }
        previous = &plan;
    }
    if (!steps.empty()) {
        const float base = steps.front().volume;
        track.volume = apply(base, lo, std::move(ramps), std::vector<Step>(steps.begin() + 1, steps.end()));
        built.sound.push_back(std::move(track));
    }
    return built;
}

void compose(const Built& built, const Plan& plan, double t, const Image& image, uint8_t* out) {
    const int W = built.width, H = built.height;
    const int w = image.width(), h = image.height();
    const CameraFrame frame = static_cast<size_t>(plan.camera) < built.framing.size()
                                  ? built.framing[static_cast<size_t>(plan.camera)]
                                  : CameraFrame{};
    const Reframe::Placement placement = Reframe::place({static_cast<double>(w), static_cast<double>(h)},
                                                        {static_cast<double>(W), static_cast<double>(H)}, frame);
    MotionSample sample;
    if (plan.effect.hasMotion())
        sample = MotionFX::sample(plan.effect, t + built.lo - plan.planStart, plan.planEnd - plan.planStart,
                                  built.effects);
    const double scale = sample.scale * placement.scale;
    const double dx = (sample.x + placement.x) * W;
    const double dyDown = (sample.y + placement.y) * H;
    const double theta = -sample.rotation * M_PI / 180.0;

    // The identity: the picture already has the output's size.
    if (w == W && h == H && std::abs(scale - 1) < 1e-9 && std::abs(dx) < 1e-9 && std::abs(dyDown) < 1e-9 &&
        std::abs(theta) < 1e-12) {
        for (int y = 0; y < H; ++y) {
            const float* src = image.row(y);
            uint8_t* dst = out + static_cast<size_t>(y) * W * 4;
            for (int x = 0; x < W; ++x) {
                dst[4 * x] = toByte(src[4 * x]);
                dst[4 * x + 1] = toByte(src[4 * x + 1]);
                dst[4 * x + 2] = toByte(src[4 * x + 2]);
                dst[4 * x + 3] = 255;
            }
        }
        return;
    }

    // Each output pixel looks back into the picture: the forward transform
    // (centre, scale, rotate, move; y upward) undone, then a bilinear read.
    // Outside the picture is black.
    const double c = std::cos(theta), s = std::sin(theta);
    const double inv = 1 / scale;
    auto texel = [&](int x, int y, int k) -> float {
        if (x < 0 || y < 0 || x >= w || y >= h) return 0.0f;
        return image.row(y)[4 * x + k];
    };
    for (int Y = 0; Y < H; ++Y) {
        uint8_t* dst = out + static_cast<size_t>(Y) * W * 4;
        const double oy = (H - (Y + 0.5)) - H * 0.5 + dyDown;
        for (int X = 0; X < W; ++X) {
            const double ox = X + 0.5 - W * 0.5 - dx;
            const double ux = (c * ox + s * oy) * inv, uy = (-s * ox + c * oy) * inv;
            const double sx = w * 0.5 + ux - 0.5;
            const double sy = h - (h * 0.5 + uy) - 0.5;
            const int x0 = static_cast<int>(std::floor(sx)), y0 = static_cast<int>(std::floor(sy));
            const float fx = static_cast<float>(sx - x0), fy = static_cast<float>(sy - y0);
            if (x0 < -1 || y0 < -1 || x0 >= w || y0 >= h) {
                dst[4 * X] = dst[4 * X + 1] = dst[4 * X + 2] = 0;
                dst[4 * X + 3] = 255;
                continue;
            }
            for (int k = 0; k < 3; ++k) {
                const float top = texel(x0, y0, k) * (1 - fx) + texel(x0 + 1, y0, k) * fx;
                const float bottom = texel(x0, y0 + 1, k) * (1 - fx) + texel(x0 + 1, y0 + 1, k) * fx;
                dst[4 * X + k] = toByte(top * (1 - fy) + bottom * fy);
            }
            dst[4 * X + 3] = 255;
        }
    }
}

}  // namespace qv::VideoRender
