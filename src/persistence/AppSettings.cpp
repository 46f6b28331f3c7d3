#include "persistence/AppSettings.h"

#include "base/Json.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv {

const char* rawValue(ExportTarget t) {
    switch (t) {
        case ExportTarget::premiere: return "Premiere Pro";
        case ExportTarget::davinci: return "DaVinci Resolve";
        case ExportTarget::video: return "Vidéo finie";
        case ExportTarget::mlt: return "Kdenlive / Shotcut (MLT)";
        case ExportTarget::otio: return "OpenTimelineIO (.otio)";
        case ExportTarget::dropClips: return "Clips des drops (vidéo)";
    }
    return "Premiere Pro";
}

const char* timelineExtension(ExportTarget t) {
    switch (t) {
        case ExportTarget::mlt: return "mlt";
        case ExportTarget::otio: return "otio";
        default: return "xml";
    }
}

const char* rawValue(VideoCodec c) {
    switch (c) {
        case VideoCodec::h264: return "H.264 (MP4)";
        case VideoCodec::hevc: return "HEVC H.265 (MP4)";
        case VideoCodec::prores: return "ProRes 422 (MOV)";
    }
    return "H.264 (MP4)";
}

std::optional<ExportTarget> exportTargetFromRaw(std::string_view raw) {
    for (ExportTarget t : allExportTargets)
        if (raw == rawValue(t)) return t;
    return std::nullopt;
}

std::optional<VideoCodec> videoCodecFromRaw(std::string_view raw) {
    for (VideoCodec c : allVideoCodecs)
        if (raw == rawValue(c)) return c;
    return std::nullopt;
}

const char* rawValue(OutputLoudness l) {
    switch (l) {
        case OutputLoudness::asIs: return "Tel quel";
        case OutputLoudness::social: return "\u221214 LUFS (réseaux sociaux)";
        case OutputLoudness::broadcast: return "\u221223 LUFS (diffusion)";
    }
    return "Tel quel";
}

std::optional<OutputLoudness> outputLoudnessFromRaw(std::string_view raw) {
    for (OutputLoudness l : allOutputLoudness)
        if (raw == rawValue(l)) return l;
    return std::nullopt;
}

std::optional<double> loudnessTarget(OutputLoudness l) {
    switch (l) {
        case OutputLoudness::asIs: return std::nullopt;
        case OutputLoudness::social: return -14.0;
        case OutputLoudness::broadcast: return -23.0;
    }
    return std::nullopt;
}

const char* fileExtension(VideoCodec c) { return c == VideoCodec::prores ? "mov" : "mp4"; }

AppSettings::AppSettings() : AppSettings(paths::settingsFile()) {}

AppSettings::AppSettings(fs::path file) : file_(std::move(file)) {
    json::Json stored = paths::readSettings(file_);
    snapEnabled_ = json::boolean(stored, "snapEnabled", true);
    dropsClickable_ = json::boolean(stored, "dropsClickable", true);
    if (const json::Json* v = json::field(stored, "exportFolderPath"); v && v->is_string())
        exportFolderPath_ = v->get<std::string>();
    askWhereToSave_ = json::boolean(stored, "askWhereToSave", false);
    trackPerCamera_ = json::boolean(stored, "trackPerCamera", true);
    exportLUTs_ = json::boolean(stored, "exportLUTs", true);
    // A value written by another version reads as the first case.
    exportTarget_ = exportTargetFromRaw(json::string(stored, "exportTarget", "")).value_or(ExportTarget::premiere);
    videoCodec_ = videoCodecFromRaw(json::string(stored, "videoCodec", "")).value_or(VideoCodec::h264);
    previewLooks_ = json::boolean(stored, "previewLooks", true);
    outputLoudness_ = outputLoudnessFromRaw(json::string(stored, "outputLoudness", "")).value_or(OutputLoudness::asIs);
}

AppSettings& AppSettings::shared() {
    static AppSettings instance;
    return instance;
}

void AppSettings::writeBool(const char* key, bool& field, bool value) {
    field = value;
    paths::writeSetting(file_, key, json::Json(value));
}

void AppSettings::setSnapEnabled(bool v) { writeBool("snapEnabled", snapEnabled_, v); }
void AppSettings::setDropsClickable(bool v) { writeBool("dropsClickable", dropsClickable_, v); }
void AppSettings::setAskWhereToSave(bool v) { writeBool("askWhereToSave", askWhereToSave_, v); }
void AppSettings::setTrackPerCamera(bool v) { writeBool("trackPerCamera", trackPerCamera_, v); }
void AppSettings::setExportLUTs(bool v) { writeBool("exportLUTs", exportLUTs_, v); }
void AppSettings::setPreviewLooks(bool v) { writeBool("previewLooks", previewLooks_, v); }

void AppSettings::setOutputLoudness(OutputLoudness l) {
    outputLoudness_ = l;
    paths::writeSetting(file_, "outputLoudness", json::Json(rawValue(l)));
}

void AppSettings::setExportFolderPath(std::optional<std::string> path) {
    exportFolderPath_ = std::move(path);
    if (exportFolderPath_)
        paths::writeSetting(file_, "exportFolderPath", json::Json(*exportFolderPath_));
    else
        paths::writeSetting(file_, "exportFolderPath", std::nullopt);
}

void AppSettings::setExportTarget(ExportTarget t) {
    exportTarget_ = t;
    paths::writeSetting(file_, "exportTarget", json::Json(rawValue(t)));
}

void AppSettings::setVideoCodec(VideoCodec c) {
    videoCodec_ = c;
    paths::writeSetting(file_, "videoCodec", json::Json(rawValue(c)));
}

fs::path AppSettings::exportFolder() const {
    if (exportFolderPath_ && !exportFolderPath_->empty()) {
        std::error_code ec;
        fs::path stored(*exportFolderPath_);
        if (fs::exists(stored, ec)) return stored;
    }
    return downloads();
}

fs::path AppSettings::downloads() { return paths::downloads(); }

fs::path AppSettings::uniqueURL(const std::string& name, const std::string& ext) const {
    return uniqueIn(exportFolder(), name, ext);
}

fs::path AppSettings::uniqueIn(const fs::path& folder, const std::string& name, const std::string& ext) {
    fs::path candidate = folder / (name + "." + ext);
    std::error_code ec;
    for (int n = 2; fs::exists(fs::symlink_status(candidate, ec)); ++n)
        candidate = folder / (name + " " + std::to_string(n) + "." + ext);
    return candidate;
}

}  // namespace qv
