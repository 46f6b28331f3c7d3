#include "render/DropClips.h"

#include <algorithm>

#include "base/Format.h"

namespace qv::DropClips {

TimeRange rangeOf(double drop, double pre, double post, double duration) {
    const double end = std::clamp(drop + post, 0.0, std::max(0.0, duration));
    return {std::clamp(drop - pre, 0.0, end), end};
}

std::string fileName(const std::string& setName, int number, double dropTime, const std::string& extension) {
    return setName + " - drop " + std::to_string(number) + " (" + Format::timecode(dropTime) + ")." + extension;
}

std::string progressLine(int current, int total, double fraction) {
    return "Clips des drops : " + std::to_string(current) + " / " + std::to_string(total) + " · " +
           Format::percent(fraction);
}

namespace {

// A cut of the user's inside the range, its start included: the range
// then has an edit of its own.
bool hasCuts(const std::vector<Cut>& cuts, TimeRange r) {
    return std::any_of(cuts.begin(), cuts.end(), [&](const Cut& c) { return c.time >= r.start - 0.001 && c.time < r.end; });
}

}  // namespace

std::vector<Clip> plan(const Request& request) {
    const VideoRender::Job& base = request.base;
    const double duration = base.result.duration();
    const auto cameraRanges = AutoEditor::cameraRanges(base.result, base.cameraSources);
    const std::vector<Segment> userSegments = Segment::build(request.cuts, duration);

    std::vector<Clip> clips;
    for (const Drop& drop : request.drops) {
        if (!request.only.empty() && !request.only.count(drop.id)) continue;
        Clip clip;
        clip.number = drop.id + 1;
        clip.dropTime = drop.time;
        clip.range = rangeOf(drop.time, request.pre, request.post, duration);
        if (clip.range.end - clip.range.start <= 0) continue;
        clip.fileName = fileName(request.setName, clip.number, drop.time, request.extension);

        std::vector<Segment> segments = userSegments;
        if (!hasCuts(request.cuts, clip.range)) {
            std::vector<Cut> drawn = AutoEditor::generate(clip.range, cameraRanges, request.allowed, request.drops,
                                                          request.onsets, request.autoSettings, request.weights,
                                                          request.pictures);
            // Nothing films in the range: the user's plan stands.
            if (!drawn.empty()) {
                segments = Segment::build(drawn, duration);
                clip.automatic = true;
            }
        }

        VideoRender::Job& job = clip.job;
        job = base;
        job.range = clip.range;
        job.segments = std::move(segments);
        job.planEffects.clear();
        job.looks.plans.clear();
        for (const Segment& s : job.segments) {
            const ResolvedEffect effect = request.effectFor ? request.effectFor(s) : ResolvedEffect{};
            job.planEffects.push_back(effect);
            job.looks.plans.push_back({s.start, s.end, s.camera, effect});
        }
        clips.push_back(std::move(clip));
    }
    return clips;
}

}  // namespace qv::DropClips
