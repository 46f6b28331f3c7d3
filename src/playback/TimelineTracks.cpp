#include "playback/TimelineTracks.h"

#include <algorithm>
#include <cmath>

#include "playback/ProxyPictures.h"
#include "playback/SourceTimeline.h"

namespace qv {

namespace {

class TimelineVideo : public VideoTrackReader {
public:
    TimelineVideo(SourceTimeline line, const ProxyCache* proxies) : reader_(std::move(line), proxies) {}

    void seek(double time) override { next_ = time; }
    void setOutputSize(int width, int height) override { reader_.setOutputSize(width, height); }
    void keepInStep(const std::vector<TimeRange>& windows) override { reader_.keepInStep(windows); }
    void setCost(media::DecodeCost cost) override { reader_.setCost(cost); }
    void setInterrupt(std::function<bool()> interrupted) override { reader_.setInterrupt(std::move(interrupted)); }

    std::optional<PreviewFrame> keyFrameBefore(double time) override {
        next_ = time;
        auto key = reader_.keyFrameBefore(time);
        if (!key || !*key) return std::nullopt;
        const auto& [start, picture] = **key;
        PreviewFrame frame;
        frame.start = std::min(start, time);
        // Held a little past `time`: the exact frames that follow take over
        // as soon as one of them is due.
        frame.end = time + 0.5;
        frame.standIn = true;
        frame.width = picture->frame.width;
        frame.height = picture->frame.height;
        frame.rgba = picture->frame.pixels;
        return frame;
    }

    bool skipToKeyFrame(double time) override {
        auto key = reader_.keyFrameAfter(time);
        if (!key) return false;
        next_ = *key;
        return true;
    }

    std::optional<PreviewFrame> read(double notBefore) override {
        const SourceTimeline& line = reader_.line();
        next_ = std::max(next_, notBefore);
        for (;;) {
            const TimelinePiece* piece = line.pictureAt(next_);
            if (!piece) {
                auto later = std::find_if(line.pieces.begin(), line.pieces.end(),
                                          [&](const TimelinePiece& p) { return p.video && p.pictureStart() > next_; });
                if (later == line.pieces.end()) return std::nullopt;
                next_ = later->pictureStart();
                continue;
            }
            // From the proxy chunk under next_ when one is made, else the original.
            auto shown = reader_.pictureAt(next_);
            if (!shown || !shown->picture) {
                // The file went away or holds nothing readable: a hole in this angle.
                next_ = piece->pictureEnd();
                continue;
            }
            const media::VideoPicture& p = *shown->picture;
            PreviewFrame frame;
            frame.start = shown->start;
            frame.end = shown->end;
            if (frame.end <= next_) frame.end = std::min(next_ + 1e-3, piece->pictureEnd());
            // Just past the end, so rounding never hands back the same picture.
            next_ = frame.end + 1e-6;
            frame.width = p.frame.width;
            frame.height = p.frame.height;
            frame.rgba = p.frame.pixels;
            return frame;
        }
    }

private:
    ProxyPictures reader_;
    double next_ = 0;
};

class TimelineSound : public SoundTrackReader {
public:
    TimelineSound(SourceTimeline line, int rate, int channels)
        : reader_(std::move(line)), rate_(rate), channels_(channels) {}

    void keepInStep(const std::vector<TimeRange>& windows) override { reader_.keepInStep(windows); }

    void read(int64_t first, float* out, size_t frames) override {
        // A file that cannot be read any more plays as silence; the rest goes on.
        if (!reader_.sound(first, static_cast<int64_t>(frames), rate_, channels_, out)) {
            std::fill(out, out + frames * channels_, 0.0f);
        }
    }

private:
    SourceReader reader_;
    int rate_, channels_;
};

}  // namespace

TrackOpener timelineTracks(const ProxyCache* proxies) {
    TrackOpener opener;
    opener.video = [proxies](const std::vector<PlacedItem>& files, double total) -> std::unique_ptr<VideoTrackReader> {
        SourceTimeline line = SourceTimeline::composition(files, total, true);
        if (!line.hasPicture()) return nullptr;
        return std::make_unique<TimelineVideo>(std::move(line), proxies);
    };
    opener.sound = [](const std::vector<PlacedItem>& files, double total, int rate,
                      int channels) -> std::unique_ptr<SoundTrackReader> {
        SourceTimeline line = SourceTimeline::composition(files, total, false);
        if (!line.hasSound()) return nullptr;
        return std::make_unique<TimelineSound>(std::move(line), rate, channels);
    };
    opener.soundRanges = [](const std::vector<PlacedItem>& files, double total) {
        return SourceTimeline::composition(files, total, false).soundRanges;
    };
    return opener;
}

}  // namespace qv
