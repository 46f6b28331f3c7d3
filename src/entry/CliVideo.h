// The finished video of a command-line run (`--video <file> [--codec c]`):
// renders the run's edit through the export session, with a real-time
// main-thread loop standing in for the interface's timers.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "edit/AudioSettings.h"
#include "edit/Cut.h"
#include "edit/TimeRange.h"
#include "effects/EffectSettings.h"
#include "effects/MotionFX.h"
#include "effects/Reframe.h"
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
};

// Prints "Vidéo : {path}" and returns 0, or "L'export vidéo a échoué :
// {message}" and returns 1. `progress` gets the fraction done and the time
// left as text, about four times a second.
int exportVideo(VideoRequest request, std::ostream& out,
                const std::function<void(double, const std::string&)>& progress);

}  // namespace qv::CLI
