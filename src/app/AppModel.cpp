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

// "23 nov. 2026 14:05" in the user's locale: abbreviated date, short time.
std::string localDateTime(Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&t, &local);
    char text[64];
    size_t n = std::strftime(text, sizeof text, "%e %b %Y %H:%M", &local);
    return trimmed(std::string(text, n));
}

std::optional<ProjectFile> readProject(const std::string& id) {
    auto text = paths::readFile(ProjectStore::directory() / (id + ".json"));
    if (!text) return std::nullopt;
    auto j = json::parse(*text);
    if (!j || !j->is_object()) return std::nullopt;
    return ProjectFile::fromJson(*j);
}

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
    projects_ = ProjectStore::list();
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
    if (player_) {
        player_->setTimeObserver({});
        player_->setFrameObserver({});
    }
}

// --- Signals and the autosave

void AppModel::notify(Field field) {
    if (onChange_) onChange_(field);
    // Any change rearms the debounce: the save comes 1.5 s after the last one.
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
    projects_ = ProjectStore::list();
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
    for (const ProjectFile& p : ProjectStore::list()) {
        if (!p.folder.empty() && paths::standardized(p.folder) == wanted) {
            openProject(p, thenSync);
            return;
        }
    }
    newProject(lastComponent(folder), folder, thenSync);
}

void AppModel::newProject(const std::string& name, const fs::path& folder, bool) {
    if (isWorking_) return;
    save();
    ProjectFile project;
    project.version = 1;
    project.folder = paths::standardized(folder).string();
    project.savedAt = services_.main.now();
    project.id = newProjectId();
    std::string given = trimmed(name);
    project.name = given.empty() ? lastComponent(folder) : given;
    ProjectStore::save(project);
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
    if (project.folder.empty() || !fs::is_directory(project.folder, ec)) {
        auto moved = askNewLocation(project);
        if (!moved) return;
        project.folder = paths::standardized(*moved).string();
        ProjectStore::save(project);
    }
    // The project that is leaving keeps its last changes.
    if (currentProjectId_ != project.id) save();
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
}

std::optional<std::string> AppModel::handKey(const MediaItem& item) const {
    if (!folder_) return std::nullopt;
    return HandPlacement::keyOf(item.url, *folder_);
}

void AppModel::closeProject() {
    if (isWorking_) return;
    save();
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
    auto project = readProject(id);
    if (!project) return;
    project->name = given;
    ProjectStore::save(*project);
    if (currentProjectId_ == id) {
        projectName_ = given;
        notify(Field::projectName);
    }
    refreshProjects();
}

void AppModel::duplicateProject(const std::string& id) {
    auto project = readProject(id);
    if (!project) return;
    project->name = project->name.value_or(lastComponent(project->folder)) + " (copie)";
    project->id = newProjectId();
    ProjectStore::save(*project);
    refreshProjects();
}

void AppModel::deleteProject(const std::string& id) {
    if (currentProjectId_ == id) closeProject();
    ProjectStore::remove(id);
    refreshProjects();
}

// --- Saving

std::string AppModel::snapshotBytes() const {
    ProjectFile project = makeProject();
    project.savedAt = Date{};
    return project.toText(2);
}

void AppModel::save() {
    // A project whose set is not synchronised, or waits for a new
    // synchronisation, is never written over.
    if (!folder_ || !currentProjectId_ || !result_ || isWorking_ || pendingProject_) return;
    // The file's own text, its date aside, is what is compared: the cuts,
    // which may be a million, are written to text once for both.
    ProjectFile project = makeProject();
    const std::string cuts = project.cutsText(2);
    const Date savedAt = project.savedAt;
    project.savedAt = Date{};
    std::string bytes = project.toText(2, &cuts);
    if (lastSavedSnapshot_ == bytes) return;
    project.savedAt = savedAt;
    ProjectStore::save(project, &cuts);
    lastSavedSnapshot_ = std::move(bytes);
    savedAt_ = project.savedAt;
    notify(Field::savedAt);
}

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
