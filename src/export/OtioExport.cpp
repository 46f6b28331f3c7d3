#include "export/OtioExport.h"

#include <cmath>

#include "base/Json.h"
#include "base/SafeText.h"

namespace qv::OtioExport {

using namespace PremiereExport;
using json::Json;

namespace {

Json rationalTime(int64_t value, double rate) {
    return {{"OTIO_SCHEMA", "RationalTime.1"}, {"rate", rate}, {"value", static_cast<double>(value)}};
}

Json timeRange(int64_t start, int64_t duration, double rate) {
    return {{"OTIO_SCHEMA", "TimeRange.1"},
            {"start_time", rationalTime(start, rate)},
            {"duration", rationalTime(duration, rate)}};
}

// The fields every Item carries.
Json item(const char* schema, const std::string& name, const Json& range) {
    return {{"OTIO_SCHEMA", schema},  {"metadata", Json::object()}, {"name", xmlSafe(name)},
            {"source_range", range},  {"effects", Json::array()},   {"markers", Json::array()},
            {"enabled", true}};
}

// The file's fields and pixel shape where they are not plain, under the
// program's own name as the format asks of metadata.
Json pictureMetadata(const MediaItem& file) {
    Json picture = Json::object();
    if (file.picture.interlaced())
        picture["field_order"] = file.picture.fields == media::FieldOrder::topFirst ? "upper" : "lower";
    if (file.picture.anamorphic()) picture["pixel_aspect_ratio"] = file.picture.pixelAspect;
    if (picture.empty()) return Json::object();
    return {{"quorvel", picture}};
}

Json gap(int64_t frames, double rate) { return item("Gap.1", "", timeRange(0, frames, rate)); }

Json track(const Track& t, const std::string& name, const std::vector<MediaSource>& sources,
           const std::set<Uuid>& muted, double rate) {
    Json children = Json::array();
    int64_t cursor = 0;
    for (const ExportClip& c : t.clips) {
        const ClipFrames f = clipFrames(c, rate);
        if (f.end <= f.start || f.start < cursor) continue;
        if (f.start > cursor) children.push_back(gap(f.start - cursor, rate));
        Json clip = item("Clip.1", c.item.fileName(), timeRange(f.in, f.end - f.start, rate));
        clip["media_reference"] = {{"OTIO_SCHEMA", "ExternalReference.1"},
                                   {"metadata", pictureMetadata(c.item)},
                                   {"name", xmlSafe(c.item.fileName())},
                                   {"available_range", timeRange(0, frames(c.item.duration, rate), rate)},
                                   {"target_url", pathURL(c.item.url)}};
        const MediaSource& source = sources.at(static_cast<size_t>(c.sourceIndex));
        if (t.kind == Kind::audio && muted.count(source.id)) clip["enabled"] = false;
        children.push_back(std::move(clip));
        cursor = f.end;
    }
    Json out = item("Track.1", name, nullptr);
    out["children"] = std::move(children);
    out["kind"] = t.kind == Kind::video ? "Video" : "Audio";
    return out;
}

}  // namespace

std::string write(const std::string& title, const std::vector<MediaSource>& sources, const Timeline& timeline,
                  const std::set<Uuid>& muted, const std::vector<TimelineMarker>& markers) {
    const double rate = timeline.rate.fps();
    const int64_t length = frames(std::isfinite(timeline.duration) ? timeline.duration : 0, rate);

    Json tracks = Json::array();
    int number = 0;
    for (const Track& t : timeline.video) tracks.push_back(track(t, trackTitle(t, sources, ++number), sources, muted, rate));
    number = 0;
    for (const Track& t : timeline.audio) {
        if (isSecondOfPair(t)) continue;  // a stereo pair is one sound track here
        tracks.push_back(track(t, trackTitle(t, sources, ++number), sources, muted, rate));
    }

    Json marks = Json::array();
    for (const TimelineMarker& m : markers) {
        const int64_t at = frames(m.time, rate);
        if (at < 0 || at >= std::max<int64_t>(length, 1)) continue;
        marks.push_back({{"OTIO_SCHEMA", "Marker.2"},
                         {"metadata", Json::object()},
                         {"name", xmlSafe(m.name)},
                         {"color", "RED"},
                         {"marked_range", timeRange(at, 0, rate)},
                         {"comment", ""}});
    }

    Json stack = item("Stack.1", "tracks", nullptr);
    stack["markers"] = std::move(marks);
    stack["children"] = std::move(tracks);

    Json doc = {{"OTIO_SCHEMA", "Timeline.1"},
                {"metadata", Json::object()},
                {"name", xmlSafe(title)},
                {"global_start_time", rationalTime(0, rate)},
                {"tracks", std::move(stack)}};
    return doc.dump(4, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace qv::OtioExport
