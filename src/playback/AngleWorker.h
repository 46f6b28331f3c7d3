// AngleWorker: one camera's decoding in the multicam player, and the order
// in which the angles work after a request.
//
// The worker seeks its reader at every new request (generation), then
// decodes in order: while playing until `ahead` frames wait, while paused
// only the frame at the requested time.
//
// Program and tiles. The program angle decodes every picture on the
// worker's front thread, at the priority of the sound and the interface:
// at a request with its decoder spread over several cores, so a seek lands
// soon, then from the next key frame on one, so that while it plays it
// never takes more than a core from the tiles. A tile (another angle is on
// program) decodes on the back thread, at the lowest priority the system
// gives without privileges, one decoder thread so its processor time is its
// own, and while playing only as far as the tiles' budget allows
// (TileBudget): it shows the key frame before the time first (one cheap
// picture), waits for the program angle's first frame, then decodes at the
// cost its own pace chooses (DecodePace) or the exact frame while paused. A
// priority cannot be raised back without privileges, so a switch of the
// program angle moves the work to the thread of the other priority: at
// once, between two pictures, the reader handed over as it stands. A tile
// that takes over from the front thread opens its decoder again on its own
// thread and decodes on from the key frame before the clock.
//
// Threads. The owner (the player, on its thread) writes the fields under
// `lock` and wakes the worker; the worker only calls `wakeup` after a first
// picture, never into the owner. Only one of the two threads works at a
// time (`busy`), so the reader and the working state below are never shared.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "edit/TimeRange.h"
#include "playback/AudioOutput.h"
#include "playback/DecodePace.h"
#include "playback/TileBudget.h"
#include "playback/TrackReader.h"

namespace qv {

class LookRenderer;

// What `configureVideo` last put on a camera's frames.
struct VideoState {
    int division = 1;
    bool looks = false;
    bool operator==(const VideoState&) const = default;
};

// The order of work after a request, shared by every angle's worker: the
// program angle first, with both cores, then every tile's key frame, then
// the tiles' own frames. Polled: the threads do not know one another.
struct AngleOrder {
    std::atomic<bool> programPending{false};  // the program angle has not its first frame yet
    std::atomic<double> programLateAt{-1e300};  // clock when the program angle last came late
    std::atomic<int> glancesDue{0};  // tiles still to show their key frame after a request
};

struct AngleWorker {
    enum class Lane { front, back };

    // Set before start().
    int camera = 0;
    int fileWidth = 0, fileHeight = 0;
    int ahead = 8;
    int frontThreads = 2;  // decoder threads of the front lane
    std::function<void()> wakeup;
    std::unique_ptr<VideoTrackReader> reader;  // used by the working thread only
    AngleOrder* order = nullptr;               // the player's
    TileBudget* budget = nullptr;              // the player's
    TimeSource now;                            // the budget's time
    std::function<double()> threadCpu;         // processor seconds of the calling thread

    std::mutex lock;
    std::condition_variable work;     // a request, room in the queue, or the other lane done
    std::condition_variable settled;  // the working thread has nothing left to do
    // -- All the following fields are guarded by lock.
    uint64_t generation = 0;
    double target = 0;
    bool playing = false;
    bool quit = false;
    VideoState state;
    std::shared_ptr<LookRenderer> renderer;  // set only while `state.looks`
    std::optional<std::vector<TimeRange>> windows;  // for the reader at the next request
    std::deque<std::shared_ptr<const PreviewFrame>> queue;
    bool ready = false;  // a picture for `target` is queued (a tile's key frame counts), or there is none
    bool exact = false;  // the frame-exact picture for `target` is queued, or there is none
    bool ended = false;  // nothing more to read in this generation
    uint64_t poke = 0, pokeSeen = 0;
    int64_t skipped = 0;  // frames passed over to catch up with the clock
    bool program = false;  // on the program monitor: every picture, at full cost
    bool tile = false;     // another angle is on program: decoded at reduced cost
    Lane lane = Lane::front;  // the thread that should work: the back one for a tile
    bool busy = false;        // a thread works outside the lock
    std::optional<double> resync;  // became the program angle: decode every picture again from here
    DecodePace::Level level = DecodePace::Level::light;  // the pace's, for the owner to read
    // The clock as the owner last saw it while playing: a decoder that
    // falls behind jumps to it instead of decoding late frames to the end.
    std::atomic<double> playhead{-1e300};
    // The request last made and the one being worked on: a decode on its
    // way to a picture nobody wants any more stops (a seek during a seek),
    // and so does one whose work moves to the other thread.
    std::atomic<uint64_t> requested{0}, working{0};
    std::atomic<bool> moving{false};

    // A new request: the picture at `at`, then on while `play`. Lock held.
    void request(double at, bool play);
    // Puts the angle on program, on a tile or back to neither, the clock
    // standing at `clock`. Lock held.
    void setRole(bool onProgram, bool asTile, double clock);
    // Starts both threads.
    void start();
    // Stops them, a decode under way included, and waits for them.
    void stop();

private:
    // The work of one request as it goes on, touched only by the thread
    // holding `busy`.
    struct Progress {
        uint64_t seen = 0;
        std::optional<VideoState> applied;
        double lastStart = 0, lastEnd = 0;  // of the last frame handed over
        DecodePace pace;
        bool startDue = false;  // a request not yet begun: a tile begins once the program angle has its frame
        bool severalThreads = true;  // the reader's decoder may still run frame threads (its priority theirs)
        bool oneAhead = false;       // asked to go down to one decoder thread at the next key frame
    };

    // The picture handed over: through the look renderer when it has one.
    void finish(PreviewFrame& frame, const VideoState& st, const std::shared_ptr<LookRenderer>& looks);
    void applySize(const VideoState& st);
    void run(Lane me);

    Progress progress_;
    std::thread front_, back_;  // last, so they start after everything above exists
};

}  // namespace qv
