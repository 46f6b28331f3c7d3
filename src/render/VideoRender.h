// VideoRender: turns an edit into what the export runs: the plans on one
// picture track cut to the range, the sound tracks with their volume curves,
// and the per-frame filter (look renderer, crop, motion). It cuts no file:
// each source's files stay on the set's time line (SourceTimeline, shared
// with the player) and the render reads time ranges out of them.
//
// Times: seconds. "Output time" runs from 0 at the range's start `lo`; set
// time = output time + lo. Cut points are kept as doubles, finer than any
// 600-per-second scale. Pure values; `build` may run on any thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "edit/AudioSettings.h"
#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "effects/EffectSettings.h"
#include "effects/MotionFX.h"
#include "effects/Reframe.h"
#include "export/PremiereExport.h"
#include "looks/Image.h"
#include "looks/LookRenderer.h"
#include "playback/SourceTimeline.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::VideoRender {

// Everything a render needs, copied, so it can cross to the export threads.
struct Job {
    std::vector<MediaSource> sources;
    SyncResult result;
    std::vector<Segment> segments;     // the whole edit
    std::vector<int> cameraSources;    // index in `sources` of each camera number
    TimeRange range;                   // exported part of the set
    std::map<Uuid, double> levels;     // dB per source
    std::set<Uuid> muted;
    AudioSettings audio;
    EffectSettings effects;
    std::vector<ResolvedEffect> planEffects;  // one per segment, same order
    OutputFormat format = OutputFormat::landscape;
    std::map<Uuid, CameraFrame> framing;      // crop per camera source
    LookRenderer::Snapshot looks;
    // Loudness of the mix in LUFS, reached by a gain and a true-peak limiter;
    // none: the mix as it is, sample for sample.
    std::optional<double> loudness;

    // The set's rate as the user chose it; none: the standard rate that
    // covers the most camera time (PremiereExport::setRate), as the
    // timeline files take it.
    std::optional<PremiereExport::SequenceRate> rate;
};

// A change of volume: a ramp over `duration` seconds from `from` to `to`,
// or with duration 0 a volume set at `start`. Output time.
struct Ramp {
    double start = 0;
    double duration = 0;
    float from = 1;
    float to = 1;
};

// A step of the camera track: from `time` (set time) on, `volume`.
struct Step {
    double time = 0;
    float volume = 1;
};

// The volume of one sound track over output time: `base` from 0, then each
// entry in order; after a ramp the volume stays at its end.
struct VolumeCurve {
    float base = 1;
    std::vector<Ramp> entries;  // ascending start, none inside another

    float at(double t) const;
};

// A stretch of a sound track: output [start, end) plays source `source`
// at the same moment of the set.
struct SoundInsert {
    double start = 0;
    double end = 0;
    int source = 0;
};

struct SoundTrack {
    std::vector<SoundInsert> inserts;
    VolumeCurve volume;
    // A source heard whole over the range (a recorder, or every camera in
    // mode `all`): read from Built::wholeLines, not from the cut's lines.
    bool whole = false;
};

// One plan on the picture track.
struct Plan {
    double start = 0, end = 0;  // output time, cut to the range
    int camera = 0;
    int segment = 0;                    // index in Job::segments
    double planStart = 0, planEnd = 0;  // the plan's own bounds in the edit (set time)
    ResolvedEffect effect;
};

struct Built {
    int width = 1920, height = 1080;  // outputSize, made even
    PremiereExport::SequenceRate rate;
    int rateNum = 25, rateDen = 1;  // frame rate as a fraction
    double lo = 0, hi = 0;
    int64_t frameCount = 0;         // round((hi - lo) × rate)
    std::vector<Plan> plans;        // in order
    // Per source; cameras with picture. A drifting file is read in step at
    // the middle of each plan, picture and the sound that follows the cut,
    // as the montage XML cuts it.
    std::vector<SourceTimeline> lines;
    // Per source, without picture; a drifting file in step at the middle of
    // its stretch inside the range, as the XML's whole sound tracks.
    std::vector<SourceTimeline> wholeLines;
    std::vector<int> cameraSources;     // index in `lines` of each camera number
    std::vector<SoundTrack> sound;
    std::vector<CameraFrame> framing;   // per camera number
    EffectSettings effects;
    std::shared_ptr<LookRenderer> looks;  // given the job's snapshot, ready
    std::optional<double> loudness;       // target in LUFS, as the job's

    int cameraLine(int camera) const { return cameraSources.at(static_cast<size_t>(camera)); }
    double frameTime(int64_t n) const { return static_cast<double>(n) * rateDen / rateNum; }
    // The plan for output time t: the last one starting at or before
    // t + 0.0005; null before the first.
    const Plan* planAt(double t) const;
};

// 1080 × the format's height outside landscape; in landscape the most
// common size among the cameras' placed files with picture (the first of
// that size), 1920 × 1080 without any.
PixelSize outputSize(const Job& job);

Built build(const Job& job);

// Linear volume of a source: min(10^((level + master) / 20), 1).
float volumeOf(const Job& job, int sourceIndex);

// Ramps where a source's sound ranges begin or end inside `window` (set
// time), never within 0.04 s of the range's ends.
std::vector<Ramp> rushFades(const std::vector<TimeRange>& ranges, const AudioSettings& settings, float volume,
                            TimeRange window, double lo, double hi);

// The entries of a curve from ramps and steps (set time, shifted by
// `offset`): sorted stably by start, steps behind ramps; an entry before 0
// or inside the previous ramp is dropped.
VolumeCurve apply(float base, double offset, std::vector<Ramp> ramps, const std::vector<Step>& steps);

// The frame of one plan at output time t: `image` (the camera's picture
// after the look renderer) placed by Reframe and the plan's motion into a
// width × height picture over black, as 8-bit RGBA rows into `out`.
void compose(const Built& built, const Plan& plan, double t, const Image& image, uint8_t* out);

}  // namespace qv::VideoRender
