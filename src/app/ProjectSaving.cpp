// The application model's hold on its project file: the lock that keeps a
// second window from writing over the first, the save that never lies (a
// failure is said in the footer and a toast and tried again, and the last
// saved state moves only when the file is really written), the guard
// against another program's version, and the project's mapping to and from
// the live state.
#include <algorithm>
#include <ctime>

#include "app/AppModel.h"
#include "diagnostics/Log.h"
#include "persistence/ProjectStore.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

// "23 nov. 2026 14:05" in the user's locale: abbreviated date, short time.
std::string localDateTime(Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&t, &local);
    char text[64];
    size_t n = std::strftime(text, sizeof text, "%e %b %Y %H:%M", &local);
    std::string out(text, n);
    return out.substr(std::min(out.find_first_not_of(' '), out.size()));  // %e pads single-digit days
}

}  // namespace

// --- The lock beside the project

bool AppModel::holdProject(const std::string& id) {
    if (projectLock_ && currentProjectId_ == id) return true;
    projectLock_.reset();
    readOnly_ = false;
    if (auto lockFile = ProjectStore::lockFileOf(id)) {
        std::error_code ec;
        fs::create_directories(lockFile->parent_path(), ec);
        projectLock_ = paths::FileLock::tryTake(*lockFile);
        // Only a holder that is really there makes the project read-only: a
        // folder where no lock can be made at all must not stop the saves.
        readOnly_ = !projectLock_ && paths::FileLock::isHeldElsewhere(*lockFile);
    }
    std::optional<std::string> problem;
    if (readOnly_)
        problem = "Lecture seule : ce projet est ouvert dans une autre fenêtre de Quorvel ; rien de ce que tu "
                  "changes ici n'y est enregistré.";
    setSaveProblem(problem);
    return !readOnly_;
}

void AppModel::releaseProject() {
    projectLock_.reset();
    readOnly_ = false;
    writtenStamp_.reset();
    if (retryTimer_) services_.main.cancel(retryTimer_);
    retryTimer_ = 0;
    setSaveProblem(std::nullopt);
}

bool AppModel::heldElsewhere(const std::string& id) const {
    if (currentProjectId_ == id) return readOnly_;
    auto lockFile = ProjectStore::lockFileOf(id);
    return lockFile && paths::FileLock::isHeldElsewhere(*lockFile);
}

void AppModel::setSaveProblem(std::optional<std::string> problem) {
    if (saveProblem_ == problem) return;
    saveProblem_ = std::move(problem);
    notify(Field::saveProblem);
}

// --- Saving

std::string AppModel::snapshotBytes() const {
    ProjectFile project = makeProject();
    project.savedAt = Date{};
    return project.toText(2);
}

bool AppModel::maySave() const {
    // A project whose set is not synchronised, or waits for a new
    // synchronisation, is never written over; nor one open elsewhere.
    return folder_ && currentProjectId_ && result_ && !isWorking_ && !pendingProject_ && !readOnly_;
}

bool AppModel::hasUnsavedChanges() const { return maySave() && lastSavedSnapshot_ != snapshotBytes(); }

Status AppModel::writeProject(const ProjectFile& project, const std::string* cutList) {
    auto file = ProjectStore::fileOf(project.id.value_or(""));
    if (!file) return Error{"identifiant de projet refusé"};
    // Changed on disk since our last write: another program's version, kept
    // aside rather than written over.
    std::error_code ec;
    if (writtenStamp_ && fs::is_regular_file(*file, ec)) {
        auto now = SyncCache::FileStamp::of(*file);
        if (now && !(*now == *writtenStamp_)) {
            if (auto kept = paths::keepAside(*file, "autre-version")) {
                Log::write("Projet changé par un autre programme : gardé sous " + kept->filename().string());
                showToast("Le projet avait été changé par un autre programme : cette version-là est gardée sous « " +
                          kept->filename().string() + " »");
            }
        }
    }
    Status written = ProjectStore::save(project, cutList);
    if (written) writtenStamp_ = SyncCache::FileStamp::of(*file);
    return written;
}

void AppModel::save() {
    if (!maySave()) return;
    // The file's own text, its date aside, is what is compared: the cuts,
    // which may be a million, are written to text once for both.
    ProjectFile project = makeProject();
    const std::string cuts = project.cutsText(2);
    const Date savedAt = project.savedAt;
    project.savedAt = Date{};
    std::string bytes = project.toText(2, &cuts);
    if (lastSavedSnapshot_ == bytes) return;
    project.savedAt = savedAt;
    Status written = writeProject(project, &cuts);
    if (!written) return saveFailed(written.error().message);
    // Only a file really written moves the snapshot: until then every
    // change stays pending and the next try writes it.
    lastSavedSnapshot_ = std::move(bytes);
    savedAt_ = project.savedAt;
    notify(Field::savedAt);
    if (retryTimer_) services_.main.cancel(retryTimer_);
    retryTimer_ = 0;
    if (saveProblem_) {
        Log::write("Sauvegarde rétablie");
        setSaveProblem(std::nullopt);
        showToast("Projet enregistré");
    }
}

void AppModel::saveFailed(const std::string& reason) {
    const std::string text = "Sauvegarde impossible : " + reason;
    // Said once per cause; the footer keeps it until a save succeeds.
    if (saveProblem_ != text) {
        Log::write("ERREUR sauvegarde : " + reason);
        setSaveProblem(text);
        showToast(text);
    }
    if (retryTimer_) services_.main.cancel(retryTimer_);
    retryTimer_ = services_.main.schedule(saveRetryDelay, [this] {
        retryTimer_ = 0;
        save();
    });
}

bool AppModel::saveOrAsk() {
    for (;;) {
        save();
        if (!hasUnsavedChanges()) return true;
        int answer = services_.dialogs.alert(
            "Sauvegarde impossible", saveProblem_.value_or("Sauvegarde impossible.") +
                                         "\nTes dernières modifications de « " + projectName_ +
                                         " » ne sont pas enregistrées.",
            {"Réessayer", "Fermer sans enregistrer", "Annuler"});
        if (answer == 1) {
            Log::write("Projet « " + projectName_ + " » fermé sans enregistrer ses dernières modifications");
            return true;
        }
        if (answer != 0) return false;
    }
}

bool AppModel::mayClose() { return saveOrAsk(); }

void AppModel::terminate() {
    save();
    if (!hasUnsavedChanges()) return;
    // Going away without a written project: a copy among the program's
    // own files, so that nothing is lost even then.
    const fs::path rescue = paths::stateHome() / "Quorvel" / "secours" /
                            (*currentProjectId_ + "-" + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(
                                                          services_.main.now().time_since_epoch()).count()) + ".json");
    std::error_code ec;
    fs::create_directories(rescue.parent_path(), ec);
    Status kept = paths::writeAtomically(rescue, makeProject().toJson().dump(2));
    Log::write(kept ? "Sauvegarde impossible à la fermeture : copie de secours dans " + rescue.string()
                    : "Sauvegarde impossible à la fermeture, copie de secours impossible : " + kept.error().message);
}

void AppModel::tellError(const std::string& text) {
    // Several at once (damaged files at start) share one alert, a line each.
    errorMessage_ = errorMessage_ ? *errorMessage_ + "\n" + text : text;
    notify(Field::errorMessage);
}

void AppModel::reportDamaged(const std::vector<ProjectStore::Damaged>& damaged) {
    for (const auto& d : damaged) {
        Log::write(d.message());
        tellError(d.message());
    }
}

// --- The project and the live state

ProjectFile AppModel::makeProject() const {
    ProjectFile p;
    p.version = 1;
    p.id = currentProjectId_;
    p.name = projectName_;
    p.folder = folder_ ? paths::standardized(*folder_).string() : std::string();
    p.savedAt = services_.main.now();
    p.cuts = cutData(edit_.cuts());
    p.levels = keyedByName(levels_, sources_);
    p.muted = sourceNames(muted_, sources_);
    p.audio = audio_;
    storeSettings(p, effects_, auto_, sources_);
    p.format = format_;
    storeCrops(p, framing_, sources_);
    p.grades = gradesByName(grades_, sources_);
    p.inPoint = edit_.inPoint();
    p.outPoint = edit_.outPoint();
    p.dropSensitivity = dropSensitivity_;
    p.dropPre = dropPre_;
    p.dropPost = dropPost_;
    p.previewDivision = previewDivision_;
    p.zoom = edit_.zoom();
    p.viewStart = edit_.viewStart();
    p.handPlacements = edit_.hand();
    for (const auto& [name, choice] : keyedByName(channels_, sources_))
        if (choice > 0) p.channels[name] = choice;
    storePictures(p);
    return p;
}

void AppModel::apply(const ProjectFile& project) {
    applyPictures(project);
    // First, for the cuts are kept by the length of the line it makes.
    edit_.setHand(HandPlacements(project.handPlacements.begin(), project.handPlacements.end()));
    edit_.setCuts(keptCuts(project.cuts, sources_, duration()));
    levels_ = mergedLevels(levels_, project.levels, sources_);
    notify(Field::levels);
    muted_ = sourceIds(project.muted, sources_);
    notify(Field::muted);
    channels_ = keyedById(project.channels, sources_);
    notify(Field::channels);
    if (automatic_ && !channels_.empty()) applyHand();
    setEffects(effectsOf(project, sources_));
    setAutoSettings(autoSettingsOf(project, sources_));
    format_ = project.format;
    notify(Field::format);
    framing_ = cropsOf(project, sources_);
    notify(Field::framing);
    setGrades(keyedById(project.grades, sources_));
    edit_.setMarks(project.inPoint, project.outPoint);
    setDropMargins(project.dropPre, project.dropPost);
    setDropSensitivity(project.dropSensitivity);
    setPreviewDivision(project.previewDivision);
    setAudio(project.audio);
    edit_.setZoom(project.zoom, 0, 0);
    edit_.setViewStart(project.viewStart);

    // The state just loaded is not a change to save.
    lastSavedSnapshot_ = snapshotBytes();
    savedAt_ = project.savedAt;
    notify(Field::savedAt);
    const size_t n = edit_.cuts().size();
    showToast("« " + projectName_ + " » rouvert (" + localDateTime(project.savedAt) + ") : " + std::to_string(n) +
              " coupe" + (n >= 2 ? "s" : "") + ", réglages et cadrages");
}

}  // namespace qv
