// The cameras' pictures as the application model holds them: each camera's
// picture offset against its sound, the set's frame rate and drop-frame
// choice, and the constant-rate copies of variable-rate files made in the
// background for the editing programs.
#include <algorithm>
#include <cmath>

#include "app/AppModel.h"
#include "app/ConformCopies.h"
#include "diagnostics/Log.h"

namespace qv {

namespace {

constexpr double speedOfSound = 343;  // metres a second, in a warm room

}  // namespace

// The copies under way: the maker while it works, and the share of the file
// being copied, which the maker only tells at each whole file.
struct AppModel::Conform {
    ProxyCache cache = ConformCopies::cache();
    std::shared_ptr<std::atomic<double>> share = std::make_shared<std::atomic<double>>(0.0);
    std::unique_ptr<ProxyMaker> maker;
    int files = 0;
};

SyncResult AppModel::placedResult() const {
    SyncResult placed = folder_ ? HandPlacement::apply(*automatic_, edit_.hand(), *folder_) : *automatic_;
    for (PlacedItem& p : placed.placed) {
        auto offset = pictureOffsets_.find(sources_.at(static_cast<size_t>(p.sourceIndex)).id);
        p.pictureOffset = offset == pictureOffsets_.end() || !p.item.hasVideo ? 0.0 : offset->second;
    }
    return placed;
}

double AppModel::cameraFrameRate(int camera) const {
    const auto cameras = cameraSources();
    if (camera < 0 || static_cast<size_t>(camera) >= cameras.size()) return 25;
    const int source = cameras[static_cast<size_t>(camera)];
    if (result_)
        for (const PlacedItem& p : result_->placed)
            if (p.sourceIndex == source && p.item.hasVideo && p.item.frameRate > 0) return p.item.frameRate;
    for (const MediaItem& item : sources_[static_cast<size_t>(source)].items)
        if (item.hasVideo && item.frameRate > 0) return item.frameRate;
    return 25;
}

double AppModel::pictureOffset(int camera) const {
    auto id = cameraId(camera);
    if (!id) return 0;
    auto found = pictureOffsets_.find(*id);
    return found == pictureOffsets_.end() ? 0.0 : found->second;
}

double AppModel::offsetForDistance(double metres) {
    return std::isfinite(metres) && metres > 0 ? metres / speedOfSound : 0.0;
}

void AppModel::setPictureOffset(int camera, double seconds) {
    auto id = cameraId(camera);
    if (!id || !std::isfinite(seconds)) return;
    const double limit = maxOffsetFrames / cameraFrameRate(camera);
    seconds = std::clamp(seconds, -limit, limit);
    if (seconds == pictureOffset(camera)) return;
    if (seconds == 0) pictureOffsets_.erase(*id);
    else pictureOffsets_[*id] = seconds;
    notify(Field::pictureOffsets);
    // The player is made for one placement: a new one takes over.
    applyHand();
}

PremiereExport::SequenceRate AppModel::frameRate() const {
    const auto rate = frameRateChoice_ ? *frameRateChoice_
                      : result_        ? PremiereExport::setRate(sources_, *result_)
                                       : PremiereExport::SequenceRate{};
    return rate.counted(dropFrame_);
}

void AppModel::setFrameRateChoice(std::optional<PremiereExport::SequenceRate> rate) {
    if (rate) *rate = PremiereExport::SequenceRate{rate->timebase, rate->ntsc};
    if (rate == frameRateChoice_) return;
    frameRateChoice_ = rate;
    notify(Field::frameRate);
}

void AppModel::setDropFrame(bool drop) {
    if (drop == dropFrame_) return;
    dropFrame_ = drop;
    notify(Field::frameRate);
}

std::vector<PremiereExport::RateShare> AppModel::rateShares() const {
    return result_ ? PremiereExport::rateShares(sources_, *result_) : std::vector<PremiereExport::RateShare>{};
}

std::vector<std::string> AppModel::variableRateFiles() const {
    return result_ ? ConformCopies::names(sources_, *result_) : std::vector<std::string>{};
}

PremiereExport::PictureChoices AppModel::pictureChoices() const {
    PremiereExport::PictureChoices choices;
    choices.rate = frameRate();
    if (result_) choices.copies = ConformCopies::existing(ConformCopies::cache(), ConformCopies::candidates(sources_, *result_));
    return choices;
}

int AppModel::conformedCount() const {
    if (!result_) return 0;
    return static_cast<int>(
        ConformCopies::existing(ConformCopies::cache(), ConformCopies::candidates(sources_, *result_)).size());
}

bool AppModel::isConforming() const { return conform_ && conform_->maker && !conform_->maker->progress().finished; }

std::string AppModel::conformStatus() const {
    if (!isConforming()) return {};
    const ProxyMaker::Progress p = conform_->maker->progress();
    const double share = p.total > 0 ? (p.done + conform_->share->load()) / p.total : 0;
    return "Copies à cadence fixe : " + std::to_string(static_cast<int>(std::clamp(share, 0.0, 1.0) * 100)) + " %";
}

void AppModel::conformVariableRate() {
    if (!result_ || isConforming()) return;
    std::vector<ProxyFile> files = ConformCopies::candidates(sources_, *result_);
    if (files.empty()) {
        showToast("Aucun fichier à cadence variable");
        return;
    }
    std::map<std::filesystem::path, double> rates;
    for (const PlacedItem& p : result_->placed) rates[p.item.url] = p.item.frameRate;
    auto conform = std::make_shared<Conform>();
    conform->files = static_cast<int>(files.size());
    ProxyMaker::Options options;
    options.workers = 1;
    std::weak_ptr<bool> alive = alive_;
    MainThread& main = services_.main;
    options.wakeup = [this, alive, &main] {
        main.post([this, alive] {
            if (alive.lock()) conformChanged();
        });
    };
    options.log = [](const std::string& line) { Log::write(line); };
    conform->maker = std::make_unique<ProxyMaker>(conform->cache, ConformCopies::encoder(std::move(rates), conform->share),
                                                  std::move(options));
    conform_ = conform;
    conform->maker->start(std::move(files));
    Log::write("Copies à cadence fixe : " + std::to_string(conform->files) + " fichier(s)");
    notify(Field::conform);
    conformChanged();
}

void AppModel::conformChanged() {
    if (!conform_ || !conform_->maker) return;
    const ProxyMaker::Progress p = conform_->maker->progress();
    if (p.finished) {
        conform_->maker.reset();
        const int made = conformedCount();
        showToast(made == conform_->files ? "Copies à cadence fixe prêtes : les exports les utilisent"
                                          : "Copies à cadence fixe : " + std::to_string(made) + " sur " +
                                                std::to_string(conform_->files) + " (voir le journal)");
    }
    notify(Field::conform);
}

void AppModel::storePictures(ProjectFile& project) const {
    project.pictureOffsets = keyedByName(pictureOffsets_, sources_);
    if (frameRateChoice_) project.frameRate = PremiereExport::rateText(*frameRateChoice_);
    project.dropFrame = dropFrame_;
}

void AppModel::applyPictures(const ProjectFile& project) {
    frameRateChoice_.reset();
    if (project.frameRate) frameRateChoice_ = PremiereExport::rateFromText(*project.frameRate);
    dropFrame_ = project.dropFrame;
    notify(Field::frameRate);
    std::map<Uuid, double> offsets;
    const auto cameras = cameraSources();
    for (size_t c = 0; c < cameras.size(); ++c) {
        const MediaSource& source = sources_[static_cast<size_t>(cameras[c])];
        auto stored = project.pictureOffsets.find(source.name);
        if (stored == project.pictureOffsets.end() || !std::isfinite(stored->second)) continue;
        const double limit = maxOffsetFrames / cameraFrameRate(static_cast<int>(c));
        const double seconds = std::clamp(stored->second, -limit, limit);
        if (seconds != 0) offsets[source.id] = seconds;
    }
    if (offsets == pictureOffsets_) return;
    pictureOffsets_ = std::move(offsets);
    notify(Field::pictureOffsets);
    applyHand();
}

void AppModel::resetPictures() {
    conform_.reset();
    pictureOffsets_.clear();
    frameRateChoice_.reset();
    dropFrame_ = false;
    notify(Field::pictureOffsets);
    notify(Field::frameRate);
}

}  // namespace qv
