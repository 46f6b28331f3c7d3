// AppModel: the one live object of a running interface. It holds the open
// project's state, runs the road from a folder to a synchronised set and back
// to the project list, saves by itself, turns settings into orders to the
// player, and carries the export commands.
//
//   open(folder) -> newProject | openProject -> loadFolder
//        scan (worker) -> sources -> cache valid? install + apply
//                                  : synchronize (worker) -> install, cache, apply, save
//
// Main thread only. The two long jobs (scan, synchronisation) run on a worker
// thread holding copies; their results and every progress report come back
// through MainThread::post, and `isWorking` is the only guard against a
// second job. Every change of a published field is reported through the
// change callback and rearms the autosave: 1.5 s after the last change the
// project is written when its bytes differ from the last ones written. A
// save that fails is never taken for done: `saveProblem` says "Sauvegarde
// impossible : …", a toast too, it is tried again every 5 s, and closing
// asks first. An advisory lock beside the project keeps a second window (or
// program) on it read-only.
// Cuts, selection, export range, timeline view, toast and side panel live in
// the EditModel owned here; its changes are reported as this model's.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "analysis/CameraAnalysis.h"
#include "app/PictureJob.h"
#include "app/Ports.h"
#include "edit/AutoEditor.h"
#include "edit/EditModel.h"
#include "export/SetRate.h"
#include "export/OutputTarget.h"
#include "looks/ColorGrade.h"
#include "music/DropDetector.h"
#include "persistence/AppSettings.h"
#include "persistence/ProjectFile.h"
#include "persistence/ProjectStore.h"
#include "platform/Paths.h"
#include "sync/MediaScanner.h"

namespace qv {

class AppModel {
public:
    // The published fields, for observers.
    enum class Field {
        folder, sources, result, isWorking, progress, status, errorMessage, rightPanel, player, cuts,
        selectedSegment, audio, effects, grades, editedCamera, drops, dropSensitivity, format, framing,
        autoSettings, dropMargins, previewDivision, zoom, toast, viewStart, range, levels, muted,
        currentProjectId, projectName, projects, showNewProject, savedAt, prefill,
        clipDrops, clipsJob, saveProblem,
        channels,  // what is heard of each recorder
        pictureOffsets, frameRate, conform,
        pictures  // the picture analysis: its progress, then its stretches
    };

    static constexpr double autosaveDelay = 1.5;  // seconds after the last change
    static constexpr double looksDelay = 0.06;    // look rebuilds coalesce within this
    static constexpr double saveRetryDelay = 5;   // seconds between tries of a failed save
    static inline const std::string idleStatus = "Glisse le dossier d'un set pour commencer.";

    struct Services {
        MainThread& main;
        Dialogs& dialogs;
        FileViewer& viewer;
        AppSettings& settings;
        PlayerFactory makePlayer;                 // none: no player is made
        std::shared_ptr<VideoExporter> exporter;  // none: video export refused
        std::vector<std::string> arguments;       // the command line, for --demo and --tuto
    };

    explicit AppModel(Services services);
    // Waits for a running job (its result is dropped) and cancels timers.
    ~AppModel();
    AppModel(const AppModel&) = delete;
    AppModel& operator=(const AppModel&) = delete;

    void setOnChange(std::function<void(Field)> onChange) { onChange_ = std::move(onChange); }
    // Called when the player's shown pictures may have changed. It is no
    // change of the project: nothing is saved or published for it.
    void setOnFrames(std::function<void()> onFrames) { onFrames_ = std::move(onFrames); }

    // --- Published fields.
    const std::optional<std::filesystem::path>& folder() const { return folder_; }
    const std::vector<MediaSource>& sources() const { return sources_; }
    // The files and sub-folders of the open set that could not be read, with
    // their reasons, so the screens can name them.
    const std::vector<MediaScanner::Refusal>& refusals() const { return refusals_; }
    // The synchronisation with the user's hand placements laid over it.
    const std::optional<SyncResult>& result() const { return result_; }
    // The synchronisation as the sound alone placed the files.
    const std::optional<SyncResult>& automaticResult() const { return automatic_; }
    // The key of a file of the open set among the hand placements.
    std::optional<std::string> handKey(const MediaItem& item) const;
    bool isWorking() const { return isWorking_; }
    double progress() const { return progress_; }
    const std::string& status() const { return status_; }
    const std::optional<std::string>& errorMessage() const { return errorMessage_; }
    void clearError();
    RightPanel rightPanel() const { return edit_.rightPanel(); }
    void setRightPanel(RightPanel p) { edit_.setRightPanel(p); }
    AppPlayer* player() const { return player_.get(); }
    const std::vector<Cut>& cuts() const { return edit_.cuts(); }
    void setCuts(std::vector<Cut> cuts) { edit_.setCuts(std::move(cuts)); }
    std::optional<int> selectedSegment() const { return edit_.selectedSegment(); }
    const AudioSettings& audio() const { return audio_; }
    void setAudio(AudioSettings audio);
    const EffectSettings& effects() const { return effects_; }
    void setEffects(EffectSettings effects);
    const std::map<Uuid, ColorGrade>& grades() const { return grades_; }
    void setGrades(std::map<Uuid, ColorGrade> grades);
    int editedCamera() const { return editedCamera_; }
    void setEditedCamera(int camera);
    const std::vector<Drop>& drops() const { return edit_.drops(); }
    double dropSensitivity() const { return dropSensitivity_; }
    void setDropSensitivity(double s);
    OutputFormat format() const { return format_; }
    const std::map<Uuid, CameraFrame>& framing() const { return framing_; }
    const AutoSettings& autoSettings() const { return auto_; }
    void setAutoSettings(AutoSettings settings);
    double dropPre() const { return dropPre_; }
    double dropPost() const { return dropPost_; }
    void setDropMargins(double pre, double post);
    int previewDivision() const { return previewDivision_; }
    void setPreviewDivision(int division);
    double zoom() const { return edit_.zoom(); }
    const std::optional<std::string>& toast() const { return edit_.toast(); }
    double viewStart() const { return edit_.viewStart(); }
    std::optional<double> inPoint() const { return edit_.inPoint(); }
    std::optional<double> outPoint() const { return edit_.outPoint(); }
    const std::map<Uuid, double>& levels() const { return levels_; }
    void setLevel(const Uuid& source, double db);
    const std::set<Uuid>& muted() const { return muted_; }
    // What is heard of a recorder, "Canal : mélange / 1 / 2 / …": 0 its mix,
    // k its input k (sync/SoundChoice.h); the player, the render and the
    // exports follow. `channelChoices` is how many inputs it offers.
    int channel(const Uuid& source) const;
    int channelChoices(const Uuid& source) const;
    void setChannel(const Uuid& source, int choice);
    const std::optional<std::string>& currentProjectId() const { return currentProjectId_; }
    const std::string& projectName() const { return projectName_; }
    const std::vector<ProjectFile>& projects() const { return projects_; }
    void refreshProjects();
    bool showNewProject() const { return showNewProject_; }
    void setShowNewProject(bool show);
    const std::optional<Date>& savedAt() const { return savedAt_; }
    // Why the project is not being saved: "Sauvegarde impossible : {reason}"
    // until a save succeeds, or the read-only note; none while all is well.
    const std::optional<std::string>& saveProblem() const { return saveProblem_; }
    // Another window (or program) holds the project: nothing is written.
    bool readOnly() const { return readOnly_; }
    const std::string& prefillName() const { return prefillName_; }
    const std::optional<std::filesystem::path>& prefillFolder() const { return prefillFolder_; }
    void setPrefill(std::string name, std::optional<std::filesystem::path> folder);

    // --- The picture analysis of the set, made in the background after each
    // synchronisation (app/PictureJob.h).
    // Each camera's weak and unusable stretches, by camera number; empty
    // until the analysis ends.
    const analysis::CameraPictures& pictures() const { return pictures_; }
    // The share done while the analysis runs; nothing otherwise.
    std::optional<double> picturesProgress() const { return picturesProgress_; }
    // "Analyse des images : 40 %" while it runs ("… · après l'aperçu" while
    // the files left wait for their preview chunks), else empty.
    std::string picturesLine() const;
    // What the automatic editor is given: the stretches, unless the user
    // asked it not to look at the pictures.
    analysis::CameraPictures picturesForAuto(const AutoSettings& settings) const;

    // --- Plain state and derived values.
    AppSettings& settings() { return services_.settings; }
    EditModel& edit() { return edit_; }
    const EditModel& edit() const { return edit_; }
    const std::vector<double>& onsets() const { return onsets_; }
    const std::optional<ProjectFile>& pendingProject() const { return pendingProject_; }
    double duration() const { return edit_.duration(); }
    std::string folderName() const;
    int cameraCount() const;
    int soundCount() const;
    std::optional<Uuid> cameraId(int camera) const;
    std::vector<int> cameraSources() const;  // source index of each camera
    std::string cameraName(int camera) const { return edit_.cameraName(camera); }
    std::optional<std::string> sourceName(const Uuid& id) const;
    std::optional<Uuid> sourceId(const std::string& name) const;

    // --- The workflow.
    void chooseFolder();
    void open(const std::filesystem::path& folder, bool thenSync);
    void newProject(const std::string& name, const std::filesystem::path& folder, bool thenSync);
    void openProject(const ProjectFile& project, bool thenSync);
    std::optional<std::filesystem::path> askNewLocation(const ProjectFile& project);
    void loadFolder(const std::filesystem::path& folder, std::optional<ProjectFile> project, bool thenSync);
    void resetSync();
    void dropPlayer();
    void synchronize();
    void install(SyncResult result, const std::vector<MediaSource>& sources);
    void closeProject();
    void resetProject();
    void renameProject(const std::string& id, const std::string& name);
    void duplicateProject(const std::string& id);
    void deleteProject(const std::string& id);
    void save();
    // The window asks before closing: false when the user keeps it open
    // (a save failed and was not given up).
    bool mayClose();
    // The program is going away: one last save, and when even that fails a
    // copy of the project in $XDG_STATE_HOME/Quorvel/secours.
    void terminate();

    ProjectFile makeProject() const;
    void apply(const ProjectFile& project);

    // --- Editing helpers of the model.
    void runAuto(bool newDraw);
    void computeDrops();
    void setAudioMode(AudioSettings::Mode mode);
    void toggleMute(const Uuid& source);
    void applyAudio();
    void refreshFollow();
    void scheduleLooks();
    void applyLooks();
    void showToast(std::string text) { edit_.showToast(std::move(text)); }
    void togglePanel(RightPanel panel) { edit_.togglePanel(panel); }
    void undo() { edit_.undo(); }
    void checkPreviousCrash();

    // --- The timeline's view.
    void setZoom(double z, double keeping, double at) { edit_.setZoom(z, keeping, at); }
    void zoomIn() { edit_.zoomIn(); }
    void zoomOut() { edit_.zoomOut(); }
    void revealPlayhead() { edit_.revealPlayhead(); }
    void followPlayhead(double t) { edit_.followPlayhead(t); }
    void clampView() { edit_.clampView(); }

    // --- Panel operations.
    void setFormat(OutputFormat format);
    void setFraming(const CameraFrame& frame, int camera);
    void resetCrop(int camera);
    PixelSize cameraSize(int camera) const;
    bool cropCanMove(int camera, bool vertical) const;
    std::string outputSizeLabel() const;
    LookRenderer::Snapshot lookSnapshot(bool enabled) const;
    void toggleZoomCamera(int camera);
    void toggleShakeCamera(int camera);
    void toggleEffectCamera(LookKind kind, int camera);
    void toggleAutoCamera(int camera);
    void reshuffleEffects();
    ColorGrade grade(int camera) const;
    void setGrade(const ColorGrade& grade, int camera);
    void copyGradeToAll(int fromCamera);
    void importLUT(int camera);
    void importPresets();
    void exportCube(int camera);

    // --- Export commands.
    std::string exportBaseName() const;
    std::optional<std::filesystem::path> destination(const std::string& name, const std::string& ext,
                                                     const std::string& message);
    std::optional<std::string> montageXML(const std::string& name) const;
    void exportMontage();
    void exportMontageXML(ExportTarget target);
    void exportXML();
    // The synchronised timeline in the form of `target`: MLT or
    // OpenTimelineIO, the xmeml of exportXML for the other targets.
    void exportSynchro(ExportTarget target);
    void exportVideo();
    VideoExporter* videoExporter() const { return services_.exporter.get(); }
    // What no export may write over: the set, its project, cache and LUTs.
    OutputTarget::Protected protectedFiles() const;

    // --- Clips of the drops: one finished video per drop, or per ticked
    // drop, in the export folder, one after the other on the exporter.
    const std::set<int>& clipDrops() const { return clipDrops_; }  // ticked drop ids; none: all
    void toggleClipDrop(int dropId);
    void exportDropClips();
    void cancelDropClips();
    bool isExportingClips() const { return clipsRun_ != nullptr; }
    double clipsProgress() const;            // of the whole job, 0 to 1
    // "Clips des drops : 2 / 5 · 34 %"; the status line shows it, a tick
    // of `clipsTick` behind, while the clips are made.
    std::string clipsProgressLine() const;
    static constexpr double clipsTick = 0.25;  // seconds

    // --- The cameras' pictures (PictureCommands.cpp).
    // Seconds each camera's picture is shown later than its sound, by source
    // id; the player, the video and every timeline file follow it.
    static constexpr int maxOffsetFrames = 10;
    const std::map<Uuid, double>& pictureOffsets() const { return pictureOffsets_; }
    double pictureOffset(int camera) const;
    // Held within ±maxOffsetFrames frames of the camera's own rate.
    void setPictureOffset(int camera, double seconds);
    // What makes up for a camera `metres` from the speakers, whose sound
    // comes that much late at 343 m/s.
    static double offsetForDistance(double metres);
    // Nominal rate of the camera's first placed picture; 25 without one.
    double cameraFrameRate(int camera) const;
    // The set's rate: the user's choice, else the most frequent.
    PremiereExport::SequenceRate frameRate() const;
    const std::optional<PremiereExport::SequenceRate>& frameRateChoice() const { return frameRateChoice_; }
    void setFrameRateChoice(std::optional<PremiereExport::SequenceRate> rate);
    bool dropFrame() const { return dropFrame_; }
    void setDropFrame(bool drop);
    std::vector<PremiereExport::RateShare> rateShares() const;
    // "Cam 3/clip 2.mp4" for each placed camera file whose rate varies.
    std::vector<std::string> variableRateFiles() const;
    // The rate and the constant-rate copies every export writes with.
    PremiereExport::PictureChoices pictureChoices() const;
    // Makes the missing constant-rate copies in the background.
    void conformVariableRate();
    bool isConforming() const;
    // "Copies à cadence fixe : 40 %" while they are made, else empty.
    std::string conformStatus() const;
    // How many variable-rate files have their copy.
    int conformedCount() const;

    // The demonstration scenes of the command line.
    bool hasArgument(const std::string& flag) const;
    void applyDemoArguments();
    void applyTutoScene();

private:
    // A seed from the system's generator, in 1 ... 2^63 - 1: never 0.
    static uint64_t freshSeed();
    // The automatic editor's cameras by number: those it may use, and the
    // weight of each (100 where none is set).
    void autoCameras(const AutoSettings& settings, std::set<int>& allowed, std::map<int, double>& weights) const;
    void notify(Field field);
    void onEditChange(EditModel::Change change);
    void setStatus(std::string text);
    void setWorking(bool working);
    void setProgress(double p);
    void startJob(std::function<void()> job);
    void finishJob();
    // Runs `action` on the main thread unless the model has gone.
    void postBack(std::function<void()> action);
    void scanned(std::vector<MediaSource> sources, std::optional<ProjectFile> project, bool thenSync);
    std::string snapshotBytes() const;
    // The project file: taking and leaving its lock, writing it, and what
    // happens when that fails.
    bool holdProject(const std::string& id);  // false: read-only
    void releaseProject();
    bool heldElsewhere(const std::string& id) const;
    bool refusedElsewhere(const std::string& id);  // toasts when another holds it
    void setSaveProblem(std::optional<std::string> problem);
    bool maySave() const;
    bool hasUnsavedChanges() const;
    Status writeProject(const ProjectFile& project, const std::string* cutList = nullptr);
    void saveFailed(const std::string& reason);
    // Saves; when that fails, asks whether to retry, leave without the last
    // changes, or stay. False when the user stays.
    bool saveOrAsk();
    void reportDamaged(const std::vector<ProjectStore::Damaged>& damaged);
    // Adds a line to the error message the window shows.
    void tellError(const std::string& text);
    // Refuses an export target that OutputTarget refuses, saying "{failure} :
    // {why}" as the error message; true when refused.
    bool refusedOutput(const std::filesystem::path& target, const std::string& failure);
    std::optional<double> writeFailure(const std::filesystem::path& file, const std::string& bytes,
                                       std::string& error) const;
    void exportFinished(const std::filesystem::path& url, VideoOutcome outcome);
    VideoJob videoJob() const;
    struct ClipsRun;
    bool chooseClipFiles(ClipsRun& run);
    void startNextClip();
    void tickClips();
    void clipFinished(VideoOutcome outcome);
    void applyDemoScene();
    std::set<Uuid> allCameras() const;
    void toggleIn(std::set<Uuid>& set, int camera);
    void updateEditContext();
    // Hands the player the plans, so drifting files play as they export.
    void applyInStep();
    void startPlayer(const std::vector<MediaSource>& sources);
    // Lays the hand placements over the automatic result, with a new player.
    void applyHand();
    // The automatic result with what the user laid over it: the files
    // placed by hand, each recorder's channel choice, the cameras' picture
    // offsets. The one result the player, the timeline and the exports read.
    SyncResult placedResult() const;
    // The project's picture settings; a new player when the offsets change.
    void applyPictures(const ProjectFile& project);
    void storePictures(ProjectFile& project) const;
    void resetPictures();
    void conformChanged();

    void startAnalysis();
    void stopAnalysis();
    // The stretches again from the measures, after the files moved.
    void refreshAnalysis();

    Services services_;
    EditModel edit_;
    std::function<void(Field)> onChange_;
    std::function<void()> onFrames_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::thread worker_;
    // Raised when the model goes, so a synchronisation under way stops
    // instead of holding the program's exit until it ends.
    std::shared_ptr<std::atomic<bool>> stopSync_ = std::make_shared<std::atomic<bool>>(false);

    std::optional<std::filesystem::path> folder_;
    std::vector<MediaSource> sources_;
    std::vector<MediaScanner::Refusal> refusals_;
    std::optional<SyncResult> result_;
    std::optional<SyncResult> automatic_;
    bool isWorking_ = false;
    double progress_ = 0;
    std::string status_ = idleStatus;
    std::optional<std::string> errorMessage_;
    std::shared_ptr<AppPlayer> player_;
    AudioSettings audio_;
    EffectSettings effects_;
    std::map<Uuid, ColorGrade> grades_;
    int editedCamera_ = 0;
    double dropSensitivity_ = 0.5;
    OutputFormat format_ = OutputFormat::landscape;
    std::map<Uuid, CameraFrame> framing_;
    AutoSettings auto_;
    double dropPre_ = 15, dropPost_ = 30;
    int previewDivision_ = 1;
    std::map<Uuid, double> levels_;
    std::set<Uuid> muted_;
    std::map<Uuid, int> channels_;  // by source; absent is 0
    std::optional<std::string> currentProjectId_;
    std::string projectName_;
    std::vector<ProjectFile> projects_;
    bool showNewProject_ = false;
    std::optional<Date> savedAt_;
    std::optional<std::string> saveProblem_;
    std::string prefillName_;
    std::optional<std::filesystem::path> prefillFolder_;

    std::shared_ptr<LookRenderer> previewRenderer_ = std::make_shared<LookRenderer>();
    std::vector<double> onsets_;
    int followCamera_ = 0;
    double appliedFade_ = -1;
    std::optional<ProjectFile> pendingProject_;
    std::optional<std::string> lastSavedSnapshot_;
    Scheduler::TimerId autosaveTimer_ = 0;
    Scheduler::TimerId looksTimer_ = 0;
    Scheduler::TimerId retryTimer_ = 0;
    std::unique_ptr<paths::FileLock> projectLock_;
    bool readOnly_ = false;
    // The project file as last written by us: a different one on disk is
    // another program's version, kept aside before ours is written.
    std::optional<SyncCache::FileStamp> writtenStamp_;
    bool demoPending_ = false;
    bool tutoPending_ = false;  // --tuto, applied once the first player stands
    std::set<int> clipDrops_;
    std::shared_ptr<ClipsRun> clipsRun_;
    Scheduler::TimerId clipsTimer_ = 0;

    std::map<Uuid, double> pictureOffsets_;
    std::optional<PremiereExport::SequenceRate> frameRateChoice_;
    bool dropFrame_ = false;
    struct Conform;
    std::shared_ptr<Conform> conform_;

    // The picture analysis.
    analysis::MeasuresByPath pictureMeasures_;
    analysis::CameraPictures pictures_;
    std::optional<double> picturesProgress_;
    bool picturesWaiting_ = false;  // the files left wait for their preview chunks
    int picturesRun_ = 0;  // which run's posts are still wanted
    std::unique_ptr<PictureJob> pictureJob_;
};

}  // namespace qv
