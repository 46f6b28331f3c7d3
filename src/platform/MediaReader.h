// Random-access readers of one media file, for the per-source time line,
// the player and the export: the picture shown at any time of the file and
// its sound over any range, both on the file's own time line.
//
// Time 0 of a file is its media time zero (platform/MediaTime.h: the first
// picture, else the first sound after codec delay and priming), the origin
// the sync measured from, so a file placed at s on the set shows its time t
// at s + t. B-frame reordering and edit lists are taken out by the time
// stamps the demuxer gives.
//
// A reader is used by one thread at a time; different readers may run on
// different threads. Readers own their FFmpeg objects and release them on
// destruction.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "base/Result.h"
#include "platform/VideoFrame.h"

namespace qv::media {

// One decoded picture and the stretch of the file's time line it covers.
struct VideoPicture {
    double start = 0;  // seconds on the file's time line
    double end = 0;    // start of the next picture, or start + one nominal frame for the last
    RgbaFrame frame;   // display orientation (rotation metadata applied), 8-bit RGBA
};

// How much of a picture stream is decoded, from all of it to the frames
// other pictures are predicted from. Lighter costs skip work where the codec
// allows it; a codec that cannot skip decodes everything.
enum class DecodeCost {
    full,          // every picture, as the file holds it
    noLoopFilter,  // every picture, the deblocking skipped: right frame, slightly blockier
    light,         // also skips pictures nothing refers to (most B-frames)
    anchors,       // only key and P frames: about one picture in four with B-frames
};

class VideoReader {
public:
    ~VideoReader();
    VideoReader(VideoReader&&) noexcept;
    VideoReader& operator=(VideoReader&&) noexcept;

    // Opens the first video stream (cover art does not count), decoded by
    // `threads` frame threads. Fails with a French message naming the file
    // when it is missing, unreadable or has no picture.
    static Result<VideoReader> open(const std::filesystem::path& file, int threads = 2);

    // The picture whose interval [start, end) holds `seconds`; the first
    // picture for earlier times and the last for later ones. Reading forward
    // decodes on; a jump back or far ahead seeks to a key frame and decodes
    // up to the time, so the answer is the same frame either way (variable
    // frame rates included). Fails only when nothing at all decodes.
    Result<std::shared_ptr<const VideoPicture>> frameAt(double seconds);

    // Pictures from now on at this display size (0 × 0: the file's own),
    // scaled as they are converted; pictures passed over are never converted.
    void setOutputSize(int width, int height);

    // Pictures decoded from now on at this cost. Skipped pictures leave the
    // one before them shown longer: `frameAt` still answers every time.
    void setCost(DecodeCost cost);
    DecodeCost cost() const;
    // Asked between pictures while `frameAt` decodes its way to a time: when
    // it answers true, `frameAt` stops and gives the picture it has reached,
    // not the one asked for (a caller whose request went stale). Any thread
    // may flip what it reads; null never stops.
    void setInterrupt(std::function<bool()> interrupted);

    // Frame threads of the decoder. Another count opens the decoder again,
    // on the calling thread, whose priority its threads take: at once, the
    // next picture then read after a jump to a key frame; or with
    // `atNextKeyFrame` where reading on meets one (or at the next jump), with
    // no picture lost. With 1 the calling thread decodes alone, and its
    // processor time is the decoder's.
    void setThreads(int threads, bool atNextKeyFrame = false);
    int threads() const;

    // The key frame at or before `seconds`, the cheapest picture near it;
    // the reader stays there, so `frameAt(seconds)` decodes on from it.
    Result<std::shared_ptr<const VideoPicture>> keyFrameBefore(double seconds);
    // Moves to the first key frame at or after `seconds` and gives its start,
    // so reading on from there needs nothing decoded before it. Nothing when
    // no key frame follows; the reader is then left where it was.
    std::optional<double> keyFrameAfter(double seconds);

    int width() const;   // display size
    int height() const;
    double frameRate() const;  // nominal

private:
    struct State;
    explicit VideoReader(std::unique_ptr<State> s);
    std::unique_ptr<State> s_;
};

class AudioReader {
public:
    ~AudioReader();
    AudioReader(AudioReader&&) noexcept;
    AudioReader& operator=(AudioReader&&) noexcept;

    // Opens sound stream `stream` (counting the streams that carry usable
    // sound, from 0; the first when there is no such stream), resampled to
    // `rate` Hz and `channels` interleaved float channels (1 or 2). `pick`
    // chooses its channels, bit k for channel k, 0 for all: one channel is
    // spread to both sides, two make the two sides, more are mixed evenly;
    // all channels of a mono or stereo file play as they are, more are mixed
    // down.
    static Result<AudioReader> open(const std::filesystem::path& file, int rate, int channels, int stream = 0,
                                    uint64_t pick = 0);

    // Frames [first, first + count) at the reader's rate, frame n lying at
    // n / rate seconds of the file's time line, written interleaved to
    // `out` (count × channels floats). Before the sound starts or after it
    // ends the samples are 0. Reading on from the last call continues the
    // stream; any other position seeks.
    void read(int64_t first, int64_t count, float* out);

private:
    struct State;
    explicit AudioReader(std::unique_ptr<State> s);
    std::unique_ptr<State> s_;
};

}  // namespace qv::media
