#include "playback/AngleWorker.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "looks/Image.h"
#include "looks/LookRenderer.h"
#include "platform/ThreadPriority.h"

namespace qv {

namespace {

constexpr double kProgramGiveUp = 0.5;  // the program angle this late jumps to a key frame
constexpr double kTileLead = 0.3;       // a tile jumps to the key frame this far ahead of the clock

}  // namespace

void AngleWorker::request(double at, bool play) {
    playhead = -1e300;
    requested = ++generation;
    target = at;
    playing = play;
    queue.clear();
    ready = exact = false;
    ended = false;
    resync.reset();
    if (program && order) order->programPending = true;
    work.notify_all();
}

void AngleWorker::finish(PreviewFrame& frame, const VideoState& st, const std::shared_ptr<LookRenderer>& looks) {
    if (st.looks && looks && !frame.rgba.empty()) {
        Image image = Image::fromRgba8(frame.rgba.data(), frame.width, frame.height, frame.width * 4);
        frame.rgba = looks->process(std::move(image), camera, frame.start).toRgba8();
    }
}

void AngleWorker::applySize(const VideoState& st) {
    if (st.division < 2 && !st.looks) {
        reader->setOutputSize(0, 0);
    } else {
        reader->setOutputSize(std::max(2, static_cast<int>(std::lround(double(fileWidth) / st.division))),
                              std::max(2, static_cast<int>(std::lround(double(fileHeight) / st.division))));
    }
}

void AngleWorker::setRole(bool onProgram, bool asTile, double clock) {
    if (onProgram && !program && playing && ready) {
        // Its frames so far are a tile's: keep the one on screen and
        // decode every picture again from its end, or from the clock when
        // the tile had jumped ahead to a key frame.
        while (queue.size() > 1) queue.pop_back();
        if (!queue.empty() && queue.front()->start > clock + 1e-6) queue.clear();
        resync = queue.empty() ? clock : queue.front()->end;
        ended = false;
    }
    program = onProgram;
    tile = asTile;
    const Lane want = asTile ? Lane::back : Lane::front;
    if (want != lane) {
        lane = want;
        // The back thread may be starved mid-decode: stop it at the next picture.
        if (busy && want == Lane::front) moving = true;
    }
    work.notify_all();
}

void AngleWorker::run(Lane me) {
    Progress& p = progress_;
    std::unique_lock l(lock);
    for (;;) {
        auto mine = [&] { return lane == me && !busy; };
        auto hasWork = [&] {
            return quit || (mine() && (generation != p.seen || resync ||
                                       (!ended && (playing ? queue.size() < static_cast<size_t>(ahead) : !exact))));
        };
        while (!hasWork()) {
            if (mine()) {
                pokeSeen = poke;
                settled.notify_all();
            }
            work.wait(l);
        }
        if (quit) break;
        if (generation != p.seen) {
            p.seen = generation;
            p.lastStart = p.lastEnd = 0;
            p.startDue = true;
        }
        // After a request the program angle goes first, with both cores,
        // then every tile's key frame, then the tiles' own frames. Polled:
        // the threads do not know one another.
        if (tile && order && (p.startDue ? order->programPending.load() : order->glancesDue.load() > 0)) {
            work.wait_for(l, std::chrono::milliseconds(4));
            continue;
        }
        // A tile playing on waits for the budget; it has done all it can now.
        const bool charged = me == Lane::back && playing && budget && now && threadCpu;
        if (charged && !p.startDue && !budget->open(now(), camera)) {
            pokeSeen = poke;
            settled.notify_all();
            work.wait_for(l, std::chrono::milliseconds(5));
            continue;
        }
        const bool fresh = std::exchange(p.startDue, false);
        const double floor = playing && !fresh ? playhead.load() : -1e300;
        const uint64_t gen = p.seen;
        working = gen;
        moving = false;
        busy = true;
        const double at = target;
        const VideoState st = state;
        const bool isTile = tile, isProgram = program;
        const bool isPlaying = playing;
        const std::optional<double> from = resync;
        resync.reset();
        auto looks = renderer;
        auto inStep = fresh ? std::exchange(windows, std::nullopt) : std::nullopt;
        l.unlock();

        const double cpuBefore = charged ? threadCpu() : 0;
        if (inStep) reader->keepInStep(*inStep);
        if (p.applied != st) {
            applySize(st);
            p.applied = st;
        }
        const double clockBefore = playhead.load();
        bool restarted = false;
        if (me == Lane::back && p.severalThreads) {
            // Taken over from the front thread, whose decoder threads run at
            // its priority: opened again here, and from the key frame before
            // the clock up to it, as after a start.
            reader->setDecoderThreads(1);
            p.severalThreads = p.oneAhead = false;
            if (isPlaying && !fresh && clockBefore > -1e299) {
                p.pace.reset(clockBefore);
                restarted = true;
            }
        }
        std::optional<PreviewFrame> frame;
        bool preview = false;
        if (fresh) {
            p.pace.reset(at);
            if (me == Lane::back) {
                // The packets the codec takes ahead go at this cost too:
                // a still needs every picture up to its frame.
                reader->setCost(isPlaying ? p.pace.cost() : media::DecodeCost::noLoopFilter);
                frame = reader->keyFrameBefore(at);
                preview = true;
                if (order->glancesDue.load() > 0) --order->glancesDue;
                // A 4K original without its preview copy: key frames only, from the next one.
                if (isPlaying && reader->glancesOnly()) reader->skipToKeyFrame(at + kTileLead);
            } else {
                reader->setDecoderThreads(frontThreads);
                p.severalThreads = frontThreads > 1;
                p.oneAhead = false;
                reader->seek(at);
            }
        } else if (from) {
            reader->seek(*from);
        }
        if (!preview) {
            // Far behind the clock: on from the next key frame, not through every picture.
            if (me == Lane::back && isPlaying && !restarted && clockBefore > -1e299 && p.lastEnd > p.lastStart &&
                p.pace.behind(p.lastEnd, p.lastEnd - p.lastStart, clockBefore))
                reader->skipToKeyFrame(clockBefore + kTileLead);
            // Tiles while paused show the exact frame, deblocking aside.
            reader->setCost(!isTile ? media::DecodeCost::full
                            : isPlaying ? p.pace.cost()
                                        : media::DecodeCost::noLoopFilter);
            frame = reader->read(floor);
        }
        if (frame) finish(*frame, st, looks);
        const double clock = playhead.load();
        if (frame && isProgram && isPlaying && clock >= frame->end) {
            order->programLateAt = clock;
            // Hopelessly behind (a machine far too busy): decoding every
            // late picture would never catch up; the next key frame does.
            if (clock - frame->end > kProgramGiveUp) reader->skipToKeyFrame(clock + 0.3);
        }
        // Landed: played on, one core is the program's share.
        if (frame && me == Lane::front && isPlaying && p.severalThreads && !p.oneAhead) {
            reader->setDecoderThreads(1, true);
            p.oneAhead = true;
        }
        if (frame && !preview && isTile && isPlaying && clock > -1e299) {
            const double programLate = order->programLateAt;
            const bool starved = programLate <= clock && clock - programLate < 0.5;
            const bool jump = p.pace.picture(frame->start, frame->end, clock, starved) || reader->glancesOnly();
            // The next key frame a little ahead of the clock, so it comes before its time.
            if (jump) reader->skipToKeyFrame(clock + kTileLead);
        }
        if (charged) budget->charge(now(), camera, threadCpu() - cpuBefore);

        l.lock();
        busy = false;
        if (lane != me) {
            work.notify_all();  // the other thread takes over
            // A still the back thread left half-way for the move: the front one makes it again.
            if (me == Lane::back && !isPlaying && generation == gen) {
                p.startDue = true;
                continue;
            }
        }
        if (generation != gen) continue;  // a newer request came meanwhile
        // Put on program while this tile's frame was decoded: it would
        // stand after the frames decoded again, out of order.
        if (resync) continue;
        level = p.pace.level();
        if (preview && !frame) continue;  // no key frame to show: on to the frames themselves
        bool first = !ready;
        if (frame && !preview && floor > p.lastEnd + 1e-6 && p.lastEnd > p.lastStart) {
            skipped += std::max<int64_t>(0, std::llround((frame->start - p.lastEnd) / (p.lastEnd - p.lastStart)));
        }
        if (frame) {
            if (!preview) {
                p.lastStart = frame->start;
                p.lastEnd = frame->end;
            }
            // Frames that follow the key frame of a still picture replace it.
            if (!isPlaying && !preview) queue.clear();
            queue.push_back(std::make_shared<const PreviewFrame>(std::move(*frame)));
        } else {
            ended = true;
        }
        ready = true;
        exact = exact || !preview;
        if (isProgram && order) order->programPending = false;
        // The exact still after a tile's key frame must be pulled too.
        if ((first || (!isPlaying && !preview)) && wakeup) {
            l.unlock();
            wakeup();
            l.lock();
        }
    }
}

void AngleWorker::start() {
    reader->setInterrupt([this] { return requested.load() != working.load() || moving.load(); });
    // The front thread keeps the priority of the thread that makes the
    // player: the interface's. The back one takes the lowest there is
    // without privileges, and every thread it starts inherits it.
    front_ = std::thread([this] { run(Lane::front); });
    back_ = std::thread([this] {
        platform::yieldToOthers(19);
        run(Lane::back);
    });
}

void AngleWorker::stop() {
    {
        std::lock_guard guard(lock);
        quit = true;
        requested = generation + 1;  // a decode under way stops
        work.notify_all();
    }
    front_.join();
    back_.join();
}

}  // namespace qv
