// The pictures of one source's line as the preview shows them: at each
// time, from the file's own preview copy (an action camera's .LRV) or the
// proxy chunk that covers it when that chunk is made, else from the
// original. A chunk that appears while the source plays is taken
// from the next picture on; where none is made the original plays on.
// Either way the frame shown at a time is the same.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "playback/Proxies.h"
#include "playback/SourceTimeline.h"

namespace qv {

class ProxyPictures {
public:
    // `cache` may be null (originals only); when given it must outlive this.
    ProxyPictures(SourceTimeline line, const ProxyCache* cache);

    struct Shown {
        std::shared_ptr<const media::VideoPicture> picture;  // null where the line has no picture
        double start = 0;  // set time from which it is shown
        double end = 0;    // set time at which the next picture takes over
        bool fromProxy = false;
    };

    // The picture shown at set time t. Fails with a French message when the
    // original under t cannot be read any more.
    Result<Shown> pictureAt(double t);
    // Pictures from now on at this display size of the original; 0 × 0 keeps
    // each file's own. A proxy is never scaled up to it.
    void setOutputSize(int width, int height);
    const SourceTimeline& line() const { return original_.line(); }
    // A drifting file read in step over each window, from its chunks too.
    void keepInStep(const std::vector<TimeRange>& windows) { original_.keepInStep(windows); }
    // Reduced-cost decoding, for the original and the chunks alike.
    void setCost(media::DecodeCost cost);
    // See VideoReader::setInterrupt: for the original and the chunks alike.
    void setInterrupt(std::function<bool()> interrupted);
    // A glance at t: the chunk's own picture where a chunk is made (a light
    // decode), else the original's key frame at or before t.
    Result<std::optional<std::pair<double, std::shared_ptr<const media::VideoPicture>>>> keyFrameBefore(double t);
    std::optional<double> keyFrameAfter(double t) { return original_.keyFrameAfter(t); }

private:
    // A light copy of part of a file: its path, and the stretch of the
    // file's time line it starts at and covers.
    struct LightCopy {
        std::filesystem::path path;
        double from = 0, length = 0;
    };
    // The camera's own preview copy (.LRV) of the file, else the proxy chunk
    // holding `fileTime`, made or not.
    std::optional<LightCopy> lightCopy(const TimelinePiece& piece, double fileTime);
    std::optional<Shown> fromChunk(const TimelinePiece& piece, double t);

    SourceReader original_;
    const ProxyCache* cache_;
    std::map<const TimelinePiece*, std::optional<std::string>> stems_;
    std::map<std::string, bool> unusable_;  // chunks that exist but would not read
    std::optional<media::VideoReader> chunk_;
    std::string chunkName_;
    int outWidth_ = 0, outHeight_ = 0;
    media::DecodeCost cost_ = media::DecodeCost::full;
    std::function<bool()> interrupted_;
};

}  // namespace qv
