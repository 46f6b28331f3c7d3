// MulticamPlayer: every camera and every sound recorder of a synchronised
// set playing at once on the set's time line, so that a cut can be judged
// live.
//
// Engine. Each camera with a placed file has a decoder thread that runs a
// few frames ahead of the clock on its time line and hands finished preview
// frames (scaled to 1/division, through the look renderer when the camera
// has a look). One mixer thread reads the sound of every recorder and every
// camera along the time line, applies volumes and fade ramps to the sample
// and feeds one AudioOutput. There is one clock for all: the output's played
// position when any source has sound, the steady time source otherwise, so
// every angle follows the same time and nothing drifts. A start (play, or a
// seek while playing) holds the clock at its instant until every angle has
// its first frame (at most 0.15 s), then lets it run: all angles leave from
// one common instant. A frame whose time has passed before it could be shown
// is dropped, never shown late.
//
// Program and tiles. Eight cameras of real weight cost more to decode than
// two cores have. Once the owner names the angle on the program monitor,
// that angle decodes every picture, at the priority of the sound and the
// interface, and the others become tiles: at the lowest priority, under a
// budget of processor time that steers itself from the program angle's
// pictures ahead (TileBudget), each decodes at reduced cost (pictures
// nothing refers to skipped, no deblocking), jumps to the next key frame
// when it falls behind, down to key frames alone, and steps back up by
// itself (DecodePace). Naming another program angle moves the work to
// threads of the other priority at once (AngleWorker). At a seek a tile
// first shows the key frame before the target, then waits for the program
// angle's frame before decoding its own exact one. A tile catching up keeps
// its last picture.
//
// Threads. Every public call is for the owner's thread (the main thread).
// Worker threads never call into the owner: they only call `wakeup`, after
// which the owner calls `update()` to pull the new frames. `update()` also
// runs every 1/30 s while playing, from the scheduler when one is given.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/Uuid.h"
#include "edit/PlayerControl.h"
#include "edit/Scheduler.h"
#include "playback/Angle.h"
#include "playback/AngleWorker.h"
#include "playback/AudioOutput.h"
#include "playback/DecodePace.h"
#include "playback/TrackReader.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv {

class LookRenderer;

class MulticamPlayer : public PlayerControl {
public:
    struct Options {
        TrackOpener opener;
        std::unique_ptr<AudioOutput> output;  // null: a silent output on `now`
        TimeSource now = steadyTimeSource();
        Scheduler* scheduler = nullptr;        // null: the owner calls update() itself
        std::function<void()> wakeup;          // any thread; must only post update() to the owner
        int framesAhead = 8;                   // decoded frames kept ready per angle while playing
        int cores = 0;                         // the machine's cores; 0: as the system says
        std::function<double()> threadCpu;     // processor seconds of the calling thread; null: the system's
    };

    // What `configureVideo` last put on a camera's frames.
    using VideoState = qv::VideoState;

    // Where the time of the whole comes from.
    enum class ClockKind { none, sound, steady };

    struct Counters {
        int64_t shown = 0;    // frames that reached a monitor
        int64_t dropped = 0;  // frames whose time passed before they could be shown, or skipped to catch up
        std::vector<int64_t> shownByAngle;  // `shown`, angle by angle
    };

    MulticamPlayer(const std::vector<MediaSource>& sources, const SyncResult& result, Options options);
    ~MulticamPlayer() override;
    MulticamPlayer(const MulticamPlayer&) = delete;
    MulticamPlayer& operator=(const MulticamPlayer&) = delete;

    // PlayerControl
    bool isPlaying() const override { return playing_; }
    double currentTime() const override { return currentTime_; }
    const std::vector<AngleInfo>& angles() const override { return angleInfos_; }
    void pause() override;
    void seek(double time) override;

    // One per camera source, in the order of the sources.
    const std::vector<Angle>& cameraAngles() const { return angles_; }
    // The largest end of any placed file; 0 without any.
    double duration() const { return duration_; }

    // From the current time, or from 0 when within 0.05 s of the end.
    void play();
    // Pauses and stops the periodic update for good.
    void stop();

    // `levels` in dB by source, `muted` sources silent, `follow`: only this
    // camera's own sound is heard among the cameras (recorders always are).
    void applyVolumes(const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, double masterDb,
                      std::optional<int> follow);
    // The edit's plans cut to the export range (ascending) and that range: a
    // drifting file is read in step at the middle of each plan, picture and
    // the sound that follows the cut, and a sound heard whole at the middle
    // of its stretch inside the range, as the montage XML and the video cut
    // them. Applied at once when paused, from the next start when playing,
    // so a cut made live never holds the picture.
    void keepInStep(std::vector<TimeRange> plans, TimeRange range);
    // Fades of `seconds` at both edges of every stretch of sound; 0 clears them.
    void applyFades(double seconds);
    // Preview frames at 1/`division` of their size, through `renderer` for
    // the cameras it changes. A camera whose state is unchanged keeps its
    // frames; one that changes is decoded again from the current time.
    void configureVideo(int division, std::shared_ptr<LookRenderer> renderer);
    const std::map<int, VideoState>& installed() const { return installed_; }
    // When paused, decodes every angle's frame again, so a changed look shows.
    void refreshStill();

    // The angle on the program monitor, which decodes every picture; the
    // others become tiles that decode at reduced cost, each at its own pace
    // (DecodePace), and wait for it at every seek. Without one (the start)
    // every angle decodes every picture.
    void setProgramAngle(std::optional<int> angle);
    std::optional<int> programAngle() const { return programAngle_; }

    // Pulls the workers' new frames, moves `currentTime` along the clock and
    // pauses at the end of the time line. Owner's thread.
    void update();
    // Called after every change of what the interface shows.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

    // The frame an angle shows now; null where it shows nothing.
    std::shared_ptr<const PreviewFrame> shownFrame(int angle) const;
    Counters counters() const;  // owner's thread
    // What the tiles took of their processor budget, and its rate now.
    TileBudget::Figures tileBudget() const { return budget_->figures(); }

    ClockKind clockKind() const { return clockKind_; }
    // The source whose time line is the clock: the first camera that has a
    // picture anywhere, else the first recorder with a placed file.
    std::optional<Uuid> clockSource() const { return clockSource_; }
    // The volume each source with sound plays at, after applyVolumes.
    std::map<Uuid, double> volumes() const;

    // Blocks until every worker has done all it can at the present clock
    // time (frames decoded ahead, output filled). For tests and benchmarks
    // on virtual time.
    void settle();

private:
    struct SoundSource;
    struct Mixer;

    void start(double at);
    double clockTime();
    void restartWorkers(double at, bool playing);
    void holdTilesForProgram();
    void scheduleTick();
    void changed();
    // Hands each drifting reader its windows where they changed.
    void updateInStep();

    std::vector<Angle> angles_;
    std::vector<AngleInfo> angleInfos_;
    double duration_ = 0;
    double currentTime_ = 0;
    bool playing_ = false;
    ClockKind clockKind_ = ClockKind::none;
    std::optional<Uuid> clockSource_;
    std::map<int, VideoState> installed_;
    std::shared_ptr<LookRenderer> renderer_;

    TimeSource now_;
    Scheduler* scheduler_ = nullptr;
    Scheduler::TimerId tick_ = 0;
    bool stopped_ = false;
    std::function<void()> wakeup_;
    std::function<void()> onChange_;
    std::unique_ptr<AudioOutput> output_;

    // The clock while playing: it stands at `startAt_` until the common
    // start, then runs from there on the output or the steady time.
    double startAt_ = 0;
    bool prerolling_ = false;
    double prerollSince_ = 0;  // steady time of the start request
    double runningSince_ = 0;  // steady time of the common start

    std::unique_ptr<TileBudget> budget_;  // shared with the workers, which stop first
    std::vector<std::unique_ptr<AngleWorker>> video_;  // by angle; null without a picture
    std::optional<int> programAngle_;
    AngleOrder order_;  // shared with the workers
    bool programWarm_ = false;  // the program angle has had all its pictures ahead since the start
    std::vector<std::shared_ptr<const PreviewFrame>> shown_;
    int64_t shownCount_ = 0;
    std::vector<int64_t> shownByAngle_;
    int64_t droppedCount_ = 0;
    std::vector<SoundSource> sound_;
    std::unique_ptr<Mixer> mixer_;
    const int framesAhead_;

    // Reading drifting files in step: the windows last handed to each reader.
    std::vector<TimeRange> plans_;
    std::optional<TimeRange> range_;
    bool soundFollows_ = false;                       // the camera heard follows the cut
    std::vector<bool> videoDrifts_, soundDrifts_;     // by angle, by sound source
    std::vector<std::vector<TimeRange>> videoWindows_, soundWindows_;
};

}  // namespace qv
