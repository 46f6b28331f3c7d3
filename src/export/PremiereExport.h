// PremiereExport: the interchange timeline (xmeml version 4) that Premiere Pro
// and DaVinci Resolve import. `makeXML` writes every file of a set stacked on
// its synchronised place; `makeMontageXML` builds the tracks of an edit. Both
// end in the same `render`, which knows nothing of edits.
//
// Pure functions of their arguments, except for random uuids (the sequence,
// the constant-rate copies); any thread. Times are seconds, turned into
// frames of the sequence by round(seconds x real rate), half away from zero.
// Numbers are written independently of the process locale.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "effects/EffectSettings.h"
#include "effects/MotionFX.h"
#include "effects/Reframe.h"
#include "edit/AudioSettings.h"
#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::PremiereExport {

struct SequenceRate {
    int timebase = 25;  // nominal rate
    bool ntsc = false;  // real rate is timebase x 1000 / 1001
    // Time codes counted drop-frame, as the user may ask at 29.97 and
    // 59.94; never set at any other rate (23.976 has no drop-frame form).
    bool dropFrame = false;

    double fps() const { return ntsc ? timebase * 1000.0 / 1001.0 : timebase; }
    bool canDropFrame() const { return ntsc && (timebase == 30 || timebase == 60); }
    // This rate counted drop-frame when it can be and `drop` asks for it.
    SequenceRate counted(bool drop) const {
        SequenceRate r = *this;
        r.dropFrame = drop && canDropFrame();
        return r;
    }

    // The rate of the table nearest to `rate` (earlier entry on a tie);
    // (25, not ntsc) for a rate that is not above 0 or not a number.
    static SequenceRate closest(double rate);
    bool operator==(const SequenceRate&) const = default;
};

// (24, ntsc), (24), (25), (30, ntsc), (30), (50), (60, ntsc), (60).
extern const std::vector<SequenceRate> rateTable;

// round(seconds x fps), half away from zero, held within +-maxFrames; NaN
// gives 0.
constexpr int64_t maxFrames = int64_t(1) << 53;
int64_t frames(double seconds, double fps);

enum class Kind { video, audio };

// The plan a video clip belongs to, for its key frames. The plan's own start
// and length (on the sequence) drive the curve, even when the clip shows
// only part of it.
struct ClipMotion {
    ResolvedEffect effect;
    double planStart = 0;
    double planDuration = 0;
};

// One use of a media file on a track.
struct ExportClip {
    MediaItem item;
    int sourceIndex = 0;  // into the `sources` given to render
    double start = 0;     // seconds on the sequence
    double sourceIn = 0;  // seconds into the file
    double duration = 0;  // seconds
    Uuid group;           // clips sharing a group are linked
    std::optional<ClipMotion> motion;  // video clips only
};

// A clip in frames of the sequence: `start`/`end` on it, `in`/`out` in the
// file, as long as each other. `out` never passes the file's last whole
// frame; a clip with `end` <= `start` holds no frame and is not written.
struct ClipFrames {
    int64_t start = 0, end = 0, in = 0, out = 0;
};
ClipFrames clipFrames(const ExportClip& clip, double fps);

// One key frame of a video clip's motion: `when` in file frames of the
// sequence's rate, held within the clip's in and out.
struct MotionKey {
    int64_t when = 0;
    MotionSample sample;
};
// The key frames of `clip`: sampled along its plan's curve (denser for a
// shake), the clip's end always included; a single neutral key at its in
// point when it has no motion.
std::vector<MotionKey> motionKeys(const ExportClip& clip, double fps, const EffectSettings& effects);

struct Fade {
    double start = 0;  // seconds on the sequence
    double end = 0;
    std::string alignment;  // "start-black", "end-black" or "center"
};

struct Track {
    Kind kind = Kind::video;
    std::vector<ExportClip> clips;  // ascending start
    int channel = 1;                // 1 or 2: output channel and source track
    std::map<std::string, std::string> attributes;  // written sorted by key
    std::vector<Fade> fades;
};

// Spreads clips on the fewest lanes on which none overlaps; overlap is
// judged on whole frames, so a clip that starts on the frame where the
// previous one ends shares its lane.
std::vector<std::vector<ExportClip>> lanes(std::vector<ExportClip> clips, SequenceRate rate);

// The two tracks (channels 1 and 2) of a stereo pair holding `clips`.
std::vector<Track> audioPair(const std::vector<ExportClip>& clips);

// One lane of sound: a stereo pair when any clip has two channels or more,
// else one mono track.
std::vector<Track> soundTracks(const std::vector<ExportClip>& lane);

// "file://localhost/..." with the path percent-escaped as in a file URL.
std::string pathURL(const std::filesystem::path& path);

// What the cameras' pictures ask of a timeline beyond its clips: the set's
// rate (none: the one setRate chooses, SetRate.h) and, per original file,
// the constant-rate copy that stands in for its picture. A camera's picture
// offset comes with its placement (PlacedItem::pictureOffset).
struct PictureChoices {
    std::optional<SequenceRate> rate;
    std::map<std::filesystem::path, std::filesystem::path> copies;
};

// The video clips of `tracks` whose file has a constant-rate copy in
// `choices` point at the copy: a picture file of its own (one id per copy),
// at the standard rate nearest the original's, with no sound; the sound
// clips stay on the original, linked as before.
std::vector<Track> withCopies(std::vector<Track> tracks, const PictureChoices& choices);

// The tracks of a timeline before any file form is chosen: what the xmeml,
// MLT and OpenTimelineIO writers all lay out the same way.
struct Timeline {
    SequenceRate rate;
    std::vector<Track> video;
    std::vector<Track> audio;       // recorders first, then the cameras' sound
    double duration = 0;            // seconds
    std::map<Uuid, double> levels;  // gain in dB per source id
};

// Every placed file on its place: one video track per lane of each camera,
// all sound (recorders first) on audio tracks, picture and sound of one file
// sharing a group. A camera's picture stands its offset later than its
// sound, cut where it would begin before the sequence.
Timeline synchroTimeline(const std::vector<MediaSource>& sources, const SyncResult& result,
                         const std::map<Uuid, double>& levels, const PictureChoices& picture = {});

// The tracks of an edit over `range`, as makeMontageXML lays them out; the
// levels already hold `audio.masterDb`.
Timeline montageTimeline(const std::vector<MediaSource>& sources, const SyncResult& result,
                         const std::vector<Segment>& segments, const std::vector<int>& cameraSources,
                         TimeRange range, const std::map<Uuid, double>& levels, const AudioSettings& audio,
                         const EffectSettings& effects,
                         const std::function<ResolvedEffect(const Segment&)>& effectFor, bool trackPerCamera,
                         const PictureChoices& picture = {});

// The picture size of a timeline: the format's, or in landscape the most
// common size among the video clips (the first met on a tie), 1920 x 1080
// without any.
PixelSize frameSize(const std::vector<Track>& video, OutputFormat format);

// The clips of `tracks` that keep at least one whole frame at `rate`; the
// others are left out, the next clip taking their place.
std::vector<Track> wholeClips(std::vector<Track> tracks, SequenceRate rate);

// The title of a track as an editing program shows it: its source's name
// when all its clips come from one source, otherwise "V{n}" or "A{n}"
// (`number` from 1) for an empty track, "Montage" for the program track of
// an edit and "Son des caméras" for the sound that follows it.
std::string trackTitle(const Track& track, const std::vector<MediaSource>& sources, int number);

// The second track of a stereo pair, which a writer with stereo tracks
// leaves out.
bool isSecondOfPair(const Track& track);

// The synchro document: every placed file on its place, cameras as video
// tracks, all sound (recorders first) as audio tracks, picture and sound of
// one file linked.
std::string makeXML(const std::string& name, const std::vector<MediaSource>& sources,
                    const SyncResult& result, const std::map<Uuid, double>& levels,
                    const std::set<Uuid>& muted, const PictureChoices& picture = {});

// The edited sequence over `range` (seconds on the set's time line), which
// becomes sequence time 0. `segments`: the plans of the whole edit in time
// order; `cameraSources[camera]` is the index in `sources` of that camera.
// Picture goes on one video track, or with `trackPerCamera` on one per camera
// (V1 the first camera, empty tracks kept). The sound keeps everything: the
// recorders' tracks, then either every camera's own sound (mode all) or the
// sound that follows the cut, linked to its picture (table and camera); the
// mode only decides which of those exist, `muted` (filled by the caller)
// which are disabled. Camera sound gets fades where a rush begins or ends
// inside the range and, in mode camera with `cutFade`, a two-frame
// cross-fade at each cut both files can cover. `levels` plus
// `audio.masterDb` gives each source's gain. An empty `effectFor` draws each
// plan with MotionFX::resolve from `effects` and its camera's membership of
// the effect sets; only zoom and shake reach the file, as key frames.
std::string makeMontageXML(const std::string& name, const std::vector<MediaSource>& sources,
                           const SyncResult& result, const std::vector<Segment>& segments,
                           const std::vector<int>& cameraSources, TimeRange range,
                           const std::map<Uuid, double>& levels, const std::set<Uuid>& muted,
                           const AudioSettings& audio, const EffectSettings& effects,
                           const std::function<ResolvedEffect(const Segment&)>& effectFor = {},
                           OutputFormat format = OutputFormat::landscape,
                           const std::map<Uuid, CameraFrame>& framing = {}, bool trackPerCamera = false,
                           const PictureChoices& picture = {});

// The document itself. `duration`: sequence length in seconds. `levels`: gain
// in dB per source id; `muted`: sources whose audio clips are disabled;
// `framing`: crop per camera source id. The sequence size is the format's,
// or in landscape the most common size among the video clips.
std::string render(const std::string& name, const std::vector<MediaSource>& sources,
                   SequenceRate rate, const std::vector<Track>& video,
                   const std::vector<Track>& audio, double duration,
                   const std::map<Uuid, double>& levels, const std::set<Uuid>& muted,
                   const EffectSettings& effects, OutputFormat format,
                   const std::map<Uuid, CameraFrame>& framing);

}  // namespace qv::PremiereExport
