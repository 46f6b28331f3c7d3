// AngleWorker: one camera's decoder thread in the multicam player, and the
// order in which the angles work after a request.
//
// The worker seeks its reader at every new request (generation), then
// decodes in order: while playing until `ahead` frames wait, while paused
// only the frame at the requested time.
//
// With a program angle set, the other angles are tiles: at a request a tile
// first shows the key frame before the time (one cheap picture), waits for
// the program angle's first frame (it goes first), then decodes at the cost
// its own pace chooses while playing, or the exact frame while paused.
//
// Threads. The owner (the player, on its thread) writes the fields under
// `lock` and wakes the worker; the worker only calls `wakeup` after a first
// picture, never into the owner.
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
#include "playback/DecodePace.h"
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
    int camera = 0;
    int fileWidth = 0, fileHeight = 0;
    int ahead = 8;
    std::function<void()> wakeup;
    std::unique_ptr<VideoTrackReader> reader;  // used by the thread only
    AngleOrder* order = nullptr;               // the player's

    std::mutex lock;
    std::condition_variable work;     // a request or room in the queue
    std::condition_variable settled;  // the thread has nothing left to do
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
    std::optional<double> resync;  // became the program angle: decode every picture again from here
    DecodePace::Level level = DecodePace::Level::light;  // the pace's, for the owner to read
    // The clock as the owner last saw it while playing: a decoder that
    // falls behind jumps to it instead of decoding late frames to the end.
    std::atomic<double> playhead{-1e300};
    // The request last made and the one being worked on: a decode on its
    // way to a picture nobody wants any more stops (a seek during a seek).
    std::atomic<uint64_t> requested{0}, working{0};

    std::thread thread;  // last, so it starts after everything above exists

    // A new request: the picture at `at`, then on while `play`. Lock held.
    void request(double at, bool play);
    // Starts the thread, below the sound and the interface.
    void start();
    // Stops the thread, a decode under way included, and waits for it.
    void stop();

private:
    // The picture handed over: through the look renderer when it has one.
    void finish(PreviewFrame& frame, const VideoState& st, const std::shared_ptr<LookRenderer>& looks);
    void applySize(const VideoState& st);
    void run();
};

}  // namespace qv
