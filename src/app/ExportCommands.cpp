// The export commands of the application model: they name the file, ask
// where it goes, call the writers, put the `.cube` files beside an XML and
// tell the outcome in the status line, a toast or an error message.
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>

#include "app/AppModel.h"
#include "base/Format.h"
#include "diagnostics/Log.h"
#include "export/MltExport.h"
#include "export/OtioExport.h"
#include "export/PremiereExport.h"
#include "looks/CubeLUT.h"
#include "looks/GradeMath.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

const char* premiereHint = "Dans Premiere : Fichier › Importer, puis choisis ce XML.";
const char* davinciHint = "Dans DaVinci : Fichier › Importer › Timeline, puis choisis ce XML.";
const char* mltHint = "Dans Kdenlive ou Shotcut : Fichier › Ouvrir, puis choisis ce fichier .mlt.";
const char* otioHint =
    "Dans DaVinci (18.5 ou plus) : Fichier › Importer › Timeline ; dans Kdenlive : Fichier › Importer › "
    "OpenTimelineIO. Puis choisis ce fichier .otio.";

const char* hintFor(ExportTarget target) {
    switch (target) {
        case ExportTarget::davinci: return davinciHint;
        case ExportTarget::mlt: return mltHint;
        case ExportTarget::otio: return otioHint;
        default: return premiereHint;
    }
}

// The drops as markers of a timeline that starts at `from` and lasts `length`.
std::vector<TimelineMarker> dropMarkers(const std::vector<Drop>& drops, double from, double length) {
    std::vector<TimelineMarker> out;
    for (const Drop& d : drops) {
        const double at = d.time - from;
        if (at < 0 || at > length) continue;
        out.push_back({at, "Drop " + std::to_string(d.id + 1) + " (force " +
                               std::to_string(static_cast<int>(std::lround(d.strength * 100))) + " %)"});
    }
    return out;
}

// Writes the whole file or says why not, in the system's words.
std::optional<std::string> writeFile(const fs::path& file, const std::string& bytes) {
    errno = 0;
    if (paths::writeAtomically(file, bytes)) return std::nullopt;
    return std::string(std::strerror(errno ? errno : EIO));
}

std::string parentName(const fs::path& file) { return file.parent_path().filename().string(); }

}  // namespace

std::string AppModel::exportBaseName() const {
    std::string name = folderName() + " - MONTAGE";
    if (inPoint() || outPoint()) {
        TimeRange r = edit_.exportRange();
        name += " " + Format::fileTime(r.start) + "-" + Format::fileTime(r.end);
    }
    if (format_ != OutputFormat::landscape) {
        std::string aspect = rawValue(format_);
        std::replace(aspect.begin(), aspect.end(), ':', 'x');
        name += " " + aspect;
    }
    return name;
}

std::optional<fs::path> AppModel::destination(const std::string& name, const std::string& ext,
                                              const std::string& message) {
    AppSettings& settings = services_.settings;
    if (!settings.askWhereToSave()) {
        // A fresh account may have no downloads folder yet: make it, as a
        // browser would; a failure shows when the file is written.
        std::error_code ec;
        fs::create_directories(settings.exportFolder(), ec);
        return settings.uniqueURL(name, ext);
    }
    return services_.dialogs.saveFile(message, name + "." + ext, ext, settings.exportFolder());
}

std::optional<std::string> AppModel::montageXML(const std::string& name) const {
    if (!result_) return std::nullopt;
    return PremiereExport::makeMontageXML(
        name, sources_, *result_, edit_.segments(), cameraSources(), edit_.exportRange(), levels_, muted_, audio_,
        effects_, [this](const Segment& plan) { return edit_.resolvedEffect(plan); }, format_, framing_,
        services_.settings.trackPerCamera(), pictureChoices());
}

void AppModel::exportMontage() {
    ExportTarget target = services_.settings.exportTarget();
    if (target == ExportTarget::video) exportVideo();
    else if (target == ExportTarget::dropClips) exportDropClips();
    else exportMontageXML(target);
}

void AppModel::exportMontageXML(ExportTarget target) {
    if (!result_) return;
    if (player_) player_->pause();
    const bool davinci = target == ExportTarget::davinci;
    auto url = destination(exportBaseName() + (davinci ? " (DaVinci)" : ""), timelineExtension(target), hintFor(target));
    if (!url) return;

    // Each graded camera's cube, beside the timeline; an MLT file grades
    // through them, so they are written first and it names only those that
    // exist.
    struct Cube {
        Uuid source;
        fs::path file;
        std::string text;
    };
    std::vector<Cube> cubes;
    if (services_.settings.exportLUTs()) {
        for (int index : cameraSources()) {
            const MediaSource& source = sources_[static_cast<size_t>(index)];
            auto it = grades_.find(source.id);
            if (it == grades_.end() || it->second == ColorGrade::neutral) continue;
            cubes.push_back({source.id, url->parent_path() / (url->stem().string() + " - " + source.name + ".cube"),
                             GradeMath::cubeLUT(it->second, GradeMath::kCubeSize).text(source.name)});
        }
    }
    std::vector<fs::path> written{*url};
    auto writeCubes = [&] {
        std::map<Uuid, fs::path> done;
        for (const Cube& c : cubes)
            // A cube that cannot be written is skipped; the timeline stands.
            if (paths::writeAtomically(c.file, c.text)) {
                written.push_back(c.file);
                done[c.source] = c.file;
            }
        return done;
    };

    std::string data;
    const std::string name = url->stem().string();
    const TimeRange r = edit_.exportRange();
    if (target == ExportTarget::mlt || target == ExportTarget::otio) {
        const auto timeline = PremiereExport::montageTimeline(
            sources_, *result_, edit_.segments(), cameraSources(), r, levels_, audio_, effects_,
            [this](const Segment& plan) { return edit_.resolvedEffect(plan); }, services_.settings.trackPerCamera(),
            pictureChoices());
        const auto markers = dropMarkers(drops(), r.start, r.end - r.start);
        if (target == ExportTarget::mlt) {
            TimelineLook look{format_, framing_, writeCubes(), effects_,
                              paths::plainNameLinks(MltExport::unnameable(sources_))};
            data = MltExport::write(name, sources_, timeline, muted_, look, markers);
        } else {
            data = OtioExport::write(name, sources_, timeline, muted_, markers);
        }
    } else {
        data = montageXML(name).value_or("");
    }
    if (auto error = writeFile(*url, data)) {
        std::error_code ignored;  // cubes for a timeline that does not exist
        for (size_t i = 1; i < written.size(); ++i) fs::remove(written[i], ignored);
        Log::write("ERREUR export : " + *error);
        errorMessage_ = "Impossible d'enregistrer le " + std::string(target == ExportTarget::mlt    ? "fichier MLT"
                                                                     : target == ExportTarget::otio ? "fichier .otio"
                                                                                                    : "XML") +
                        " : " + *error;
        notify(Field::errorMessage);
        return;
    }
    if (target != ExportTarget::mlt) writeCubes();
    Log::write(std::string("Export montage (") + rawValue(target) + ") : " + url->string());

    int plans = 0;
    for (const Segment& s : edit_.segments())
        if (s.start < r.end && s.end > r.start) ++plans;
    const size_t luts = written.size() - 1;
    std::string text = std::string(rawValue(target)) + " : " + std::to_string(plans) + " plan" + (plans > 1 ? "s" : "") +
                       ", " + Format::duration(r.end - r.start);
    if (luts >= 1) text += " + " + std::to_string(luts) + " LUT";
    setStatus(text + " · " + url->filename().string() + " dans " + parentName(*url));
    services_.viewer.showItems(written);
}

void AppModel::exportSynchro(ExportTarget target) {
    if (target != ExportTarget::mlt && target != ExportTarget::otio) {
        exportXML();
        return;
    }
    if (!result_) return;
    if (player_) player_->pause();
    auto url = destination(folderName() + " - SYNCHRO", timelineExtension(target), hintFor(target));
    if (!url) return;
    const auto timeline = PremiereExport::synchroTimeline(sources_, *result_, levels_, pictureChoices());
    const auto markers = dropMarkers(drops(), 0, timeline.duration);
    const std::string name = url->stem().string();
    TimelineLook plain;
    if (target == ExportTarget::mlt) plain.aliases = paths::plainNameLinks(MltExport::unnameable(sources_));
    std::string data = target == ExportTarget::mlt
                           ? MltExport::write(name, sources_, timeline, muted_, plain, markers)
                           : OtioExport::write(name, sources_, timeline, muted_, markers);
    if (auto error = writeFile(*url, data)) {
        Log::write("ERREUR export : " + *error);
        errorMessage_ = std::string("Impossible d'enregistrer le fichier ") +
                        (target == ExportTarget::mlt ? "MLT" : ".otio") + " : " + *error;
        notify(Field::errorMessage);
        return;
    }
    Log::write(std::string("Export synchro (") + rawValue(target) + ") : " + url->string());
    setStatus("Synchro exportée : " + url->filename().string() + " dans " + parentName(*url));
    services_.viewer.showItems({*url});
}

void AppModel::exportXML() {
    if (!result_) return;
    if (player_) player_->pause();
    auto url = destination(folderName() + " - SYNC", "xml", premiereHint);
    if (!url) return;
    std::string data = PremiereExport::makeXML(url->stem().string(), sources_, *result_, levels_, muted_, pictureChoices());
    if (auto error = writeFile(*url, data)) {
        Log::write("ERREUR export : " + *error);
        errorMessage_ = "Impossible d'enregistrer le XML : " + *error;
        notify(Field::errorMessage);
        return;
    }
    setStatus("XML exporté : " + url->filename().string() + " dans " + parentName(*url));
    services_.viewer.showItems({*url});
}

VideoJob AppModel::videoJob() const {
    VideoJob job;
    job.sources = sources_;
    job.result = *result_;
    job.segments = edit_.segments();
    job.cameraSources = cameraSources();
    job.range = edit_.exportRange();
    job.levels = levels_;
    job.muted = muted_;
    job.audio = audio_;
    job.effects = effects_;
    // Drawn here, on the main thread: the render only reads them.
    for (const Segment& s : job.segments) job.planEffects.push_back(edit_.resolvedEffect(s));
    job.format = format_;
    job.framing = framing_;
    job.looks = lookSnapshot(true);
    job.loudness = loudnessTarget(services_.settings.outputLoudness());
    job.rate = frameRate();
    return job;
}

void AppModel::exportVideo() {
    if (!result_) return;
    if (player_) player_->pause();
    const VideoCodec codec = services_.settings.videoCodec();
    auto url = destination(exportBaseName(), fileExtension(codec), "Vidéo finie du montage");
    if (!url) return;

    VideoJob job = videoJob();

    setStatus(std::string("Export vidéo en cours… (") + rawValue(codec) + ")");
    if (!services_.exporter) {
        exportFinished(*url, {VideoOutcome::Kind::failure, "cette version ne sait pas encore rendre la vidéo"});
        return;
    }
    std::weak_ptr<bool> alive = alive_;
    services_.exporter->start(std::move(job), codec, *url, true, [this, alive, url = *url](VideoOutcome outcome) {
        if (alive.lock()) exportFinished(url, std::move(outcome));
    });
}

void AppModel::exportFinished(const fs::path& url, VideoOutcome outcome) {
    switch (outcome.kind) {
    case VideoOutcome::Kind::success:
        setStatus("Vidéo exportée : " + url.filename().string() + " dans " + parentName(url));
        showToast("Vidéo prête : " + url.filename().string());
        services_.viewer.showItems({url});
        break;
    case VideoOutcome::Kind::cancelled: setStatus("Export vidéo annulé"); break;
    case VideoOutcome::Kind::failure:
        Log::write("ERREUR export vidéo : " + outcome.error);
        errorMessage_ = "L'export vidéo a échoué : " + outcome.error;
        notify(Field::errorMessage);
        setStatus("Export vidéo échoué");
        break;
    }
}

void AppModel::exportCube(int camera) {
    const std::string name = folderName() + " - " + cameraName(camera);
    auto url = services_.dialogs.saveFile("Exporter l'étalonnage en .cube", name + ".cube", "cube",
                                          services_.settings.exportFolder());
    if (!url) return;
    std::string text = GradeMath::cubeLUT(grade(camera), GradeMath::kCubeSize).text(cameraName(camera));
    if (auto error = writeFile(*url, text)) {
        showToast("Impossible d'enregistrer le .cube : " + *error);
        return;
    }
    showToast("LUT exportée : " + url->filename().string());
    services_.viewer.showItems({*url});
}

}  // namespace qv
