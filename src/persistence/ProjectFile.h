// ProjectFile: everything the user decided about one set, as saved in
// `{id}.json`: cuts, sound, effects, grades, crops, export range and the
// timeline's view. No media and no synchronisation (that is the sync cache).
//
// Sources are named by their folder name (`MediaSource::name`, "Cam 2",
// "Son 1"), never by their Uuid, which is new every time a folder is read.
// The free functions at the end turn the live state, keyed by Uuid, into
// names and back against the set's sources.
//
// Reading never fails for a key: each key is read on its own, and one that
// is missing or cannot be decoded takes its default, so an older or damaged
// file loses only that key. Writing gives every key (the optional ones when
// present), arrays of names sorted ascending so the bytes stay the same from
// one save to the next, and dates as seconds since 2001-01-01 00:00:00 UTC.
// Plain values and pure functions, any thread.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Uuid.h"
#include "edit/AudioSettings.h"
#include "edit/AutoEditor.h"
#include "edit/Cut.h"
#include "effects/EffectSettings.h"
#include "effects/Reframe.h"
#include "looks/ColorGrade.h"
#include "sync/Media.h"

namespace qv {

struct ProjectFile {
    // One camera switch. `time` and `camera` are required: an entry without
    // either spoils the whole list of cuts, as the file cannot say which
    // plans remain. The cut's Uuid is not stored.
    struct CutData {
        double time = 0;  // seconds
        int camera = 0;   // camera number, from 0
        PlanEffect effect = PlanEffect::automatic;
        PlanLooks looks;

        bool operator==(const CutData&) const = default;

        json::Json toJson() const;
        static std::optional<CutData> fromJson(const json::Json& j);
    };

    int version = 1;
    std::optional<std::string> id;    // also the file's base name
    std::optional<std::string> name;  // given by the user
    std::string folder;               // standardised path of the set folder
    Date savedAt{};
    std::vector<CutData> cuts;
    std::map<std::string, double> levels;  // dB
    std::vector<std::string> muted;
    AudioSettings audio;
    EffectSettings effects;  // its camera sets are read from the name lists below
    std::vector<std::string> zoomCameras;
    std::vector<std::string> shakeCameras;
    AutoSettings autoSettings;  // key "auto"; `cameras`, `weights` come from below
    std::vector<std::string> autoCameras;
    OutputFormat format = OutputFormat::landscape;
    std::map<std::string, double> framing;  // older form of the crops: x only
    std::map<std::string, CameraFrame> crops;
    std::map<std::string, ColorGrade> grades;
    std::vector<std::string> lensCameras;
    std::vector<std::string> shutterCameras;
    std::vector<std::string> vhsCameras;
    std::map<std::string, double> autoWeights;  // percent
    std::optional<double> inPoint;   // seconds
    std::optional<double> outPoint;  // seconds
    double dropSensitivity = 0.5;
    double dropPre = 15;   // seconds
    double dropPost = 30;  // seconds
    int previewDivision = 1;
    double zoom = 1;
    double viewStart = 0;  // seconds
    // Files placed by hand: path relative to the set folder -> start in
    // seconds. Written only when there is one, so older files read alike.
    std::map<std::string, double> handPlacements;

    // The cameras' pictures: each camera's picture offset in seconds (its
    // picture later than its sound when above 0), the set's frame rate as
    // the user chose it ("25", "29.97"...; absent: chosen from the
    // cameras) and whether time codes count drop-frame. Written only when
    // set, so older files read alike.
    std::map<std::string, double> pictureOffsets;
    std::optional<std::string> frameRate;
    bool dropFrame = false;

    bool operator==(const ProjectFile&) const = default;

    // Keys are sorted by nlohmann's object type; arrays of names are written
    // sorted whatever their order here.
    json::Json toJson() const;
    // The same document as text, byte for byte what toJson().dump(indent)
    // gives (with bad UTF-8 replaced), but the cuts are written straight to
    // text: an edit may hold a million of them and the autosave encodes
    // the project after each burst of changes. -1: compact. `cutList`, when
    // given, is cutsText(indent) of these cuts, made once for two texts.
    std::string toText(int indent = -1, const std::string* cutList = nullptr) const;
    std::string cutsText(int indent) const;
    // Any JSON value reads: one that is not an object gives the defaults.
    // A missing or unreadable `savedAt` becomes `readAt`.
    static ProjectFile fromJson(const json::Json& j, Date readAt = std::chrono::system_clock::now());

private:
    json::Json document(bool withCuts) const;
};

// --- From names to the live state and back -------------------------------
// Two sources of one name cannot occur in a set; if they did, the first in
// `sources` would take the name.

std::optional<std::string> sourceName(const Uuid& id, const std::vector<MediaSource>& sources);
std::optional<Uuid> sourceId(const std::string& name, const std::vector<MediaSource>& sources);

// Names of the known ids, sorted ascending; unknown ids are dropped.
std::vector<std::string> sourceNames(const std::set<Uuid>& ids, const std::vector<MediaSource>& sources);
// Ids of the named sources; names that no source bears are dropped.
std::set<Uuid> sourceIds(const std::vector<std::string>& names, const std::vector<MediaSource>& sources);

template <class V>
std::map<std::string, V> keyedByName(const std::map<Uuid, V>& byId, const std::vector<MediaSource>& sources) {
    std::map<std::string, V> out;
    for (const auto& [id, value] : byId)
        if (auto name = sourceName(id, sources)) out.emplace(*name, value);
    return out;
}

template <class V>
std::map<Uuid, V> keyedById(const std::map<std::string, V>& byName, const std::vector<MediaSource>& sources) {
    std::map<Uuid, V> out;
    for (const auto& [name, value] : byName)
        if (auto id = sourceId(name, sources)) out.emplace(*id, value);
    return out;
}

// Cuts in their order, without their ids.
std::vector<ProjectFile::CutData> cutData(const std::vector<Cut>& cuts);
// The stored cuts that still fit the set: a camera number among the
// cameras of `sources` and a time no later than `duration` (largest end of
// the placed files, 0 without a result). New ids, ascending by time.
std::vector<Cut> keptCuts(const std::vector<ProjectFile::CutData>& cuts, const std::vector<MediaSource>& sources,
                          double duration);

// Stored levels set the level of each source they name; the other entries
// of `live` stay as they were.
std::map<Uuid, double> mergedLevels(std::map<Uuid, double> live, const std::map<std::string, double>& stored,
                                    const std::vector<MediaSource>& sources);

// Puts the effect and automatic-edit settings in the project as they stand,
// and their camera sets (and the editor's weights) under the name keys.
void storeSettings(ProjectFile& project, const EffectSettings& effects, const AutoSettings& autoSettings,
                   const std::vector<MediaSource>& sources);
// The project's settings with their camera sets taken from the name keys.
EffectSettings effectsOf(const ProjectFile& project, const std::vector<MediaSource>& sources);
AutoSettings autoSettingsOf(const ProjectFile& project, const std::vector<MediaSource>& sources);

// Writes `crops` and its older twin `framing` (x only) for the frames that
// are not neutral.
void storeCrops(ProjectFile& project, const std::map<Uuid, CameraFrame>& frames,
                const std::vector<MediaSource>& sources);
// `crops`, or when it is empty the older `framing` (zoom 1, x, y 0).
std::map<Uuid, CameraFrame> cropsOf(const ProjectFile& project, const std::vector<MediaSource>& sources);

// The grades that differ from the neutral grade, by name.
std::map<std::string, ColorGrade> gradesByName(const std::map<Uuid, ColorGrade>& grades,
                                               const std::vector<MediaSource>& sources);

}  // namespace qv
