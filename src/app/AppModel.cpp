#include "app/AppModel.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <random>

#include "base/Format.h"
#include "base/Text.h"
#include "diagnostics/Log.h"
#include "platform/Paths.h"
#include "looks/LookLibrary.h"
#include "persistence/ProjectStore.h"
#include "sync/FolderSync.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv {

namespace {

std::string trimmed(const std::string& s) {
    const char* blanks = " \t\r\n\v\f";
    size_t a = s.find_first_not_of(blanks);
    if (a == std::string::npos) return {};
    size_t b = s.find_last_not_of(blanks);
    return s.substr(a, b - a + 1);
}

std::string lastComponent(const fs::path& folder) {
    fs::path p = folder;
    if (!p.has_filename()) p = p.parent_path();
    return p.filename().string();
}

std::string newProjectId() { return "projet-" + Uuid::make().lowerText(); }

}  // namespace

uint64_t AppModel::freshSeed() {
    static std::random_device device;
    std::uniform_int_distribution<uint64_t> pick(0, (uint64_t{1} << 63) - 2);
    return pick(device) + 1;
}

AppModel::AppModel(Services services) : services_(std::move(services)), edit_(services_.main) {
    edit_.setOnChange([this](EditModel::Change c) { onEditChange(c); });
    edit_.setSnapEnabled(services_.settings.snapEnabled());
    edit_.setDropMargins(dropPre_, dropPost_);
    std::vector<ProjectStore::Damaged> damaged;
    projects_ = ProjectStore::list(&damaged);
    reportDamaged(damaged);
    if (const std::string& damage = services_.settings.damage(); !damage.empty()) {
        Log::write(damage);
        tellError(damage);
    }
    applyDemoArguments();
}

AppModel::~AppModel() {
    *alive_ = false;
    alive_.reset();
    stopSync_->store(true);
    if (worker_.joinable()) worker_.join();
    pictureJob_.reset();
    if (autosaveTimer_) services_.main.cancel(autosaveTimer_);
    if (looksTimer_) services_.main.cancel(looksTimer_);
    if (clipsTimer_) services_.main.cancel(clipsTimer_);
    if (retryTimer_) services_.main.cancel(retryTimer_);
    if (player_) {
        player_->setTimeObserver({});
        player_->setFrameObserver({});
    }
}

// --- Signals and the autosave

void AppModel::notify(Field field) {
    if (onChange_) onChange_(field);
    // Reports of work in the background change nothing the project keeps: the
    // analysis reports ten times a second and would hold the save back for as
    // long as it runs.
    if (field == Field::pictures || field == Field::progress || field == Field::clipsJob || field == Field::conform)
        return;
    // Any other change rearms the debounce: the save comes 1.5 s after the last one.
    if (autosaveTimer_) services_.main.cancel(autosaveTimer_);
    autosaveTimer_ = services_.main.schedule(autosaveDelay, [this] {
        autosaveTimer_ = 0;
        save();
    });
}

void AppModel::onEditChange(EditModel::Change change) {
    switch (change) {
    case EditModel::Change::cuts:
        notify(Field::cuts);
        refreshFollow();
        scheduleLooks();
        applyInStep();
        break;
    case EditModel::Change::selection: notify(Field::selectedSegment); break;
    case EditModel::Change::range:
        notify(Field::range);
        applyInStep();
        break;
    case EditModel::Change::toast: notify(Field::toast); break;
    case EditModel::Change::view:
        notify(Field::zoom);
        notify(Field::viewStart);
        break;
    case EditModel::Change::rightPanel: notify(Field::rightPanel); break;
    case EditModel::Change::context: break;
    case EditModel::Change::hand: applyHand(); break;
    }
}

void AppModel::applyInStep() {
    if (!player_) return;
    // The plans as the exports cut them to the range.
    const TimeRange range = edit_.exportRange();
    std::vector<TimeRange> plans;
    plans.reserve(edit_.segments().size());
    for (const Segment& s : edit_.segments()) {
        const double a = std::max(s.start, range.start), b = std::min(s.end, range.end);
        if (b - a >= 0.001) plans.push_back({a, b});
    }
    player_->keepInStep(std::move(plans), range);
}

void AppModel::setStatus(std::string text) {
    status_ = std::move(text);
    notify(Field::status);
}

void AppModel::setWorking(bool working) {
    isWorking_ = working;
    notify(Field::isWorking);
}

void AppModel::setProgress(double p) {
    progress_ = p;
    notify(Field::progress);
}

void AppModel::clearError() {
    errorMessage_.reset();
    notify(Field::errorMessage);
}

void AppModel::postBack(std::function<void()> action) {
    std::weak_ptr<bool> alive = alive_;
    services_.main.post([alive, action = std::move(action)] {
        if (alive.lock()) action();
    });
}

void AppModel::startJob(std::function<void()> job) {
    if (worker_.joinable()) worker_.join();
    worker_ = std::thread(std::move(job));
}

// --- Simple fields with their hooks

void AppModel::setAudio(AudioSettings audio) {
    audio_ = audio;
    notify(Field::audio);
    applyAudio();
}

void AppModel::setEffects(EffectSettings effects) {
    effects_ = std::move(effects);
    edit_.setEffects(effects_);
    notify(Field::effects);
    scheduleLooks();
}

void AppModel::setGrades(std::map<Uuid, ColorGrade> grades) {
    grades_ = std::move(grades);
    notify(Field::grades);
    scheduleLooks();
}

void AppModel::setEditedCamera(int camera) {
    editedCamera_ = camera;
    notify(Field::editedCamera);
}

void AppModel::setDropSensitivity(double s) {
    dropSensitivity_ = s;
    notify(Field::dropSensitivity);
    computeDrops();
}

void AppModel::setAutoSettings(AutoSettings settings) {
    auto_ = std::move(settings);
    notify(Field::autoSettings);
}

void AppModel::setDropMargins(double pre, double post) {
    dropPre_ = pre;
    dropPost_ = post;
    edit_.setDropMargins(pre, post);
    notify(Field::dropMargins);
}

void AppModel::setPreviewDivision(int division) {
    previewDivision_ = division;
    notify(Field::previewDivision);
    applyLooks();
}

void AppModel::setLevel(const Uuid& source, double db) {
    levels_[source] = db;
    notify(Field::levels);
    applyAudio();
}

void AppModel::refreshProjects() {
    std::vector<ProjectStore::Damaged> damaged;
    projects_ = ProjectStore::list(&damaged);
    reportDamaged(damaged);
    notify(Field::projects);
}

void AppModel::setShowNewProject(bool show) {
    showNewProject_ = show;
    notify(Field::showNewProject);
}

void AppModel::setPrefill(std::string name, std::optional<fs::path> folder) {
    prefillName_ = std::move(name);
    prefillFolder_ = std::move(folder);
    notify(Field::prefill);
}

// --- Derived values

std::string AppModel::folderName() const { return folder_ ? lastComponent(*folder_) : std::string(); }

int AppModel::cameraCount() const { return static_cast<int>(cameraSources().size()); }

int AppModel::soundCount() const {
    return static_cast<int>(std::count_if(sources_.begin(), sources_.end(),
                                          [](const MediaSource& s) { return s.kind == SourceKind::audio; }));
}

std::vector<int> AppModel::cameraSources() const {
    std::vector<int> cameras;
    for (size_t i = 0; i < sources_.size(); ++i)
        if (sources_[i].kind == SourceKind::camera) cameras.push_back(static_cast<int>(i));
    return cameras;
}

std::optional<Uuid> AppModel::cameraId(int camera) const {
    auto cameras = cameraSources();
    if (camera < 0 || static_cast<size_t>(camera) >= cameras.size()) return std::nullopt;
    return sources_[static_cast<size_t>(cameras[static_cast<size_t>(camera)])].id;
}

std::optional<std::string> AppModel::sourceName(const Uuid& id) const { return qv::sourceName(id, sources_); }
std::optional<Uuid> AppModel::sourceId(const std::string& name) const { return qv::sourceId(name, sources_); }

std::set<Uuid> AppModel::allCameras() const {
    std::set<Uuid> ids;
    for (const auto& s : sources_)
        if (s.kind == SourceKind::camera) ids.insert(s.id);
    return ids;
}

void AppModel::updateEditContext() {
    std::vector<Uuid> ids;
    for (int i : cameraSources()) ids.push_back(sources_[static_cast<size_t>(i)].id);
    edit_.setCameraIds(std::move(ids));
}

// --- The road from a folder

void AppModel::chooseFolder() {
    auto folder = services_.dialogs.chooseFolder("Choisis le dossier du set (avec Cam 1, Cam 2, Son 1…)");
    if (folder) open(*folder, false);
}

void AppModel::open(const fs::path& folder, bool thenSync) {
    // A folder given a second time reopens its newest project.
    const fs::path wanted = paths::standardized(folder);
    std::vector<ProjectStore::Damaged> damaged;
    const std::vector<ProjectFile> projects = ProjectStore::list(&damaged);
    // A project of this set that no longer reads is named before a new one starts.
    reportDamaged(damaged);
    for (const ProjectFile& p : projects) {
        if (!p.folder.empty() && paths::standardized(p.folder) == wanted) {
            openProject(p, thenSync);
            return;
        }
    }
    newProject(lastComponent(folder), folder, thenSync);
}

void AppModel::newProject(const std::string& name, const fs::path& folder, bool) {
    if (isWorking_ || !saveOrAsk()) return;
    ProjectFile project;
    project.version = 1;
    project.folder = paths::standardized(folder).string();
    project.savedAt = services_.main.now();
    project.id = newProjectId();
    std::string given = trimmed(name);
    project.name = given.empty() ? lastComponent(folder) : given;
    releaseProject();
    holdProject(*project.id);
    // A failure here is said and tried again by the autosave, as any other.
    if (Status written = writeProject(project); !written) saveFailed(written.error().message);
    currentProjectId_ = project.id;
    projectName_ = *project.name;
    notify(Field::currentProjectId);
    notify(Field::projectName);
    // A new project always synchronises.
    loadFolder(folder, std::nullopt, true);
    Log::write("Nouveau projet « " + projectName_ + " » sur " + project.folder);
}

void AppModel::openProject(const ProjectFile& given, bool thenSync) {
    if (isWorking_ || !given.id) return;
    ProjectFile project = given;
    std::error_code ec;
    std::optional<fs::path> moved;
    if (project.folder.empty() || !fs::is_directory(project.folder, ec)) {
        moved = askNewLocation(project);
        if (!moved) return;
    }
    // The project that is leaving keeps its last changes.
    if (currentProjectId_ != project.id) {
        if (!saveOrAsk()) return;
        releaseProject();
    }
    const bool writable = holdProject(*project.id);
    if (auto file = ProjectStore::fileOf(*project.id)) writtenStamp_ = SyncCache::FileStamp::of(*file);
    if (moved) {
        project.folder = paths::standardized(*moved).string();
        if (writable)
            if (Status written = writeProject(project); !written) saveFailed(written.error().message);
    }
    if (!writable) {
        const std::string name = project.name.value_or(lastComponent(project.folder));
        Log::write("Projet « " + name + " » ouvert en lecture seule : déjà ouvert ailleurs");
        tellError("« " + name + " » est déjà ouvert dans une autre fenêtre de Quorvel : il s'ouvre ici en lecture "
                  "seule, et rien de ce que tu y changes n'est enregistré.");
    }
    currentProjectId_ = project.id;
    projectName_ = project.name && !project.name->empty() ? *project.name : lastComponent(project.folder);
    notify(Field::currentProjectId);
    notify(Field::projectName);
    loadFolder(project.folder, project, thenSync);
    Log::write("Ouverture du projet « " + projectName_ + " »");
}

std::optional<fs::path> AppModel::askNewLocation(const ProjectFile& project) {
    int answer = services_.dialogs.alert(
        "Dossier du set introuvable",
        "« " + project.folder +
            " » n'existe plus (disque débranché ou dossier déplacé). Branche le disque, ou montre à Quorvel où est "
            "le dossier maintenant.",
        {"Choisir le dossier…", "Annuler"});
    if (answer != 0) return std::nullopt;
    std::string name = project.name.value_or(lastComponent(project.folder));
    return services_.dialogs.chooseFolder("Où est maintenant le dossier du set « " + name + " » ?");
}

void AppModel::loadFolder(const fs::path& folder, std::optional<ProjectFile> project, bool thenSync) {
    if (isWorking_) return;
    folder_ = folder;
    notify(Field::folder);
    sources_.clear();
    refusals_.clear();
    notify(Field::sources);
    resetSync();
    setWorking(true);
    setProgress(0);
    setStatus("Lecture du dossier…");

    std::weak_ptr<bool> alive = alive_;
    MainThread& main = services_.main;
    startJob([this, alive, &main, folder, project = std::move(project), thenSync]() mutable {
        std::vector<MediaScanner::Refusal> refused;
        std::vector<MediaScanner::SetAside> setAside;
        auto sources = MediaScanner::scan(folder, &refused, &setAside);
        for (const auto& file : setAside) Log::write(file.message());
        main.post([this, alive, sources = std::move(sources), refused = std::move(refused),
                   project = std::move(project), thenSync]() mutable {
            if (!alive.lock()) return;
            refusals_ = std::move(refused);
            scanned(std::move(sources), std::move(project), thenSync);
        });
    });
}

void AppModel::scanned(std::vector<MediaSource> sources, std::optional<ProjectFile> project, bool thenSync) {
    sources_ = std::move(sources);
    updateEditContext();
    notify(Field::sources);
    setWorking(false);

    levels_.clear();
    for (const auto& s : sources_) levels_[s.id] = 0;
    notify(Field::levels);
    muted_.clear();
    notify(Field::muted);
    channels_.clear();
    notify(Field::channels);
    EffectSettings effects = effects_;
    effects.zoomCameras = allCameras();
    effects.shakeCameras.clear();
    setEffects(std::move(effects));
    AutoSettings autoSettings = auto_;
    autoSettings.cameras = allCameras();
    autoSettings.weights.clear();
    setAutoSettings(std::move(autoSettings));
    framing_.clear();
    notify(Field::framing);
    resetPictures();
    setGrades({});
    setEditedCamera(0);
    setAudioMode(soundCount() > 0 ? AudioSettings::Mode::table : AudioSettings::Mode::camera);

    std::vector<std::string> unreadable;
    size_t files = 0;
    for (const auto& s : sources_) {
        files += s.items.size();
        for (const auto& u : s.unreadable) unreadable.push_back(u.filename().string());
    }
    if (!unreadable.empty()) {
        std::string names;
        for (const auto& n : unreadable) names += (names.empty() ? "" : ", ") + n;
        Log::write("Fichiers illisibles : " + names);
    }
    for (const std::string& line : MediaScanner::colourNotes(sources_)) Log::write(line);
    setStatus(sources_.empty() ? "Aucun rush trouvé dans ce dossier."
                               : std::to_string(sources_.size()) + " sources, " + std::to_string(files) +
                                     " fichiers. Clique sur Synchroniser.");
    lastSavedSnapshot_.reset();
    savedAt_.reset();
    notify(Field::savedAt);

    std::optional<SyncResult> stored;
    if (auto cache = ProjectStore::loadSync(*folder_)) stored = ProjectStore::restore(*cache, sources_);
    if (stored) {
        install(std::move(*stored), sources_);
        if (project) apply(*project);
        applyTutoScene();
    } else if (!project) {
        if (!sources_.empty() && thenSync) synchronize();
    } else if (!sources_.empty()) {
        pendingProject_ = std::move(project);
        setStatus("Les rushes ont changé depuis la dernière fois : nouvelle synchro…");
        synchronize();
    }
}

// The player stops and goes; nothing it observed hears from it again.
void AppModel::dropPlayer() {
    if (player_) {
        player_->setTimeObserver({});
        player_->setFrameObserver({});
        player_->stop();
    }
    player_.reset();
    edit_.setPlayer(nullptr);
}

void AppModel::resetSync() {
    conform_.reset();
    dropPlayer();
    stopAnalysis();
    appliedFade_ = -1;
    result_.reset();
    automatic_.reset();
    edit_.setResult(std::nullopt);
    edit_.clearEdit();
    edit_.setZoom(1, 0, 0);
    edit_.setViewStart(0);
    edit_.setDrops({});
    notify(Field::player);
    notify(Field::result);
    notify(Field::drops);
}

void AppModel::synchronize() {
    if (isWorking_ || sources_.empty() || !folder_) return;
    // A status set just before (a changed set) stays while the job starts.
    std::string keep = status_;
    resetSync();
    setWorking(true);
    setProgress(0);
    if (status_ != keep) setStatus(keep);

    std::weak_ptr<bool> alive = alive_;
    MainThread& main = services_.main;
    startJob([this, alive, &main, sources = sources_, folder = *folder_, stop = stopSync_] {
        auto report = [this, alive, &main](double fraction, const std::string& text) {
            main.post([this, alive, fraction, text] {
                if (!alive.lock()) return;
                setProgress(fraction);
                setStatus(text);
            });
        };
        FolderSync::Options options = FolderSync::defaultOptions();
        options.stop = stop.get();
        // Stamped before reading (stats every file: off the main thread).
        const ProjectStore::Stamps before = ProjectStore::stamps(sources);
        SyncResult result = FolderSync::run(sources, report, options);
        if (*stop) return;  // the model is going: nothing to install
        SyncCache cache = ProjectStore::cache(result, before);
        main.post([this, alive, result = std::move(result), cache = std::move(cache), folder]() mutable {
            if (!alive.lock()) return;
            install(std::move(result), sources_);
            ProjectStore::saveSync(cache, folder);
            if (pendingProject_) {
                ProjectFile project = std::move(*pendingProject_);
                pendingProject_.reset();
                apply(project);
            }
            // The guided first steps wait for the first player.
            applyTutoScene();
            save();
        });
    });
}

void AppModel::install(SyncResult result, const std::vector<MediaSource>& sources) {
    const int placed = static_cast<int>(result.placed.size());
    const int unsynced = static_cast<int>(result.unsynced.size());
    const double length = result.duration();
    Log::write("Synchro : " + std::to_string(placed) + " calés, " + std::to_string(unsynced) + " non calés, durée " +
               std::to_string(static_cast<long long>(std::llround(length))) + " s");
    automatic_ = std::move(result);
    result_ = placedResult();
    edit_.setResult(result_);
    notify(Field::result);
    setWorking(false);
    setProgress(1);
    std::string text = std::to_string(placed) + " fichiers calés sur " + Format::duration(length);
    if (unsynced > 0) text += " · " + std::to_string(unsynced) + (unsynced == 1 ? " non calé" : " non calés");
    setStatus(text);

    if (placed > 0) startPlayer(sources);
    computeDrops();
    onsets_ = DropDetector::onsets(*result_, sources_);
    if (demoPending_ && player_) applyDemoScene();
    if (placed > 0) startAnalysis();
}

void AppModel::startPlayer(const std::vector<MediaSource>& sources) {
    if (!services_.makePlayer || !result_) return;
    player_ = services_.makePlayer(sources, *result_, services_.main);
    edit_.setPlayer(player_);
    if (player_) {
        player_->setTimeObserver([this](double) { refreshFollow(); });
        player_->setFrameObserver([this] {
            if (onFrames_) onFrames_();
        });
        notify(Field::player);
        applyAudio();
        applyLooks();
        applyInStep();
    }
}

void AppModel::applyHand() {
    if (!automatic_ || !folder_) return;
    // The player is made for one result: a new one takes over at the same time.
    const double at = player_ ? player_->currentTime() : 0;
    const bool playing = player_ && player_->isPlaying();
    dropPlayer();
    notify(Field::player);
    appliedFade_ = -1;
    result_ = placedResult();
    edit_.setResult(result_);
    notify(Field::result);
    if (!result_->placed.empty()) startPlayer(sources_);
    if (player_) {
        player_->seek(at);
        if (playing) player_->play();
    }
    computeDrops();
    onsets_ = DropDetector::onsets(*result_, sources_);
    // The files moved on the time line: their stretches move with them.
    refreshAnalysis();
    // A run under way may wait on the previews of the player just replaced.
    if (picturesProgress_) startAnalysis();
}

std::optional<std::string> AppModel::handKey(const MediaItem& item) const {
    if (!folder_) return std::nullopt;
    return HandPlacement::keyOf(item.url, *folder_);
}

void AppModel::closeProject() {
    if (isWorking_ || !saveOrAsk()) return;
    releaseProject();
    resetSync();
    currentProjectId_.reset();
    projectName_.clear();
    folder_.reset();
    sources_.clear();
    refusals_.clear();
    updateEditContext();
    notify(Field::currentProjectId);
    notify(Field::projectName);
    notify(Field::folder);
    notify(Field::sources);
    setStatus(idleStatus);
    refreshProjects();
}

void AppModel::resetProject() {
    if (!folder_) return;
    int answer = services_.dialogs.alert("Repartir de zéro sur « " + projectName_ + " » ?",
                                         "Les coupes, les réglages du son, les effets, les cadrages et la plage "
                                         "d'export de ce projet seront effacés. Les rushes ne sont pas touchés.",
                                         {"Effacer", "Annuler"});
    if (answer != 0) return;
    lastSavedSnapshot_.reset();
    loadFolder(*folder_, std::nullopt, true);
}

void AppModel::renameProject(const std::string& id, const std::string& name) {
    std::string given = trimmed(name);
    if (given.empty()) return;
    if (refusedElsewhere(id)) return;
    if (currentProjectId_ == id) {
        // The open project carries its name to the file by its own save.
        projectName_ = given;
        notify(Field::projectName);
        save();
    } else {
        auto project = ProjectStore::read(id);
        if (!project) return;
        project->name = given;
        if (Status written = ProjectStore::save(*project); !written)
            showToast("Impossible de renommer le projet : " + written.error().message);
    }
    refreshProjects();
}

void AppModel::duplicateProject(const std::string& id) {
    auto project = ProjectStore::read(id);
    if (!project) return;
    project->name = project->name.value_or(lastComponent(project->folder)) + " (copie)";
    project->id = newProjectId();
    if (Status written = ProjectStore::save(*project); !written)
        showToast("Impossible de dupliquer le projet : " + written.error().message);
    refreshProjects();
}

void AppModel::deleteProject(const std::string& id) {
    if (refusedElsewhere(id)) return;
    if (currentProjectId_ == id) {
        closeProject();
        if (currentProjectId_) return;  // the user kept it open
    }
    ProjectStore::remove(id);
    refreshProjects();
}

bool AppModel::refusedElsewhere(const std::string& id) {
    if (!heldElsewhere(id)) return false;
    showToast("Ce projet est ouvert dans une autre fenêtre de Quorvel : ferme-le là-bas d'abord.");
    return true;
}

// --- Editing helpers

void AppModel::autoCameras(const AutoSettings& settings, std::set<int>& allowed, std::map<int, double>& weights) const {
    const auto cameras = cameraSources();
    for (size_t c = 0; c < cameras.size(); ++c) {
        const Uuid& id = sources_[static_cast<size_t>(cameras[c])].id;
        if (settings.cameras.count(id)) allowed.insert(static_cast<int>(c));
        auto w = settings.weights.find(id);
        weights[static_cast<int>(c)] = w == settings.weights.end() ? 100.0 : w->second;
    }
}

void AppModel::runAuto(bool newDraw) {
    if (!player_ || !result_) return;
    AutoSettings settings = auto_;
    if (newDraw) {
        settings.seed = freshSeed();
        setAutoSettings(settings);
    }
    std::set<int> allowed;
    std::map<int, double> weights;
    autoCameras(settings, allowed, weights);
    if (allowed.empty()) {
        showToast("Choisis au moins une caméra pour le mode auto");
        return;
    }
    const TimeRange r = edit_.exportRange();
    std::vector<std::vector<TimeRange>> ranges;
    for (const auto& angle : player_->angles()) ranges.push_back(angle.ranges);
    std::vector<Cut> generated =
        AutoEditor::generate(r, ranges, allowed, edit_.drops(), onsets_, settings, weights, picturesForAuto(settings));
    if (generated.empty()) {
        showToast("Aucune caméra choisie ne filme sur cette plage");
        return;
    }
    edit_.record();
    const int kept = edit_.activeCamera(r.end);
    std::vector<Cut> cuts;
    for (const Cut& c : edit_.cuts())
        if (c.time < r.start - 0.001 || c.time > r.end + 0.001) cuts.push_back(c);
    const size_t plans = generated.size();
    cuts.insert(cuts.end(), generated.begin(), generated.end());
    // The edit after the range goes on as it was.
    bool cutAtEnd = std::any_of(cuts.begin(), cuts.end(), [&](const Cut& c) { return std::abs(c.time - r.end) < 0.01; });
    if (r.end < duration() - 0.05 && !cutAtEnd) {
        Cut back;
        back.time = r.end;
        back.camera = kept;
        back.effect = PlanEffect::automatic;
        cuts.push_back(back);
    }
    edit_.setCuts(std::move(cuts));
    edit_.select(std::nullopt);
    showToast("Mode auto : " + std::to_string(plans) + " plans de " + Format::timecode(r.start) + " à " +
              Format::timecode(r.end) + " · Ctrl+Z pour annuler");
}

void AppModel::computeDrops() {
    edit_.setDrops(result_ ? DropDetector::detect(*result_, sources_, dropSensitivity_) : std::vector<Drop>{});
    clipDrops_.clear();  // ids are positions in the list: a new list has new ones
    notify(Field::drops);
}

void AppModel::setAudioMode(AudioSettings::Mode mode) {
    audio_.mode = mode;
    for (const auto& s : sources_) {
        bool mute = s.kind == SourceKind::camera ? mode == AudioSettings::Mode::table
                                                 : mode == AudioSettings::Mode::camera;
        if (mute) muted_.insert(s.id);
        else muted_.erase(s.id);
    }
    notify(Field::audio);
    notify(Field::muted);
    applyAudio();
}

void AppModel::toggleMute(const Uuid& source) {
    if (!muted_.erase(source)) muted_.insert(source);
    notify(Field::muted);
    applyAudio();
}

void AppModel::applyAudio() {
    if (!player_) return;
    std::optional<int> follow;
    if (audio_.mode == AudioSettings::Mode::camera) follow = followCamera_;
    player_->applyVolumes(levels_, muted_, audio_.masterDb, follow);
    if (audio_.rushFade != appliedFade_) {
        player_->applyFades(audio_.rushFade);
        appliedFade_ = audio_.rushFade;
    }
}

void AppModel::refreshFollow() {
    if (!player_) return;
    int c = edit_.activeCamera(player_->currentTime());
    player_->setProgramAngle(c);
    if (c == followCamera_) return;
    followCamera_ = c;
    if (audio_.mode == AudioSettings::Mode::camera) applyAudio();
}

void AppModel::scheduleLooks() {
    if (looksTimer_) services_.main.cancel(looksTimer_);
    looksTimer_ = services_.main.schedule(looksDelay, [this] {
        looksTimer_ = 0;
        applyLooks();
    });
}

void AppModel::applyLooks() {
    if (!player_) return;
    previewRenderer_->update(lookSnapshot(services_.settings.previewLooks()));
    player_->configureVideo(previewDivision_, previewRenderer_);
}

void AppModel::checkPreviousCrash() {
    auto report = Log::crashReportSinceLastLaunch();
    if (!report) return;
    Log::write("Fermeture brutale détectée : " + report->filename().string());
    int answer = services_.dialogs.alert(
        "Quorvel s'est fermé brutalement la dernière fois",
        "Ton travail était enregistré automatiquement : rouvre ton projet pour le retrouver. Si ça se reproduit, "
        "envoie le rapport à Ondrel pour qu'il corrige.",
        {"OK", "Voir le rapport"});
    if (answer == 1) services_.viewer.showItems({*report});
}

}  // namespace qv
