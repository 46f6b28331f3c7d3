// The finished video of a command-line run (`--video <file> [--codec c]`):
// renders the run's edit through the export session, with a real-time
// main-thread loop standing in for the interface's timers.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "analysis/PictureGrades.h"
#include "edit/AudioSettings.h"
#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "effects/EffectSettings.h"
#include "export/OutputTarget.h"
#include "effects/MotionFX.h"
#include "effects/Reframe.h"
#include "export/PremiereExport.h"
#include "music/DropDetector.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::CLI {

struct VideoRequest {
    std::filesystem::path file;
    std::string codec;  // "h264", "hevc", "prores"; empty: ProRes for .mov, H.264 otherwise
    std::vector<MediaSource> sources;
    SyncResult result;
    std::vector<Cut> cuts;  // none: one plan on the first camera
    TimeRange range;
    AudioSettings audio;
    EffectSettings effects;
    std::function<ResolvedEffect(const Segment&)> effectFor;  // empty: no effect
    OutputFormat format = OutputFormat::landscape;
    std::map<Uuid, CameraFrame> framing;
    std::optional<double> loudness;  // LUFS; none: the mix as it is
    // The set's rate (`--rate`); none: the one covering the most camera time.
    std::optional<PremiereExport::SequenceRate> rate;
};

// The clips of the drops (`--clips-drops <folder>`): `edit` gives the
// sound, effects, format, crops and the user's cuts; its file is unused.
struct ClipsRequest {
    VideoRequest edit;
    std::filesystem::path folder;
    std::string setName;
    std::vector<Drop> drops;
    std::vector<double> onsets;
    double pre = 15, post = 30;
    OutputTarget::Protected owned;  // each clip's file is judged against it
    analysis::CameraPictures pictures;  // empty: pictures not looked at
};

// "-14" or "-23" (a typographic minus too) as a loudness target.
std::optional<double> loudnessOf(const std::string& text);

// "h264", "hevc" or "prores": the names `--codec` knows.
bool isCodecName(const std::string& text);

// Prints "Vidéo : {path}" and returns 0, or "L'export vidéo a échoué :
// {message}" and returns 1. `progress` gets the fraction done and the time
// left as text, about four times a second. A TERM or INT while it renders
// cancels the render, which removes its hidden partial file; that is said
// on `err` and the status is 128 + the signal's number.
int exportVideo(VideoRequest request, std::ostream& out, std::ostream& err,
                const std::function<void(double, const std::string&)>& progress);

// One clip per drop in `folder`, each reported "Clip : {path}", then
// "Clips des drops : {n} fichiers dans {folder}" and 0. No drop: "Aucun
// drop : aucun clip" and 0. A clip that fails is named, the clips before
// it stay, and the run returns 1; an interruption as for exportVideo.
int exportDropClips(ClipsRequest request, std::ostream& out, std::ostream& err,
                    const std::function<void(double, const std::string&)>& progress);

}  // namespace qv::CLI
