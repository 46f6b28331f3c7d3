// The edited sequence: turns plans, a range and the sound settings into the
// tracks that `render` writes. Which clip goes where, what is linked, where
// the audio transitions lie and which clips carry motion is decided here;
// every element form belongs to the writer.
#include <algorithm>
#include <cmath>

#include "export/PremiereExport.h"
#include "export/SetRate.h"

namespace qv::PremiereExport {

namespace {

// Below this length (seconds) a piece of a plan or a file is not worth a clip.
constexpr double minimumClip = 0.001;

// The part of file `p` inside [a, b] of the set, shifted so that lo is time
// 0; nothing when too short. A drifting file is in step at its middle.
std::optional<ExportClip> cut(const PlacedItem& p, double a, double b, double lo, const Uuid& group) {
    const double s = std::max(a, p.start), e = std::min(b, p.start + p.item.duration);
    if (!(e - s > minimumClip)) return std::nullopt;
    return ExportClip{p.item, p.sourceIndex, s - lo, p.sourceIn(s, e), e - s, group, std::nullopt};
}

// The sound of one source inside [lo, hi], shifted so that lo is time 0.
std::vector<ExportClip> trimmed(const SyncResult& result, int sourceIndex, double lo, double hi) {
    std::vector<ExportClip> out;
    for (const PlacedItem& p : result.placed) {
        if (p.sourceIndex != sourceIndex || p.item.audioChannels < 1) continue;
        if (auto clip = cut(p, lo, hi, lo, Uuid::make())) out.push_back(std::move(*clip));
    }
    return out;
}

// Fades of one camera sound track, in seconds. A rush that begins or ends
// inside the export rises or falls; a cut between two rushes gets a two-frame
// cross-fade only when the sound follows the camera and both files have a
// frame to spare. Nothing fades within the first or last frame of the export.
std::vector<Fade> fades(std::vector<ExportClip> clips, double length, const AudioSettings& settings,
                        double frame) {
    std::stable_sort(clips.begin(), clips.end(),
                     [](const ExportClip& a, const ExportClip& b) { return a.start < b.start; });
    const double tolerance = frame * 0.5;
    std::vector<Fade> out;
    for (size_t i = 0; i < clips.size(); ++i) {
        const ExportClip& c = clips[i];
        const double end = c.start + c.duration;
        const bool joinedBefore =
            i > 0 && std::abs(clips[i - 1].start + clips[i - 1].duration - c.start) < tolerance;
        const bool joinedAfter = i + 1 < clips.size() && std::abs(clips[i + 1].start - end) < tolerance;
        const double fadeLength = std::min(c.duration * 0.5, settings.rushFade);

        if (settings.rushFade > 0 && c.start >= frame && !joinedBefore)
            out.push_back({c.start, c.start + fadeLength, "start-black"});
        if (joinedAfter) {
            const ExportClip& next = clips[i + 1];
            const bool roomToCross =
                c.sourceIn + c.duration <= c.item.duration - frame && next.sourceIn >= frame;
            if (settings.mode == AudioSettings::Mode::camera && settings.cutFade && roomToCross)
                out.push_back({end - frame, end + frame, "center"});
        } else if (settings.rushFade > 0 && end <= length - frame) {
            out.push_back({end - fadeLength, end, "end-black"});
        }
    }
    return out;
}

// What the application model's resolvedEffect does, for callers without one:
// the plan's own choice, drawn with its camera's membership of each set.
ResolvedEffect defaultEffect(const Segment& plan, const std::vector<MediaSource>& sources,
                             const std::vector<int>& cameraSources, const EffectSettings& effects) {
    const Uuid& id = sources.at(static_cast<size_t>(cameraSources.at(static_cast<size_t>(plan.camera)))).id;
    EffectCameras in = EffectCameras::of(id, effects);
    return MotionFX::resolve(plan.effect, plan.looks, plan.start, in, effects);
}

}  // namespace

Timeline montageTimeline(const std::vector<MediaSource>& sources, const SyncResult& result,
                         const std::vector<Segment>& segments, const std::vector<int>& cameraSources,
                         TimeRange range, const std::map<Uuid, double>& levels, const AudioSettings& audio,
                         const EffectSettings& effects,
                         const std::function<ResolvedEffect(const Segment&)>& effectFor, bool trackPerCamera,
                         const PictureChoices& choices) {
    const double lo = range.start, hi = range.end;

    // Picture: each plan cut to the range and to the files of its camera. The
    // motion keeps the whole plan's start and length, so a clip cut short by
    // the range or a file's end shows its own stretch of the same curve. A
    // camera's picture stands its offset later than its sound, which is cut
    // from the same plan and shares the picture's group.
    std::vector<ExportClip> picture, following;
    for (const Segment& plan : segments) {
        if (plan.camera < 0 || static_cast<size_t>(plan.camera) >= cameraSources.size()) continue;
        const double a = std::max(plan.start, lo), b = std::min(plan.end, hi);
        if (!(b - a > minimumClip)) continue;
        const ResolvedEffect effect =
            effectFor ? effectFor(plan) : defaultEffect(plan, sources, cameraSources, effects);
        const int source = cameraSources[static_cast<size_t>(plan.camera)];
        for (const PlacedItem& p : result.placed) {
            if (p.sourceIndex != source || !p.item.hasVideo) continue;
            const Uuid group = Uuid::make();
            PlacedItem shown = p;
            shown.start += p.pictureOffset;
            if (auto clip = cut(shown, a, b, lo, group)) {
                if (effect.hasMotion()) clip->motion = ClipMotion{effect, plan.start - lo, plan.end - plan.start};
                picture.push_back(std::move(*clip));
            }
            if (p.item.audioChannels < 1) continue;
            if (auto sound = cut(p, a, b, lo, group)) following.push_back(std::move(*sound));
        }
    }

    const SequenceRate rate = choices.rate.value_or(setRate(sources, result));
    const double frame = 1 / rate.fps();
    const double length = hi - lo;

    std::vector<Track> video;
    if (trackPerCamera) {
        // V1 is always the first camera: a camera without a plan keeps its
        // empty track below the highest one used.
        auto position = [&](const ExportClip& c) {
            return static_cast<size_t>(std::find(cameraSources.begin(), cameraSources.end(), c.sourceIndex) -
                                       cameraSources.begin());
        };
        size_t top = 0;
        for (const ExportClip& c : picture) top = std::max(top, position(c));
        video.resize(top + 1);
        for (const ExportClip& c : picture) video[position(c)].clips.push_back(c);
    } else {
        video.push_back(Track{Kind::video, picture, 1, {}, {}});
    }
    video = withCopies(std::move(video), choices);

    std::vector<Track> tableTracks;
    for (size_t s = 0; s < sources.size(); ++s) {
        if (sources[s].kind != SourceKind::audio) continue;
        for (const auto& lane : lanes(trimmed(result, static_cast<int>(s), lo, hi), rate))
            for (Track& t : soundTracks(lane)) tableTracks.push_back(std::move(t));
    }

    std::vector<Track> cameraTracks;
    if (audio.mode == AudioSettings::Mode::all) {
        // Every camera's own sound, on its own lanes, not linked to the picture.
        for (int s : cameraSources)
            for (const auto& lane : lanes(trimmed(result, s, lo, hi), rate))
                for (Track& t : soundTracks(lane)) cameraTracks.push_back(std::move(t));
    } else {
        // The sound that follows the cut shares its picture's group, so a cut
        // moved in the editing program moves both.
        if (!following.empty()) cameraTracks = soundTracks(following);
    }
    for (Track& t : cameraTracks) t.fades = fades(t.clips, length, audio, frame);

    std::vector<Track> soundTracksAll = std::move(tableTracks);
    for (Track& t : cameraTracks) soundTracksAll.push_back(std::move(t));

    std::map<Uuid, double> gains;
    for (const MediaSource& s : sources) {
        auto level = levels.find(s.id);
        gains[s.id] = (level == levels.end() ? 0.0 : level->second) + audio.masterDb;
    }

    return {rate, std::move(video), std::move(soundTracksAll), length, std::move(gains)};
}

std::string makeMontageXML(const std::string& name, const std::vector<MediaSource>& sources,
                           const SyncResult& result, const std::vector<Segment>& segments,
                           const std::vector<int>& cameraSources, TimeRange range,
                           const std::map<Uuid, double>& levels, const std::set<Uuid>& muted,
                           const AudioSettings& audio, const EffectSettings& effects,
                           const std::function<ResolvedEffect(const Segment&)>& effectFor, OutputFormat format,
                           const std::map<Uuid, CameraFrame>& framing, bool trackPerCamera,
                           const PictureChoices& picture) {
    Timeline t = montageTimeline(sources, result, segments, cameraSources, range, levels, audio, effects, effectFor,
                                 trackPerCamera, picture);
    return render(name, sources, t.rate, t.video, t.audio, t.duration, t.levels, muted, effects, format, framing);
}

}  // namespace qv::PremiereExport
