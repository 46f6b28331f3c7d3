#include "playback/TimelineTracks.h"

#include <algorithm>
#include <cmath>

#include "playback/SourceTimeline.h"

namespace qv {

namespace {

class TimelineVideo : public VideoTrackReader {
public:
    explicit TimelineVideo(SourceTimeline line) : reader_(std::move(line)) {}

    void seek(double time) override { next_ = time; }
    void setOutputSize(int width, int height) override {
        width_ = width;
        height_ = height;
    }

    std::optional<PreviewFrame> read() override {
        const SourceTimeline& line = reader_.line();
        for (;;) {
            const TimelinePiece* piece = line.pictureAt(next_);
            if (!piece) {
                auto later = std::find_if(line.pieces.begin(), line.pieces.end(),
                                          [&](const TimelinePiece& p) { return p.video && p.at > next_; });
                if (later == line.pieces.end()) return std::nullopt;
                next_ = later->at;
                continue;
            }
            auto picture = reader_.pictureAt(next_);
            if (!picture || !*picture) {
                // The file went away or holds nothing readable: a hole in this angle.
                next_ = piece->end();
                continue;
            }
            const media::VideoPicture& p = **picture;
            PreviewFrame frame;
            frame.start = std::max(piece->at + p.start, piece->at);
            frame.end = std::min(piece->at + p.end, piece->end());
            if (frame.end <= next_) frame.end = std::min(next_ + 1e-3, piece->end());
            // Just past the end, so rounding never hands back the same picture.
            next_ = frame.end + 1e-6;
            bool shrink = width_ > 0 && height_ > 0 && (width_ != p.frame.width || height_ != p.frame.height);
            if (shrink) {
                frame.width = width_;
                frame.height = height_;
                frame.rgba = shrinkRgba(p.frame.pixels.data(), p.frame.width, p.frame.height, width_, height_);
            } else {
                frame.width = p.frame.width;
                frame.height = p.frame.height;
                frame.rgba = p.frame.pixels;
            }
            return frame;
        }
    }

private:
    SourceReader reader_;
    double next_ = 0;
    int width_ = 0, height_ = 0;
};

class TimelineSound : public SoundTrackReader {
public:
    TimelineSound(SourceTimeline line, int rate, int channels)
        : reader_(std::move(line)), rate_(rate), channels_(channels) {}

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

std::vector<uint8_t> shrinkRgba(const uint8_t* pixels, int width, int height, int outWidth, int outHeight) {
    std::vector<uint8_t> out(static_cast<size_t>(outWidth) * outHeight * 4);
    if (width <= 0 || height <= 0) return out;
    std::vector<int> x0(outWidth + 1);
    for (int x = 0; x <= outWidth; ++x) x0[x] = static_cast<int>(static_cast<int64_t>(x) * width / outWidth);
    std::vector<uint32_t> sums(static_cast<size_t>(outWidth) * 4);
    for (int y = 0; y < outHeight; ++y) {
        int y0 = static_cast<int>(static_cast<int64_t>(y) * height / outHeight);
        int y1 = std::max(y0 + 1, static_cast<int>(static_cast<int64_t>(y + 1) * height / outHeight));
        std::fill(sums.begin(), sums.end(), 0u);
        for (int sy = y0; sy < y1; ++sy) {
            const uint8_t* row = pixels + static_cast<size_t>(sy) * width * 4;
            for (int x = 0; x < outWidth; ++x) {
                int end = std::max(x0[x] + 1, x0[x + 1]);
                uint32_t* s = &sums[x * 4];
                for (int sx = x0[x]; sx < end; ++sx) {
                    const uint8_t* px = row + sx * 4;
                    s[0] += px[0];
                    s[1] += px[1];
                    s[2] += px[2];
                    s[3] += px[3];
                }
            }
        }
        uint8_t* dst = &out[static_cast<size_t>(y) * outWidth * 4];
        for (int x = 0; x < outWidth; ++x) {
            uint32_t count = static_cast<uint32_t>((std::max(x0[x] + 1, x0[x + 1]) - x0[x]) * (y1 - y0));
            for (int c = 0; c < 4; ++c) dst[x * 4 + c] = static_cast<uint8_t>((sums[x * 4 + c] + count / 2) / count);
        }
    }
    return out;
}

TrackOpener timelineTracks(const ProxyCache* proxies) {
    TrackOpener opener;
    opener.video = [proxies](const std::vector<PlacedItem>& files, double total) -> std::unique_ptr<VideoTrackReader> {
        SourceTimeline line = SourceTimeline::composition(files, total, true);
        if (!line.hasPicture()) return nullptr;
        if (proxies) {
            for (auto& piece : line.pieces) {
                if (auto proxy = proxies->find(piece.item.url)) piece.item.url = *proxy;
            }
        }
        return std::make_unique<TimelineVideo>(std::move(line));
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
