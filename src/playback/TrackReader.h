// What the player's threads read from one source laid on the set's time
// line: pictures in order from any set time, and sound for any stretch.
// One reader belongs to one thread; nothing is shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "edit/TimeRange.h"
#include "platform/MediaReader.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv {

// A picture ready for a monitor: 8-bit RGBA, rows packed, from the top.
struct PreviewFrame {
    double start = 0;  // set time from which it is shown
    double end = 0;    // set time at which the next picture takes over
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;
    bool standIn = false;  // a key frame shown until the exact picture comes
};

class VideoTrackReader {
public:
    virtual ~VideoTrackReader() = default;
    // The next `read` gives the frame shown at `time` (frame-exact), or the
    // first frame after it where the camera has no picture then.
    virtual void seek(double time) = 0;
    // The next frame in order, scaled to the size last set; when the clock
    // has passed it (`notBefore` later than it), the frame shown at
    // `notBefore` instead, the ones between decoded but never converted.
    // Nothing at the end of the time line or when no more can be decoded.
    virtual std::optional<PreviewFrame> read(double notBefore) = 0;
    // Size of the frames to come; 0 × 0 keeps the file's own size.
    virtual void setOutputSize(int width, int height) = 0;
    // Reads drifting files in step at the middle of each window
    // (SourceTimeline::keepInStep); takes effect at the next seek.
    virtual void keepInStep(const std::vector<TimeRange>& windows) { (void)windows; }

    // Pictures decoded from now on at this cost; a reader that cannot skip
    // work keeps decoding everything.
    virtual void setCost(media::DecodeCost /*cost*/) {}
    // Decoder threads from now on (1: the calling thread alone, so a tile's
    // decoding takes its thread's priority and shows in its processor time).
    // A decoder with another count is opened again by the calling thread: at
    // once, reading going on after a jump; or with `atNextKeyFrame` where
    // reading on meets one, nothing lost.
    virtual void setDecoderThreads(int /*threads*/, bool /*atNextKeyFrame*/ = false) {}
    // Whether the last picture came from an original so heavy (4K and up,
    // its preview copy not made yet) that a tile only glances at its key
    // frames there.
    virtual bool glancesOnly() const { return false; }
    // Asked while a read decodes its way to a far picture: true gives up
    // (the read then answers with a picture short of it), for a request
    // that went stale. Only the reader's own thread calls it.
    virtual void setInterrupt(std::function<bool()> /*interrupted*/) {}
    // The cheapest picture near `time`: the key frame at or before it, shown
    // from `time` on until the frame-exact ones come. Reading goes on from
    // `time` as after seek(time). Nothing where the camera has no picture or
    // the reader cannot tell.
    virtual std::optional<PreviewFrame> keyFrameBefore(double time) {
        seek(time);
        return std::nullopt;
    }
    // Moves to the first key frame at or after `time`, which the next read
    // gives, so catching up decodes nothing in between. False when there is
    // none in the file under `time`: reading goes on where it was.
    virtual bool skipToKeyFrame(double /*time*/) { return false; }
};

class SoundTrackReader {
public:
    virtual ~SoundTrackReader() = default;
    // Interleaved frames [first, first + frames) at the rate and channel
    // count given at opening, frame n lying at n / rate on the set's time
    // line; silence where the source has no sound.
    virtual void read(int64_t first, float* out, size_t frames) = 0;
    // As VideoTrackReader::keepInStep; takes effect at the next read.
    virtual void keepInStep(const std::vector<TimeRange>& windows) { (void)windows; }
};

// Opens the readers of one source's placed files laid on a time line of
// `total` seconds. Empty results when nothing of the source can be read.
struct TrackOpener {
    std::function<std::unique_ptr<VideoTrackReader>(const std::vector<PlacedItem>& files, double total)> video;
    std::function<std::unique_ptr<SoundTrackReader>(const std::vector<PlacedItem>& files, double total, int rate,
                                                     int channels)>
        sound;
    // Where each source's inserted files really have sound, for the fades.
    std::function<std::vector<TimeRange>(const std::vector<PlacedItem>& files, double total)> soundRanges;
};

}  // namespace qv
