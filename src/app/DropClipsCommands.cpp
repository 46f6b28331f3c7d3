// The clips of the drops, as the application model runs them: one render
// job per drop (or per ticked drop), handed to the video exporter one after
// the other. The exporter retries a failed clip once and leaves nothing of
// a clip that fails or is cancelled; the clips already made stay.
#include <system_error>

#include "app/AppModel.h"
#include "diagnostics/Log.h"
#include "render/DropClips.h"

namespace fs = std::filesystem;

namespace qv {

struct AppModel::ClipsRun {
    std::vector<DropClips::Clip> clips;
    size_t next = 0;  // the clip being made
    fs::path folder;
    VideoCodec codec = VideoCodec::h264;
    std::vector<fs::path> written;

    std::string extension() const { return fileExtension(codec); }
};

void AppModel::toggleClipDrop(int dropId) {
    if (!clipDrops_.erase(dropId)) clipDrops_.insert(dropId);
    notify(Field::clipDrops);
}

double AppModel::clipsProgress() const {
    if (!clipsRun_ || clipsRun_->clips.empty()) return 0;
    const double current = services_.exporter ? services_.exporter->progress() : 0;
    return std::clamp((static_cast<double>(clipsRun_->next) + current) / static_cast<double>(clipsRun_->clips.size()),
                      0.0, 1.0);
}

std::string AppModel::clipsProgressLine() const {
    if (!clipsRun_) return {};
    const int total = static_cast<int>(clipsRun_->clips.size());
    return DropClips::progressLine(std::min(static_cast<int>(clipsRun_->next) + 1, total), total, clipsProgress());
}

void AppModel::exportDropClips() {
    if (!result_) return;
    if (drops().empty()) {
        showToast("Aucun drop : aucun clip");
        return;
    }
    if (clipsRun_ || (services_.exporter && services_.exporter->isRunning())) {
        showToast("Un export vidéo est déjà en cours.");
        return;
    }
    if (player_) player_->pause();

    DropClips::Request request;
    request.base = videoJob();
    // Clips are for phones: vertical unless the crop panel asks another shape.
    if (request.base.format == OutputFormat::landscape) request.base.format = OutputFormat::portrait;
    request.cuts = cuts();
    request.drops = drops();
    for (int id : clipDrops_)
        if (std::any_of(request.drops.begin(), request.drops.end(), [&](const Drop& d) { return d.id == id; }))
            request.only.insert(id);
    request.pre = dropPre_;
    request.post = dropPost_;
    request.onsets = onsets_;
    request.autoSettings = auto_;
    autoCameras(auto_, request.allowed, request.weights);
    request.pictures = picturesForAuto(auto_);
    request.effectFor = [this](const Segment& plan) { return edit_.resolvedEffect(plan); };
    request.setName = folderName();
    const VideoCodec codec = services_.settings.videoCodec();
    request.extension = fileExtension(codec);

    auto run = std::make_shared<ClipsRun>();
    run->clips = DropClips::plan(request);
    run->codec = codec;
    if (run->clips.empty()) {
        showToast("Aucun drop : aucun clip");
        return;
    }
    if (!services_.exporter) {
        errorMessage_ = "Les clips des drops ont échoué : cette version ne sait pas encore rendre la vidéo";
        notify(Field::errorMessage);
        return;
    }
    if (!chooseClipFiles(*run)) return;
    if (Status usable = OutputTarget::prepareFolder(run->folder, protectedFiles()); !usable) {
        Log::write("ERREUR export clips : " + usable.error().message);
        errorMessage_ = "Les clips des drops ont échoué : " + usable.error().message;
        notify(Field::errorMessage);
        return;
    }
    Log::write("Clips des drops : " + std::to_string(run->clips.size()) + " vers " + run->folder.string());
    clipsRun_ = std::move(run);
    notify(Field::clipsJob);
    startNextClip();
}

// Where the clips go and under which names, as every export decides it:
// without a dialog the export folder, and a name already taken there gets
// " 2", " 3"…; with one the user picks the folder and says whether clips
// of the same names are replaced. False when the user cancels.
bool AppModel::chooseClipFiles(ClipsRun& run) {
    AppSettings& settings = services_.settings;
    const bool ask = settings.askWhereToSave();
    if (ask) {
        auto chosen = services_.dialogs.chooseFolder("Où enregistrer les clips des drops ?");
        if (!chosen) return false;
        run.folder = *chosen;
    } else {
        run.folder = settings.exportFolder();
    }
    // The folder is made (or refused) by the caller once it is chosen.
    std::error_code ec;
    size_t taken = 0;
    for (const DropClips::Clip& clip : run.clips) taken += fs::exists(fs::symlink_status(run.folder / clip.fileName, ec));
    bool keepBoth = !ask;
    if (ask && taken > 0) {
        const std::string n = std::to_string(taken);
        const int answer = services_.dialogs.alert(
            taken == 1 ? "Un clip du même nom existe déjà" : n + " clips du même nom existent déjà",
            "Le dossier « " + run.folder.filename().string() + " » contient déjà " +
                (taken == 1 ? "un clip de ce set portant le même nom." : n + " clips de ce set portant les mêmes noms."),
            {"Remplacer", "Garder les deux", "Annuler"});
        if (answer != 0 && answer != 1) return false;
        keepBoth = answer == 1;
    }
    if (keepBoth)
        for (DropClips::Clip& clip : run.clips) {
            const fs::path name = clip.fileName;
            clip.fileName = AppSettings::uniqueIn(run.folder, name.stem().string(), run.extension()).filename().string();
        }
    return true;
}

void AppModel::startNextClip() {
    const DropClips::Clip& clip = clipsRun_->clips[clipsRun_->next];
    setStatus(clipsProgressLine());
    // A file in the way that the project reads stops the run there.
    if (Status usable = OutputTarget::check(clipsRun_->folder / clip.fileName, protectedFiles()); !usable)
        return clipFinished({VideoOutcome::Kind::failure, usable.error().message});
    tickClips();
    std::weak_ptr<bool> alive = alive_;
    services_.exporter->start(clip.job, clipsRun_->codec, clipsRun_->folder / clip.fileName, true,
                              [this, alive](VideoOutcome outcome) {
                                  if (alive.lock()) clipFinished(std::move(outcome));
                              });
}

// The footer follows the job as the drops panel does, from the same line.
// It ticks outside the project's state: the autosave is not pushed back.
void AppModel::tickClips() {
    if (clipsTimer_) services_.main.cancel(clipsTimer_);
    clipsTimer_ = services_.main.schedule(clipsTick, [this] {
        clipsTimer_ = 0;
        if (!clipsRun_) return;
        std::string line = clipsProgressLine();
        if (line != status_) {
            status_ = std::move(line);
            if (onChange_) onChange_(Field::status);
        }
        tickClips();
    });
}

void AppModel::clipFinished(VideoOutcome outcome) {
    if (!clipsRun_) return;
    if (clipsTimer_) services_.main.cancel(clipsTimer_);
    clipsTimer_ = 0;
    ClipsRun& run = *clipsRun_;
    const size_t total = run.clips.size();
    const std::string made = std::to_string(run.written.size()) + " sur " + std::to_string(total);
    switch (outcome.kind) {
    case VideoOutcome::Kind::success:
        run.written.push_back(run.folder / run.clips[run.next].fileName);
        if (++run.next < total) return startNextClip();
        setStatus("Clips des drops : " + std::to_string(total) + " fichier" + (total > 1 ? "s" : "") + " dans " +
                  run.folder.filename().string());
        showToast("Clips prêts : " + std::to_string(total));
        services_.viewer.showItems(run.written);
        break;
    case VideoOutcome::Kind::cancelled: setStatus("Clips des drops annulés : " + made + " faits"); break;
    case VideoOutcome::Kind::failure:
        Log::write("ERREUR export clips : drop " + std::to_string(run.clips[run.next].number) + " : " + outcome.error);
        errorMessage_ = "Le clip du drop " + std::to_string(run.clips[run.next].number) + " a échoué : " + outcome.error +
                        " (" + made + " faits, gardés dans " + run.folder.filename().string() + ")";
        notify(Field::errorMessage);
        setStatus("Clips des drops échoués : " + made + " faits");
        break;
    }
    clipsRun_.reset();
    notify(Field::clipsJob);
}

void AppModel::cancelDropClips() {
    if (clipsRun_ && services_.exporter) services_.exporter->cancel();
}

}  // namespace qv
