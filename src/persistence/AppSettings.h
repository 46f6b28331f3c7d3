// AppSettings: what the user decides once for all projects (where exports go
// and in which form, a few habits of the interface), kept in the per-user
// settings file ($XDG_CONFIG_HOME/quorvel/settings.json), one key per field.
// Values are read once at creation; every setter writes its key at once,
// touching no other key of the file. A key that is missing or unreadable
// gives its default. Enumerations are stored by raw value, which is also the
// label shown to the user. Use from one thread (the interface thread).
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

// "Premiere Pro", "DaVinci Resolve", "Vidéo finie", "Kdenlive / Shotcut (MLT)", "OpenTimelineIO (.otio)",
// "Clips des drops (vidéo)"
enum class ExportTarget { premiere, davinci, video, mlt, otio, dropClips };
enum class VideoCodec { h264, hevc, prores };           // "H.264 (MP4)", "HEVC H.265 (MP4)", "ProRes 422 (MOV)"

const char* rawValue(ExportTarget t);
const char* rawValue(VideoCodec c);
std::optional<ExportTarget> exportTargetFromRaw(std::string_view raw);
std::optional<VideoCodec> videoCodecFromRaw(std::string_view raw);
const char* fileExtension(VideoCodec c);  // "mp4" or "mov"

// In the order the export panel offers them.
inline constexpr ExportTarget allExportTargets[] = {ExportTarget::premiere, ExportTarget::davinci, ExportTarget::mlt,
                                                    ExportTarget::otio, ExportTarget::video, ExportTarget::dropClips};
// The extension of the timeline file a target writes: "xml", "mlt" or
// "otio"; the video's depends on its codec.
const char* timelineExtension(ExportTarget t);
// Loudness of finished videos: "Tel quel", "−14 LUFS (réseaux sociaux)",
// "−23 LUFS (diffusion)". XML exports never change.
enum class OutputLoudness { asIs, social, broadcast };
const char* rawValue(OutputLoudness l);
std::optional<OutputLoudness> outputLoudnessFromRaw(std::string_view raw);
// The target in LUFS; none for "Tel quel".
std::optional<double> loudnessTarget(OutputLoudness l);
inline constexpr OutputLoudness allOutputLoudness[] = {OutputLoudness::asIs, OutputLoudness::social,
                                                      OutputLoudness::broadcast};

inline constexpr VideoCodec allVideoCodecs[] = {VideoCodec::h264, VideoCodec::hevc, VideoCodec::prores};

class AppSettings {
public:
    // Reads `file` (the user's settings file unless told otherwise).
    explicit AppSettings(std::filesystem::path file);
    AppSettings();

    // The one instance of the application, created on first use.
    static AppSettings& shared();

    bool snapEnabled() const { return snapEnabled_; }
    bool dropsClickable() const { return dropsClickable_; }
    const std::optional<std::string>& exportFolderPath() const { return exportFolderPath_; }
    bool askWhereToSave() const { return askWhereToSave_; }
    bool trackPerCamera() const { return trackPerCamera_; }
    bool exportLUTs() const { return exportLUTs_; }
    ExportTarget exportTarget() const { return exportTarget_; }
    VideoCodec videoCodec() const { return videoCodec_; }
    bool previewLooks() const { return previewLooks_; }
    OutputLoudness outputLoudness() const { return outputLoudness_; }

    void setSnapEnabled(bool v);
    void setDropsClickable(bool v);
    void setExportFolderPath(std::optional<std::string> path);  // nothing removes the key
    void setAskWhereToSave(bool v);
    void setTrackPerCamera(bool v);
    void setExportLUTs(bool v);
    void setExportTarget(ExportTarget t);
    void setVideoCodec(VideoCodec c);
    void setPreviewLooks(bool v);
    void setOutputLoudness(OutputLoudness l);

    // The stored folder while something exists there; otherwise `downloads`.
    // A disk that has gone away falls back in silence and the key stays.
    std::filesystem::path exportFolder() const;
    // The user's downloads folder (XDG_DOWNLOAD_DIR, else ~/Downloads).
    static std::filesystem::path downloads();
    // "{name}.{ext}" in exportFolder(), or "{name} {n}.{ext}" with the first
    // n from 2 whose file does not exist yet. Creates nothing.
    std::filesystem::path uniqueURL(const std::string& name, const std::string& ext) const;
    // The same rule in any folder.
    static std::filesystem::path uniqueIn(const std::filesystem::path& folder, const std::string& name,
                                          const std::string& ext);

private:
    void writeBool(const char* key, bool& field, bool value);

    std::filesystem::path file_;
    bool snapEnabled_ = true;
    bool dropsClickable_ = true;
    std::optional<std::string> exportFolderPath_;
    bool askWhereToSave_ = false;
    bool trackPerCamera_ = true;
    bool exportLUTs_ = true;
    ExportTarget exportTarget_ = ExportTarget::premiere;
    VideoCodec videoCodec_ = VideoCodec::h264;
    bool previewLooks_ = true;
    OutputLoudness outputLoudness_ = OutputLoudness::asIs;
};

}  // namespace qv
