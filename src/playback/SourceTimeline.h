// The per-source time line: one source's placed files laid on the set's time
// line, and a reader that answers, for any time of the set, the picture that
// source shows and its sound over any range. The player and the video export
// both read sources through it, so they show the same frame at the same time.
//
// Times are seconds on the set's time line. Sound comes as interleaved
// 32-bit floats at the rate and channel count the caller asks for.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/Result.h"
#include "edit/TimeRange.h"
#include "platform/MediaReader.h"
#include "sync/SyncResult.h"

namespace qv {

// Over [from, to) of the line a drifting file is read `seconds` further on
// in its own time than its placement says.
struct ReadShift {
    double from = 0, to = 0;
    double seconds = 0;
    bool operator==(const ReadShift&) const = default;
};

// Where one file stands on its source's line.
struct TimelinePiece {
    MediaItem item;
    double at = 0;        // insertion point on the set's time line
    double duration = 0;  // the file's duration
    bool video = false;   // its picture is on the line
    bool sound = false;   // its sound is on the line
    double drift = 0;     // ppm its clock runs fast (PlacedItem::drift)
    std::vector<ReadShift> shifts;  // ascending, inside [at, end); none without drift

    double end() const { return at + duration; }
    double shiftAt(double t) const;
    // The file time read at line time t.
    double fileTime(double t) const { return t - at + shiftAt(t); }
    // The stretch of the piece around t over which the shift holds.
    TimeRange steadyAround(double t) const;

    // The picture, moved later than the sound by `pictureOffset` seconds
    // (PlacedItem::pictureOffset): where it lies on the line, the file time
    // shown at line time t, and the line time of file time 0 around t.
    double pictureOffset = 0;
    double pictureStart() const { return at + pictureOffset; }
    double pictureEnd() const { return end() + pictureOffset; }
    double pictureTime(double t) const { return fileTime(t - pictureOffset); }
    double pictureOrigin(double t) const { return pictureStart() - shiftAt(t - pictureOffset); }
    TimeRange pictureSteadyAround(double t) const {
        const TimeRange r = steadyAround(t - pictureOffset);
        return {r.start + pictureOffset, r.end + pictureOffset};
    }
};

struct SourceTimeline {
    std::vector<TimelinePiece> pieces;  // ascending `at`, never overlapping
    std::vector<TimeRange> soundRanges;  // (point, point + duration) of each file with sound
    double total = 0;                    // length of the line; empty after the last file

    // Lays out `items` (any order; typically one source's placed files):
    // sorted by start (stable), a file starting more than 0.04 s before the
    // end of the previous one is skipped (the earlier file wins), a smaller
    // overlap pushes the file back to that end. With `video` false no
    // picture is laid. A file without sound adds no sound range.
    static SourceTimeline composition(std::vector<PlacedItem> items, double total, bool video);

    // The placed files of source `sourceIndex` in `result`.
    static SourceTimeline of(const SyncResult& result, int sourceIndex, double total, bool video);

    // Reads every drifting file in step with the line at the middle of each
    // window (line time, ascending, not overlapping) it lies under, at its
    // own rate: the rule of the montage XML (PlacedItem::sourceIn). Outside
    // the windows a file is read at its placement. Replaces earlier windows.
    void keepInStep(const std::vector<TimeRange>& windows);
    bool drifts() const;

    // The piece whose picture is shown at time t (pictureStart <= t <
    // pictureEnd).
    const TimelinePiece* pictureAt(double t) const;
    bool hasPicture() const;
    bool hasSound() const;
};

// Reads one source's line. Owns the file readers it opens (one at a time
// for pictures, one for sound); a reader is used by one thread at a time,
// and several readers of the same line may run on different threads.
class SourceReader {
public:
    // `line` is copied.
    explicit SourceReader(SourceTimeline line);

    // The picture shown at set time t: the frame of the file under t whose
    // presentation interval holds t, exact after any jump. Nothing where the
    // line has no picture (the caller shows black). Fails with a French
    // message when the file under t cannot be read any more.
    Result<std::shared_ptr<const media::VideoPicture>> pictureAt(double t);
    // Pictures from now on at this display size; 0 × 0 keeps each file's.
    void setOutputSize(int width, int height);
    // Pictures decoded from now on at this cost, in every file of the line.
    void setCost(media::DecodeCost cost);
    // See VideoReader::setInterrupt, for every file of the line.
    void setInterrupt(std::function<bool()> interrupted);
    // The key frame at or before t of the file under t, leaving the reader
    // there (see VideoReader::keyFrameBefore), with the set time it starts
    // at. Nothing where the line has no picture.
    Result<std::optional<std::pair<double, std::shared_ptr<const media::VideoPicture>>>> keyFrameBefore(double t);
    // The set time of the first key frame at or after t in the file under
    // t, the reader moved there; nothing when that file has none left.
    std::optional<double> keyFrameAfter(double t);

    // Frames [first, first + count) at `rate`, frame n lying at n / rate on
    // the set's time line, each file's sound at its place, silence between.
    // `out` takes count × channels floats. Fails when a file under the range
    // cannot be opened.
    Status sound(int64_t first, int64_t count, int rate, int channels, float* out);

    const SourceTimeline& line() const { return line_; }
    // SourceTimeline::keepInStep on the line read; the open files stay open.
    void keepInStep(const std::vector<TimeRange>& windows);

private:
    // The reader of the file of `piece`, opened when another one was open.
    Status openVideo(const TimelinePiece* piece);

    SourceTimeline line_;
    const TimelinePiece* videoPiece_ = nullptr;
    std::optional<media::VideoReader> video_;
    int outWidth_ = 0, outHeight_ = 0;
    media::DecodeCost cost_ = media::DecodeCost::full;
    std::function<bool()> interrupted_;
    struct SoundFile {
        const TimelinePiece* piece = nullptr;
        int rate = 0, channels = 0;
        std::optional<media::AudioReader> reader;
    };
    std::vector<SoundFile> sound_;  // open sound readers, at most two
    std::vector<float> scratch_;
};

}  // namespace qv
