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

void AngleWorker::run() {
    uint64_t seen = 0;
    std::optional<VideoState> applied;
    double lastStart = 0, lastEnd = 0;  // of the last frame handed over
    DecodePace pace;
    bool startDue = false;  // a request not yet begun: a tile begins once the program angle has its frame
    reader->setInterrupt([this] { return requested.load() != working.load(); });
    std::unique_lock l(lock);
    for (;;) {
        auto hasWork = [&] {
            return quit || generation != seen || resync ||
                   (!ended && (playing ? queue.size() < static_cast<size_t>(ahead) : !exact));
        };
        while (!hasWork()) {
            pokeSeen = poke;
            settled.notify_all();
            work.wait(l);
        }
        if (quit) break;
        if (generation != seen) {
            seen = generation;
            lastStart = lastEnd = 0;
            startDue = true;
        }
        // After a request the program angle goes first, with both cores,
        // then every tile's key frame, then the tiles' own frames. Polled:
        // the threads do not know one another.
        if (tile && order && (startDue ? order->programPending.load() : order->glancesDue.load() > 0)) {
            work.wait_for(l, std::chrono::milliseconds(4));
            continue;
        }
        const bool fresh = std::exchange(startDue, false);
        const double floor = playing && !fresh ? playhead.load() : -1e300;
        const uint64_t gen = seen;
        working = gen;
        const double at = target;
        const VideoState st = state;
        const bool isTile = tile, isProgram = program;
        const bool isPlaying = playing;
        const std::optional<double> from = resync;
        resync.reset();
        auto looks = renderer;
        auto inStep = fresh ? std::exchange(windows, std::nullopt) : std::nullopt;
        l.unlock();

        if (inStep) reader->keepInStep(*inStep);
        if (applied != st) {
            applySize(st);
            applied = st;
        }
        std::optional<PreviewFrame> frame;
        bool preview = false;
        if (fresh) {
            pace.reset(at);
            if (isTile) {
                // The packets the codec takes ahead go at this cost too:
                // a still needs every picture up to its frame.
                reader->setCost(isPlaying ? pace.cost() : media::DecodeCost::noLoopFilter);
                frame = reader->keyFrameBefore(at);
                preview = true;
                --order->glancesDue;
            } else {
                reader->seek(at);
            }
        } else if (from) {
            reader->seek(*from);
        }
        if (!preview) {
            // Tiles while paused show the exact frame, deblocking aside.
            reader->setCost(!isTile ? media::DecodeCost::full
                            : isPlaying ? pace.cost()
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
        if (frame && !preview && isTile && isPlaying && clock > -1e299) {
            const double programLate = order->programLateAt;
            const bool starved = programLate <= clock && clock - programLate < 0.5;
            const bool jump = pace.picture(frame->start, frame->end, clock, starved);
            // The next key frame a little ahead of the clock, so it comes before its time.
            if (jump) reader->skipToKeyFrame(clock + 0.3);
        }

        l.lock();
        if (generation != gen) continue;  // a newer request came meanwhile
        // Put on program while this tile's frame was decoded: it would
        // stand after the frames decoded again, out of order.
        if (resync) continue;
        level = pace.level();
        if (preview && !frame) continue;  // no key frame to show: on to the frames themselves
        bool first = !ready;
        if (frame && !preview && floor > lastEnd + 1e-6 && lastEnd > lastStart) {
            skipped += std::max<int64_t>(0, std::llround((frame->start - lastEnd) / (lastEnd - lastStart)));
        }
        if (frame) {
            if (!preview) {
                lastStart = frame->start;
                lastEnd = frame->end;
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
    thread = std::thread([this] {
        // Pictures give way to the sound and the interface: a late tile
        // degrades by itself, a late key press or a gap in the sound is lost.
        platform::yieldToOthers(4);
        run();
    });
}

void AngleWorker::stop() {
    {
        std::lock_guard guard(lock);
        quit = true;
        requested = generation + 1;  // a decode under way stops
        work.notify_all();
    }
    thread.join();
}

}  // namespace qv
