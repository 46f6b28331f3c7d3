#include "persistence/ProjectFile.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "persistence/ProjectStore.h"

namespace qv {

namespace {

using Json = json::Json;

// The reading rule of every key: a missing key, or a value that does not
// decode, keeps the default. Decoders answer nothing rather than throw; the
// catch only guards against a hook that would.
template <class T, class Decode>
T readKey(const Json& j, const char* key, T fallback, Decode decode) {
    const Json* v = json::field(j, key);
    if (!v) return fallback;
    try {
        std::optional<T> read = decode(*v);
        return read ? std::move(*read) : std::move(fallback);
    } catch (const Json::exception&) {
        return fallback;
    }
}

std::optional<double> asDouble(const Json& v) {
    if (v.is_number()) return v.get<double>();
    return std::nullopt;
}

// Integers written as 3.0 are accepted; anything outside `int` is not.
std::optional<int> asInt(const Json& v) {
    if (v.is_number_unsigned()) {
        auto u = v.get<uint64_t>();
        if (u <= static_cast<uint64_t>(INT_MAX)) return static_cast<int>(u);
    } else if (v.is_number_integer()) {
        auto i = v.get<int64_t>();
        if (i >= INT_MIN && i <= INT_MAX) return static_cast<int>(i);
    } else if (v.is_number_float()) {
        double d = v.get<double>();
        if (d >= INT_MIN && d <= INT_MAX && d == std::floor(d)) return static_cast<int>(d);
    }
    return std::nullopt;
}

std::optional<std::string> asString(const Json& v) {
    if (v.is_string()) return v.get<std::string>();
    return std::nullopt;
}

// A typed array decode: one entry that is not a text spoils the whole list.
std::optional<std::vector<std::string>> asNames(const Json& v) {
    if (!v.is_array()) return std::nullopt;
    std::vector<std::string> out;
    out.reserve(v.size());
    for (const Json& e : v) {
        if (!e.is_string()) return std::nullopt;
        out.push_back(e.get<std::string>());
    }
    return out;
}

// An object of name to value; one value that does not decode spoils it all.
template <class V, class Decode>
std::optional<std::map<std::string, V>> asMap(const Json& v, Decode decode) {
    if (!v.is_object()) return std::nullopt;
    std::map<std::string, V> out;
    for (const auto& [key, value] : v.items()) {
        std::optional<V> read = decode(value);
        if (!read) return std::nullopt;
        out.emplace(key, std::move(*read));
    }
    return out;
}

// Types whose own JSON hooks already read each of their keys tolerantly.
template <class T>
std::optional<T> viaHook(const Json& v) {
    return v.get<T>();
}

std::optional<CameraFrame> asFrame(const Json& v) {
    if (!v.is_object()) return std::nullopt;
    return v.get<CameraFrame>();
}

Json sortedNames(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return Json(names);
}

}  // namespace

// --- CutData ------------------------------------------------------------

Json ProjectFile::CutData::toJson() const {
    return {{"time", time}, {"camera", camera}, {"effect", effect}, {"looks", looks}};
}

std::optional<ProjectFile::CutData> ProjectFile::CutData::fromJson(const Json& j) {
    const Json* time = json::field(j, "time");
    const Json* camera = json::field(j, "camera");
    if (!time || !camera || !time->is_number()) return std::nullopt;
    auto index = asInt(*camera);
    if (!index) return std::nullopt;
    CutData c;
    c.time = time->get<double>();
    c.camera = *index;
    c.effect = readKey(j, "effect", c.effect, viaHook<PlanEffect>);
    c.looks = readKey(j, "looks", c.looks, viaHook<PlanLooks>);
    return c;
}

// --- ProjectFile ----------------------------------------------------------

Json ProjectFile::toJson() const { return document(true); }

Json ProjectFile::document(bool withCuts) const {
    Json j = Json::object();
    j["version"] = version;
    if (id) j["id"] = *id;
    if (name) j["name"] = *name;
    j["folder"] = folder;
    j["savedAt"] = ProjectStore::referenceSeconds(savedAt);
    Json cutArray = Json::array();
    if (withCuts)
        for (const CutData& c : cuts) cutArray.push_back(c.toJson());
    j["cuts"] = std::move(cutArray);
    j["levels"] = levels;
    j["muted"] = sortedNames(muted);
    j["audio"] = audio;
    j["effects"] = effects;
    j["zoomCameras"] = sortedNames(zoomCameras);
    j["shakeCameras"] = sortedNames(shakeCameras);
    j["auto"] = autoSettings;
    j["autoCameras"] = sortedNames(autoCameras);
    j["format"] = format;
    j["framing"] = framing;
    Json cropObject = Json::object();
    for (const auto& [source, frame] : crops) cropObject[source] = frame;
    j["crops"] = std::move(cropObject);
    Json gradeObject = Json::object();
    for (const auto& [source, grade] : grades) gradeObject[source] = Json(grade.toJson());
    j["grades"] = std::move(gradeObject);
    j["lensCameras"] = sortedNames(lensCameras);
    j["shutterCameras"] = sortedNames(shutterCameras);
    j["vhsCameras"] = sortedNames(vhsCameras);
    j["autoWeights"] = autoWeights;
    if (inPoint) j["inPoint"] = *inPoint;
    if (outPoint) j["outPoint"] = *outPoint;
    j["dropSensitivity"] = dropSensitivity;
    j["dropPre"] = dropPre;
    j["dropPost"] = dropPost;
    j["previewDivision"] = previewDivision;
    j["zoom"] = zoom;
    j["viewStart"] = viewStart;
    if (!handPlacements.empty()) j["handPlacements"] = handPlacements;
    if (!pictureOffsets.empty()) j["pictureOffsets"] = pictureOffsets;
    if (frameRate) j["frameRate"] = *frameRate;
    if (dropFrame) j["dropFrame"] = true;
    return j;
}

namespace {

// A number as nlohmann writes it (its own shortest form, "null" when not
// finite), without making a value and a string for each one.
void appendNumber(std::string& out, double v) {
    if (!std::isfinite(v)) {
        out += "null";
        return;
    }
    char digits[64];
    const char* end = nlohmann::detail::to_chars(digits, digits + sizeof digits, v);
    out.append(digits, static_cast<size_t>(end - digits));
}

}  // namespace

std::string ProjectFile::cutsText(int indent) const {
    if (cuts.empty()) return "[]";
    auto dump = [indent](const Json& v) { return v.dump(indent, ' ', false, Json::error_handler_t::replace); };
    // Each cut as nlohmann writes an object of four sorted keys, in a list
    // one level below the document; the parts that repeat are written once.
    const bool pretty = indent >= 0;
    const std::string colon = pretty ? ": " : ":";
    auto line = [&](int depth) { return pretty ? "\n" + std::string(static_cast<size_t>(depth * indent), ' ') : ""; };
    const std::string open = line(2) + "{" + line(3) + "\"camera\"" + colon;
    const std::string effectKey = "," + line(3) + "\"effect\"" + colon, looksKey = "," + line(3) + "\"looks\"" + colon;
    const std::string timeKey = "," + line(3) + "\"time\"" + colon, close = line(2) + "}";
    std::map<PlanEffect, std::string> effects;
    const std::string noLooks = dump(Json(PlanLooks{}));
    std::string list = "[";
    list.reserve(cuts.size() * (pretty ? 110 : 60));
    for (size_t i = 0; i < cuts.size(); ++i) {
        const CutData& c = cuts[i];
        auto effect = effects.find(c.effect);
        if (effect == effects.end()) effect = effects.emplace(c.effect, dump(Json(c.effect))).first;
        if (i > 0) list += ",";
        list += open;
        list += std::to_string(c.camera);
        list += effectKey;
        list += effect->second;
        list += looksKey;
        if (c.looks == PlanLooks{}) {
            list += noLooks;
        } else {
            std::string looks = dump(Json(c.looks));
            if (pretty)  // nested one level deeper than it was dumped
                for (size_t n = looks.find('\n'); n != std::string::npos; n = looks.find('\n', n + 1))
                    looks.insert(n + 1, std::string(static_cast<size_t>(3 * indent), ' '));
            list += looks;
        }
        list += timeKey;
        appendNumber(list, c.time);
        list += close;
    }
    list += line(1) + "]";
    return list;
}

std::string ProjectFile::toText(int indent, const std::string* cutList) const {
    auto dump = [indent](const Json& v) { return v.dump(indent, ' ', false, Json::error_handler_t::replace); };
    std::string text = dump(document(false));
    if (cuts.empty()) return text;
    // The empty list stands where the cuts go: keys are sorted and "cuts"
    // is never the first, nor a key of anything nested.
    const std::string empty = indent >= 0 ? "\n" + std::string(static_cast<size_t>(indent), ' ') + "\"cuts\": []"
                                          : ",\"cuts\":[]";
    const size_t at = text.find(empty);
    if (at == std::string::npos) return dump(toJson());
    text.replace(at + empty.size() - 2, 2, cutList ? *cutList : cutsText(indent));
    return text;
}

ProjectFile ProjectFile::fromJson(const Json& j, Date readAt) {
    ProjectFile p;
    p.savedAt = readAt;
    if (!j.is_object()) return p;

    auto asOptionalText = [](const Json& v) -> std::optional<std::optional<std::string>> {
        if (v.is_string()) return std::optional<std::string>(v.get<std::string>());
        return std::nullopt;
    };
    auto asOptionalDouble = [](const Json& v) -> std::optional<std::optional<double>> {
        if (v.is_number()) return std::optional<double>(v.get<double>());
        return std::nullopt;
    };
    auto asDate = [](const Json& v) -> std::optional<Date> {
        if (v.is_number()) return ProjectStore::dateFromReference(v.get<double>());
        return std::nullopt;
    };
    auto asCuts = [](const Json& v) -> std::optional<std::vector<CutData>> {
        if (!v.is_array()) return std::nullopt;
        std::vector<CutData> out;
        out.reserve(v.size());
        for (const Json& e : v) {
            auto c = CutData::fromJson(e);
            if (!c) return std::nullopt;
            out.push_back(*c);
        }
        return out;
    };
    auto asDoubles = [](const Json& v) { return asMap<double>(v, asDouble); };
    auto asGrade = [](const Json& v) { return ColorGrade::fromJson(v); };

    p.version = readKey(j, "version", p.version, asInt);
    p.id = readKey(j, "id", p.id, asOptionalText);
    p.name = readKey(j, "name", p.name, asOptionalText);
    p.folder = readKey(j, "folder", p.folder, asString);
    p.savedAt = readKey(j, "savedAt", p.savedAt, asDate);
    p.cuts = readKey(j, "cuts", p.cuts, asCuts);
    p.levels = readKey(j, "levels", p.levels, asDoubles);
    p.muted = readKey(j, "muted", p.muted, asNames);
    p.audio = readKey(j, "audio", p.audio, viaHook<AudioSettings>);
    p.effects = readKey(j, "effects", p.effects, viaHook<EffectSettings>);
    p.zoomCameras = readKey(j, "zoomCameras", p.zoomCameras, asNames);
    p.shakeCameras = readKey(j, "shakeCameras", p.shakeCameras, asNames);
    p.autoSettings = readKey(j, "auto", p.autoSettings, viaHook<AutoSettings>);
    p.autoCameras = readKey(j, "autoCameras", p.autoCameras, asNames);
    p.format = readKey(j, "format", p.format, viaHook<OutputFormat>);
    p.framing = readKey(j, "framing", p.framing, asDoubles);
    p.crops = readKey(j, "crops", p.crops, [](const Json& v) { return asMap<CameraFrame>(v, asFrame); });
    p.grades = readKey(j, "grades", p.grades, [&](const Json& v) { return asMap<ColorGrade>(v, asGrade); });
    p.lensCameras = readKey(j, "lensCameras", p.lensCameras, asNames);
    p.shutterCameras = readKey(j, "shutterCameras", p.shutterCameras, asNames);
    p.vhsCameras = readKey(j, "vhsCameras", p.vhsCameras, asNames);
    p.autoWeights = readKey(j, "autoWeights", p.autoWeights, asDoubles);
    p.inPoint = readKey(j, "inPoint", p.inPoint, asOptionalDouble);
    p.outPoint = readKey(j, "outPoint", p.outPoint, asOptionalDouble);
    p.dropSensitivity = readKey(j, "dropSensitivity", p.dropSensitivity, asDouble);
    p.dropPre = readKey(j, "dropPre", p.dropPre, asDouble);
    p.dropPost = readKey(j, "dropPost", p.dropPost, asDouble);
    p.previewDivision = readKey(j, "previewDivision", p.previewDivision, asInt);
    p.zoom = readKey(j, "zoom", p.zoom, asDouble);
    p.viewStart = readKey(j, "viewStart", p.viewStart, asDouble);
    p.handPlacements = readKey(j, "handPlacements", p.handPlacements, asDoubles);
    p.pictureOffsets = readKey(j, "pictureOffsets", p.pictureOffsets, asDoubles);
    p.frameRate = readKey(j, "frameRate", p.frameRate, asOptionalText);
    p.dropFrame = readKey(j, "dropFrame", p.dropFrame, [](const Json& v) -> std::optional<bool> {
        if (v.is_boolean()) return v.get<bool>();
        return std::nullopt;
    });
    return p;
}

// --- Names and ids ----------------------------------------------------------

std::optional<std::string> sourceName(const Uuid& id, const std::vector<MediaSource>& sources) {
    for (const auto& s : sources)
        if (s.id == id) return s.name;
    return std::nullopt;
}

std::optional<Uuid> sourceId(const std::string& name, const std::vector<MediaSource>& sources) {
    for (const auto& s : sources)
        if (s.name == name) return s.id;
    return std::nullopt;
}

std::vector<std::string> sourceNames(const std::set<Uuid>& ids, const std::vector<MediaSource>& sources) {
    std::vector<std::string> out;
    for (const Uuid& id : ids)
        if (auto name = sourceName(id, sources)) out.push_back(*name);
    std::sort(out.begin(), out.end());
    return out;
}

std::set<Uuid> sourceIds(const std::vector<std::string>& names, const std::vector<MediaSource>& sources) {
    std::set<Uuid> out;
    for (const auto& name : names)
        if (auto id = sourceId(name, sources)) out.insert(*id);
    return out;
}

std::vector<ProjectFile::CutData> cutData(const std::vector<Cut>& cuts) {
    std::vector<ProjectFile::CutData> out;
    out.reserve(cuts.size());
    for (const Cut& c : cuts) out.push_back({c.time, c.camera, c.effect, c.looks});
    return out;
}

std::vector<Cut> keptCuts(const std::vector<ProjectFile::CutData>& cuts, const std::vector<MediaSource>& sources,
                          double duration) {
    auto cameras = std::count_if(sources.begin(), sources.end(),
                                 [](const MediaSource& s) { return s.kind == SourceKind::camera; });
    std::vector<Cut> out;
    for (const auto& c : cuts) {
        // A set that lost a camera or got shorter drops only the cuts that no longer fit.
        if (c.camera < 0 || c.camera >= cameras || !(c.time <= duration)) continue;
        Cut cut;
        cut.time = c.time;
        cut.camera = c.camera;
        cut.effect = c.effect;
        cut.looks = c.looks;
        out.push_back(cut);
    }
    sortByTime(out);
    return out;
}

std::map<Uuid, double> mergedLevels(std::map<Uuid, double> live, const std::map<std::string, double>& stored,
                                    const std::vector<MediaSource>& sources) {
    for (const auto& [id, level] : keyedById(stored, sources)) live[id] = level;
    return live;
}

void storeSettings(ProjectFile& project, const EffectSettings& effects, const AutoSettings& autoSettings,
                   const std::vector<MediaSource>& sources) {
    project.effects = effects;
    project.autoSettings = autoSettings;
    project.zoomCameras = sourceNames(effects.zoomCameras, sources);
    project.shakeCameras = sourceNames(effects.shakeCameras, sources);
    project.lensCameras = sourceNames(effects.lensCameras, sources);
    project.shutterCameras = sourceNames(effects.shutterCameras, sources);
    project.vhsCameras = sourceNames(effects.vhsCameras, sources);
    project.autoCameras = sourceNames(autoSettings.cameras, sources);
    project.autoWeights = keyedByName(autoSettings.weights, sources);
}

EffectSettings effectsOf(const ProjectFile& project, const std::vector<MediaSource>& sources) {
    EffectSettings e = project.effects;
    e.zoomCameras = sourceIds(project.zoomCameras, sources);
    e.shakeCameras = sourceIds(project.shakeCameras, sources);
    e.lensCameras = sourceIds(project.lensCameras, sources);
    e.shutterCameras = sourceIds(project.shutterCameras, sources);
    e.vhsCameras = sourceIds(project.vhsCameras, sources);
    return e;
}

AutoSettings autoSettingsOf(const ProjectFile& project, const std::vector<MediaSource>& sources) {
    AutoSettings a = project.autoSettings;
    a.cameras = sourceIds(project.autoCameras, sources);
    a.weights = keyedById(project.autoWeights, sources);
    return a;
}

void storeCrops(ProjectFile& project, const std::map<Uuid, CameraFrame>& frames,
                const std::vector<MediaSource>& sources) {
    project.crops.clear();
    project.framing.clear();
    for (const auto& [name, frame] : keyedByName(frames, sources)) {
        if (frame.isNeutral()) continue;
        project.crops[name] = frame;
        // Still written so that an older build keeps the horizontal position.
        project.framing[name] = frame.x;
    }
}

std::map<Uuid, CameraFrame> cropsOf(const ProjectFile& project, const std::vector<MediaSource>& sources) {
    if (!project.crops.empty()) return keyedById(project.crops, sources);
    std::map<std::string, CameraFrame> older;
    for (const auto& [name, x] : project.framing) older[name] = CameraFrame{1, x, 0};
    return keyedById(older, sources);
}

std::map<std::string, ColorGrade> gradesByName(const std::map<Uuid, ColorGrade>& grades,
                                               const std::vector<MediaSource>& sources) {
    std::map<Uuid, ColorGrade> changed;
    for (const auto& [id, grade] : grades)
        if (grade != ColorGrade::neutral) changed.emplace(id, grade);
    return keyedByName(changed, sources);
}

}  // namespace qv
