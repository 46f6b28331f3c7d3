// A file's pictures sampled once, measured, and folded into half-seconds.
#include "analysis/FileMeasures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "analysis/PictureMeasures.h"
#include "platform/PictureSampler.h"

namespace qv::analysis {

namespace {

// Steps longer than this say nothing about shake: a camera can swing
// anywhere in a third of a second, and a pan is only smooth over short steps.
constexpr double shakeStep = 0.3;
// Steps longer than this say nothing about a frozen picture either (key
// frames of long groups of pictures are further apart than that: none).
constexpr double freezeStep = 2.5;
// The smooth motion a step is compared with: the median motion of the
// steps within this many seconds of it, so a pan that speeds up or turns
// stays smooth while a shake, changing direction every few pictures, does not.
constexpr double panReach = 0.75;

struct Sample {
    double time;
    PictureLook look;
};

struct Step {
    double from, to;
    PictureStep step;
    double jitter = -1;
};

// The middle value; of an even count, the lower or the upper of the two.
float median(std::vector<float> v, bool upper = false) {
    if (v.empty()) return 0;
    const size_t k = v.size() % 2 || upper ? v.size() / 2 : v.size() / 2 - 1;
    auto mid = v.begin() + static_cast<std::ptrdiff_t>(k);
    std::nth_element(v.begin(), mid, v.end());
    return *mid;
}

// How far each short step strays from the pan around it, in picture widths.
void measureJitter(std::vector<Step>& steps) {
    std::vector<size_t> shortSteps;
    for (size_t i = 0; i < steps.size(); ++i)
        if (steps[i].to - steps[i].from <= shakeStep) shortSteps.push_back(i);
    size_t lo = 0, hi = 0;
    for (size_t i : shortSteps) {
        const double mid = (steps[i].from + steps[i].to) / 2;
        while (lo < shortSteps.size() && (steps[shortSteps[lo]].from + steps[shortSteps[lo]].to) / 2 < mid - panReach) ++lo;
        while (hi < shortSteps.size() && (steps[shortSteps[hi]].from + steps[shortSteps[hi]].to) / 2 <= mid + panReach) ++hi;
        std::vector<float> vx, vy;
        for (size_t k = lo; k < hi; ++k) {
            const Step& s = steps[shortSteps[k]];
            const double dt = s.to - s.from;
            vx.push_back(static_cast<float>(s.step.dx / dt));
            vy.push_back(static_cast<float>(s.step.dy / dt));
        }
        const double dt = steps[i].to - steps[i].from;
        steps[i].jitter = std::hypot(steps[i].step.dx - median(vx) * dt, steps[i].step.dy - median(vy) * dt);
    }
}

}  // namespace

Result<FileMeasures> measureFile(const std::filesystem::path& file, const std::function<bool(double)>& progress) {
    return measureFile(std::vector<PicturePiece>{{file, 0}}, progress);
}

Result<FileMeasures> measureFile(const std::vector<PicturePiece>& pieces, const std::function<bool(double)>& progress) {
    std::vector<Sample> samples;
    std::vector<Step> steps;
    std::optional<MeasuredPicture> previous;
    double previousTime = 0;
    bool cancelled = false;
    for (size_t k = 0; k < pieces.size() && !cancelled; ++k) {
        const double start = pieces[k].start;
        const double end = k + 1 < pieces.size() ? pieces[k + 1].start : std::numeric_limits<double>::infinity();
        // Steps run on across pieces: the last picture of one and the first
        // of the next are neighbours on the file's time line.
        auto road = media::samplePictures(pieces[k].file, media::SamplerOptions{}, [&](media::SampledPicture&& p) {
            const double t = start + p.time;
            if (t >= end - 1e-6) return false;
            MeasuredPicture picture(p.frame);
            samples.push_back({t, picture.look()});
            if (previous && t - previousTime <= freezeStep) steps.push_back({previousTime, t, previous->stepTo(picture)});
            previous = std::move(picture);
            previousTime = t;
            if (progress && !progress(t)) cancelled = true;
            return !cancelled;
        });
        if (!road) return road.error();
    }
    if (cancelled) return Error{"annulé"};
    measureJitter(steps);

    FileMeasures out;
    if (samples.empty()) return out;
    const auto slotOf = [](double t) { return static_cast<size_t>(std::max(0.0, std::floor(t / slotSeconds))); };
    out.halves.resize(slotOf(samples.back().time) + 1);
    // Each slot's pictures, then its steps; samples and steps come in time order.
    size_t s = 0, st = 0;
    for (size_t k = 0; k < out.halves.size(); ++k) {
        SlotMeasures& slot = out.halves[k];
        std::vector<float> level, crushed, clipped, detail, contrast, colour, jitter;
        for (; s < samples.size() && slotOf(samples[s].time) == k; ++s) {
            const PictureLook& l = samples[s].look;
            level.push_back(l.level);
            crushed.push_back(l.crushed);
            clipped.push_back(l.clipped);
            detail.push_back(l.detail);
            contrast.push_back(l.contrast);
            colour.push_back(l.colour);
        }
        for (; st < steps.size() && slotOf(steps[st].to) == k; ++st) {
            // The least change counts: an encoder may code every other
            // picture of a still scene differently, never two the same.
            slot.change = slot.change < 0 ? steps[st].step.change : std::min(slot.change, steps[st].step.change);
            if (steps[st].jitter >= 0) jitter.push_back(static_cast<float>(steps[st].jitter));
        }
        if (level.empty()) continue;
        // A slot half faulty counts as faulty: of two middle values the
        // worse one is taken (darker, softer, flatter, more shaken).
        slot.level = median(level);
        slot.crushed = median(crushed, true);
        slot.clipped = median(clipped, true);
        slot.detail = median(detail);
        slot.contrast = median(contrast);
        slot.colour = median(colour);
        if (!jitter.empty()) slot.jitter = median(jitter, true);
    }
    return out;
}

}  // namespace qv::analysis
