// MltExport: a timeline as MLT XML, the project form of the MLT editors on
// Linux, which `melt` also renders. The tracks are those the xmeml writer
// lays out (PremiereExport::Timeline), with the same frame rounding; the
// sound keeps its levels, mutes and fades, crops and zooms become key-framed
// `affine` filters, each camera's grade an `avfilter.lut3d` on its `.cube`,
// and the drops markers and guides.
//
// A pure function of its arguments; any thread. Numbers are written
// independently of the process locale. A path that is not valid UTF-8, or
// holds control characters, cannot be told in an XML document: such a file
// is named by the alias the caller gives for it (a link with a plain name,
// paths::plainNameLink), else its bad bytes become U+FFFD and the reference
// leads nowhere.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "export/PremiereExport.h"

namespace qv {

// A point of the timeline worth a marker (a drop), in seconds on it.
struct TimelineMarker {
    double time = 0;
    std::string name;
};

// What reaches the picture beyond the tracks.
struct TimelineLook {
    OutputFormat format = OutputFormat::landscape;
    std::map<Uuid, CameraFrame> framing;          // crop per camera source id
    std::map<Uuid, std::filesystem::path> cubes;  // grade LUT per camera source id
    EffectSettings effects;                       // the shake's speed for its key frames

    // Files named through another path, by their own path: the names that
    // MLT XML cannot hold (MltExport::unnameable).
    std::map<std::string, std::filesystem::path> aliases;
};

namespace MltExport {

// The document; `muted` holds the sources whose sound is disabled.
std::string write(const std::string& title, const std::vector<MediaSource>& sources,
                  const PremiereExport::Timeline& timeline, const std::set<Uuid>& muted,
                  const TimelineLook& look, const std::vector<TimelineMarker>& markers);

// The MLT profile of the timeline: its size and real rate.
struct Profile {
    int width = 1920, height = 1080;
    int rateNum = 25, rateDen = 1;
};
Profile profileOf(const PremiereExport::Timeline& timeline, OutputFormat format);

// The files of `sources` whose path XML cannot carry as it is.
std::vector<std::filesystem::path> unnameable(const std::vector<MediaSource>& sources);

}  // namespace MltExport

}  // namespace qv
