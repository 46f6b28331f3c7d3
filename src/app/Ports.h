// Ports: what the application model takes from outside, each a small
// interface so that the toolkit, the real player and the real video render
// plug in, and tests drive time, dialogs and threads themselves.
//
//   MainThread   timers on the main thread plus `post` from any thread
//   Dialogs      alerts, folder and save panels (answers, never toolkit types)
//   FileViewer   shows files in the desktop's file manager, opens a file
//   AppPlayer    the multi-angle player seen from the model (orders only)
//   VideoExporter a finished-video render with progress, cancel and outcome
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/Uuid.h"
#include "edit/AudioSettings.h"
#include "edit/Cut.h"
#include "edit/PlayerControl.h"
#include "edit/Scheduler.h"
#include "effects/EffectSettings.h"
#include "effects/MotionFX.h"
#include "effects/Reframe.h"
#include "looks/LookRenderer.h"
#include "persistence/AppSettings.h"
#include "playback/TrackReader.h"
#include "render/VideoRender.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv {

class ProxyOutlook;

// The main thread's timers, and a hand-off from worker threads: `post` may be
// called from any thread and runs its action on the main thread soon, in the
// order of the calls. `now` is the wall clock the model stamps saves with.
class MainThread : public Scheduler {
public:
    virtual void post(std::function<void()> action) = 0;
    virtual Date now() const { return std::chrono::system_clock::now(); }
};

class Dialogs {
public:
    virtual ~Dialogs() = default;
    // An alert; the index of the button pressed, or -1 when it was closed.
    virtual int alert(const std::string& title, const std::string& text, const std::vector<std::string>& buttons) = 0;
    // A panel that takes one folder and no file.
    virtual std::optional<std::filesystem::path> chooseFolder(const std::string& message) = 0;
    // A panel that takes one existing file with one of `extensions` (no dot).
    virtual std::optional<std::filesystem::path> chooseFile(const std::string& message,
                                                            const std::vector<std::string>& extensions) = 0;
    // A save panel starting in `folder` with `suggested` as name.
    virtual std::optional<std::filesystem::path> saveFile(const std::string& message, const std::string& suggested,
                                                          const std::string& extension,
                                                          const std::filesystem::path& folder) = 0;
};

class FileViewer {
public:
    virtual ~FileViewer() = default;
    // Shows the files selected in the file manager; a courtesy, may do nothing.
    virtual void showItems(const std::vector<std::filesystem::path>& files) = 0;
    // Opens a file with the desktop's default application.
    virtual void open(const std::filesystem::path& file) = 0;
};

// The player as the application model drives it. Main thread only.
class AppPlayer : public PlayerControl {
public:
    // Level per source in dB, muted sources, the master gain, and in the
    // sound mode that follows the picture the camera whose sound is heard.
    virtual void applyVolumes(const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, double masterDb,
                              std::optional<int> follow) = 0;
    // Fade in and out at the ends of each rush, seconds.
    virtual void applyFades(double seconds) = 0;
    // The edit's plans cut to the export range, and that range: drifting
    // files are read in step as the exports read them.
    virtual void keepInStep(std::vector<TimeRange> /*plans*/, TimeRange /*range*/) {}
    // Preview size divisor and the renderer the preview frames go through.
    virtual void configureVideo(int division, std::shared_ptr<LookRenderer> renderer) = 0;
    // Called on the main thread with each new time of the clock.
    virtual void setTimeObserver(std::function<void(double)> observer) = 0;
    virtual void play() = 0;
    // Stops everything; the player is dropped right after.
    virtual void stop() = 0;
    // Size of a camera's picture, when known.
    virtual std::optional<PixelSize> pictureSize(int camera) const = 0;
    // The picture a camera's monitor shows now; null where it shows none
    // (a player without pictures never has one).
    virtual std::shared_ptr<const PreviewFrame> shownFrame(int /*camera*/) const { return nullptr; }
    // Called on the main thread when the shown pictures or the time may have
    // changed, for repaints only (a player without pictures never calls it).
    virtual void setFrameObserver(std::function<void()> /*observer*/) {}
    // The camera on the program monitor, which must show every picture; the
    // others may show fewer (a player without pictures ignores it).
    virtual void setProgramAngle(int /*camera*/) {}

    // The light preview copies of heavy cameras, made in the background from
    // the play head outward: a French line while they are made (empty once
    // done, or where none are needed), the share made (0 to 1), and the files
    // that could not get one and play from their originals.
    struct PreviewWork {
        std::string line;
        double share = 1;
        int failedFiles = 0;
    };
    virtual PreviewWork previewWork() const { return {}; }
    // Which preview chunks are still to come, to be asked from any thread;
    // none when this player makes none.
    virtual std::shared_ptr<const ProxyOutlook> previewOutlook() const { return nullptr; }
};

using PlayerFactory =
    std::function<std::shared_ptr<AppPlayer>(const std::vector<MediaSource>&, const SyncResult&, MainThread&)>;

// Everything a finished video is made from; effects are resolved already.
using VideoJob = VideoRender::Job;

struct VideoOutcome {
    enum class Kind { success, cancelled, failure };
    Kind kind = Kind::success;
    std::string error;  // French, for a failure
};

class VideoExporter {
public:
    virtual ~VideoExporter() = default;
    // Renders `job` to `to`; `done` runs once, on the main thread. With
    // `retry`, a failed first attempt is tried once more before failing.
    virtual void start(VideoJob job, VideoCodec codec, const std::filesystem::path& to, bool retry,
                       std::function<void(VideoOutcome)> done) = 0;
    virtual void cancel() = 0;
    virtual bool isRunning() const = 0;
    virtual double progress() const = 0;  // 0 to 1
};

}  // namespace qv
