#include "playback/ProxyPictures.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace qv {

ProxyPictures::ProxyPictures(SourceTimeline line, const ProxyCache* cache)
    : original_(std::move(line)), cache_(cache) {}

void ProxyPictures::setOutputSize(int width, int height) {
    outWidth_ = width;
    outHeight_ = height;
    original_.setOutputSize(width, height);
    chunk_.reset();  // opened again at the new size
    chunkName_.clear();
}

void ProxyPictures::setCost(media::DecodeCost cost) {
    cost_ = cost;
    original_.setCost(cost);
    if (chunk_) chunk_->setCost(cost);
}

void ProxyPictures::setInterrupt(std::function<bool()> interrupted) {
    interrupted_ = interrupted;
    original_.setInterrupt(interrupted);
    if (chunk_) chunk_->setInterrupt(std::move(interrupted));
}

std::optional<ProxyPictures::LightCopy> ProxyPictures::lightCopy(const TimelinePiece& piece, double fileTime) {
    // A camera's own preview copy covers its whole chapter with the same timing.
    if (!piece.item.previewCopy.empty()) return LightCopy{piece.item.previewCopy, 0, piece.duration};
    if (!cache_) return std::nullopt;
    auto [known, added] = stems_.try_emplace(&piece);
    if (added) known->second = cache_->stem(piece.item.url);
    if (!known->second) return std::nullopt;
    const int index = cache_->chunkAt(fileTime);
    return LightCopy{cache_->chunkPath(*known->second, index), cache_->chunkStart(index), cache_->chunkLength()};
}

std::optional<ProxyPictures::Shown> ProxyPictures::fromChunk(const TimelinePiece& piece, double t) {
    const double fileTime = piece.pictureTime(t);
    const auto copy = lightCopy(piece, fileTime);
    if (!copy) return std::nullopt;
    const fs::path& path = copy->path;
    const std::string name = path.string();
    if (name != chunkName_) {
        if (unusable_.count(name)) return std::nullopt;
        // One look at the folder per picture: a chunk is used from the
        // moment it is renamed into place.
        std::error_code ec;
        if (!fs::is_regular_file(path, ec)) return std::nullopt;
        auto opened = media::VideoReader::open(path);
        if (!opened) {
            unusable_[name] = true;
            return std::nullopt;
        }
        chunk_.emplace(std::move(opened).value());
        chunkName_ = name;
        const bool smaller = outWidth_ > 0 && outWidth_ < chunk_->width();
        chunk_->setOutputSize(smaller ? outWidth_ : 0, smaller ? outHeight_ : 0);
        chunk_->setCost(cost_);
        chunk_->setInterrupt(interrupted_);
    }
    const double from = copy->from;
    auto picture = chunk_->frameAt(fileTime - from);
    if (!picture) {
        unusable_[name] = true;
        chunk_.reset();
        chunkName_.clear();
        return std::nullopt;
    }
    // File time back to the line: a drifting file's shift holds over one
    // stretch, and its picture ends with it.
    const double base = piece.pictureOrigin(t) + from;
    const TimeRange steady = piece.pictureSteadyAround(t);
    const double chunkEnd = std::min(base + copy->length, steady.end);
    Shown shown;
    shown.start = std::max({base + (*picture)->start, base, steady.start});
    shown.end = std::min(base + (*picture)->end, chunkEnd);
    // The chunk's last picture holds on to the chunk's end, as the original's does.
    if (shown.end <= t) shown.end = chunkEnd;
    shown.picture = std::move(picture).value();
    shown.fromProxy = true;
    return shown;
}

Result<std::optional<std::pair<double, std::shared_ptr<const media::VideoPicture>>>> ProxyPictures::keyFrameBefore(
    double t) {
    if (const TimelinePiece* piece = original_.line().pictureAt(t)) {
        if (auto shown = fromChunk(*piece, t)) return std::optional(std::make_pair(shown->start, shown->picture));
    }
    return original_.keyFrameBefore(t);
}

Result<ProxyPictures::Shown> ProxyPictures::pictureAt(double t) {
    const TimelinePiece* piece = original_.line().pictureAt(t);
    if (!piece) return Shown{};
    if (auto shown = fromChunk(*piece, t)) return *shown;
    auto picture = original_.pictureAt(t);
    if (!picture) return picture.error();
    Shown shown;
    if (!*picture) return shown;
    const double offset = piece->pictureOrigin(t);
    const TimeRange steady = piece->pictureSteadyAround(t);
    shown.start = std::max(offset + (*picture)->start, steady.start);
    shown.end = std::min(offset + (*picture)->end, steady.end);
    shown.picture = std::move(picture).value();
    return shown;
}

}  // namespace qv
