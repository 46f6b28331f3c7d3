#include "playback/SourceTimeline.h"

#include <algorithm>
#include <cmath>

namespace qv {

namespace {

// A file may start this much before the previous one ends and still play,
// pushed back to that end.
constexpr double overlapTolerance = 0.04;

}  // namespace

SourceTimeline SourceTimeline::composition(std::vector<PlacedItem> items, double total, bool video) {
    std::stable_sort(items.begin(), items.end(), [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    SourceTimeline line;
    double cursor = 0;
    for (PlacedItem& p : items) {
        if (p.start < cursor - overlapTolerance) continue;
        TimelinePiece piece;
        piece.at = std::max(cursor, p.start);
        piece.duration = p.item.duration;
        piece.video = video && p.item.hasVideo;
        piece.sound = p.item.audioChannels > 0;
        piece.drift = p.drift.value_or(0.0);
        piece.pictureOffset = p.pictureOffset;
        piece.item = std::move(p.item);
        if (piece.sound) line.soundRanges.push_back({piece.at, piece.end()});
        cursor = piece.end();
        line.pieces.push_back(std::move(piece));
    }
    line.total = std::max(total, cursor);
    return line;
}

SourceTimeline SourceTimeline::of(const SyncResult& result, int sourceIndex, double total, bool video) {
    std::vector<PlacedItem> items;
    for (const PlacedItem& p : result.placed)
        if (p.sourceIndex == sourceIndex) items.push_back(p);
    return composition(std::move(items), total, video);
}

double TimelinePiece::shiftAt(double t) const {
    for (const ReadShift& s : shifts)
        if (s.from <= t && t < s.to) return s.seconds;
    return 0;
}

TimeRange TimelinePiece::steadyAround(double t) const {
    double from = at, to = end();
    for (const ReadShift& s : shifts) {
        if (s.to <= t) from = std::max(from, s.to);
        else if (s.from <= t) return {s.from, s.to};
        else {
            to = std::min(to, s.from);
            break;
        }
    }
    return {from, to};
}

void SourceTimeline::keepInStep(const std::vector<TimeRange>& windows) {
    for (TimelinePiece& piece : pieces) {
        piece.shifts.clear();
        if (piece.drift == 0) continue;
        PlacedItem placed;
        placed.start = piece.at;
        placed.item.duration = piece.duration;
        placed.drift = piece.drift;
        for (const TimeRange& w : windows) {
            const double a = std::max(w.start, piece.at), b = std::min(w.end, piece.end());
            if (b - a <= 0.001) continue;
            const double seconds = placed.sourceIn(a, b) - (a - piece.at);
            if (seconds != 0) piece.shifts.push_back({a, b, seconds});
        }
    }
}

bool SourceTimeline::drifts() const {
    return std::any_of(pieces.begin(), pieces.end(), [](const TimelinePiece& p) { return p.drift != 0; });
}

const TimelinePiece* SourceTimeline::pictureAt(double t) const {
    for (const TimelinePiece& p : pieces)
        if (p.video && p.pictureStart() <= t && t < p.pictureEnd()) return &p;
    return nullptr;
}

bool SourceTimeline::hasPicture() const {
    return std::any_of(pieces.begin(), pieces.end(), [](const TimelinePiece& p) { return p.video; });
}

bool SourceTimeline::hasSound() const { return !soundRanges.empty(); }

SourceReader::SourceReader(SourceTimeline line) : line_(std::move(line)) {}

Result<std::shared_ptr<const media::VideoPicture>> SourceReader::pictureAt(double t) {
    const TimelinePiece* piece = line_.pictureAt(t);
    if (!piece) return std::shared_ptr<const media::VideoPicture>();
    if (Status opened = openVideo(piece); !opened) return opened.error();
    return video_->frameAt(piece->pictureTime(t));
}

void SourceReader::keepInStep(const std::vector<TimeRange>& windows) { line_.keepInStep(windows); }

Status SourceReader::openVideo(const TimelinePiece* piece) {
    if (piece == videoPiece_) return Ok{};
    video_.reset();
    videoPiece_ = nullptr;
    auto opened = media::VideoReader::open(piece->item.url);
    if (!opened) return opened.error();
    video_.emplace(std::move(opened).value());
    video_->setOutputSize(outWidth_, outHeight_);
    video_->setCost(cost_);
    video_->setInterrupt(interrupted_);
    videoPiece_ = piece;
    return Ok{};
}

void SourceReader::setInterrupt(std::function<bool()> interrupted) {
    interrupted_ = interrupted;
    if (video_) video_->setInterrupt(std::move(interrupted));
}

void SourceReader::setCost(media::DecodeCost cost) {
    cost_ = cost;
    if (video_) video_->setCost(cost);
}

Result<std::optional<std::pair<double, std::shared_ptr<const media::VideoPicture>>>> SourceReader::keyFrameBefore(
    double t) {
    const TimelinePiece* piece = line_.pictureAt(t);
    if (!piece) return std::optional<std::pair<double, std::shared_ptr<const media::VideoPicture>>>();
    if (Status opened = openVideo(piece); !opened) return opened.error();
    auto picture = video_->keyFrameBefore(piece->pictureTime(t));
    if (!picture) return picture.error();
    // File time back to the line, with a drifting file's shift at t.
    return std::optional(std::make_pair(piece->pictureOrigin(t) + (*picture)->start, *picture));
}

std::optional<double> SourceReader::keyFrameAfter(double t) {
    const TimelinePiece* piece = line_.pictureAt(t);
    if (!piece || !openVideo(piece)) return std::nullopt;
    auto key = video_->keyFrameAfter(piece->pictureTime(t));
    const double offset = piece->pictureOrigin(t);
    if (!key || offset + *key >= piece->pictureEnd()) return std::nullopt;
    return offset + *key;
}

void SourceReader::setOutputSize(int width, int height) {
    outWidth_ = width;
    outHeight_ = height;
    if (video_) video_->setOutputSize(width, height);
}

Status SourceReader::sound(int64_t first, int64_t count, int rate, int channels, float* out) {
    std::fill(out, out + count * channels, 0.0f);
    if (count <= 0) return Ok{};
    const double from = static_cast<double>(first) / rate, to = static_cast<double>(first + count) / rate;
    for (const TimelinePiece& piece : line_.pieces) {
        if (!piece.sound || piece.end() <= from || piece.at >= to) continue;
        auto open = std::find_if(sound_.begin(), sound_.end(), [&](const SoundFile& f) {
            return f.piece == &piece && f.rate == rate && f.channels == channels;
        });
        if (open == sound_.end()) {
            auto opened = media::AudioReader::open(piece.item.url, rate, channels);
            if (!opened) return opened.error();
            // Files follow one another: two readers cover a boundary.
            if (sound_.size() >= 2) sound_.erase(sound_.begin());
            sound_.push_back({&piece, rate, channels, std::move(opened).value()});
            open = sound_.end() - 1;
        }
        // Frames of this piece inside the request, in the file's numbering.
        const int64_t offset = std::llround(piece.at * rate);
        const int64_t pieceEnd = offset + static_cast<int64_t>(std::floor(piece.duration * rate));
        int64_t a = std::max(first, offset);
        const int64_t b = std::min(first + count, pieceEnd);
        // A drifting file is read in stretches of one shift each.
        while (a < b) {
            const double t = static_cast<double>(a) / rate;
            const TimeRange steady = piece.steadyAround(t);
            const int64_t upTo = std::clamp<int64_t>(std::llround(steady.end * rate), a + 1, b);
            const int64_t shift = std::llround(piece.shiftAt(t) * rate);
            scratch_.resize(static_cast<size_t>(upTo - a) * channels);
            open->reader->read(a - offset + shift, upTo - a, scratch_.data());
            float* dst = out + (a - first) * channels;
            for (size_t k = 0; k < scratch_.size(); ++k) dst[k] += scratch_[k];
            a = upTo;
        }
    }
    return Ok{};
}

}  // namespace qv
