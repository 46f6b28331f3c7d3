// The picture analysis as the application model runs it: started once a
// synchronisation is installed, stopped with it, its posts of an earlier run
// dropped, its stretches laid again on the time line whenever files move.
#include "app/AppModel.h"
#include "diagnostics/Log.h"

namespace qv {

void AppModel::startAnalysis() {
    if (!result_ || !folder_) return;
    if (!pictureJob_) pictureJob_ = std::make_unique<PictureJob>([this](std::function<void()> f) { postBack(std::move(f)); });
    picturesProgress_ = 0;
    picturesWaiting_ = false;
    notify(Field::pictures);
    // What an earlier run posted before it was stopped is dropped.
    const int run = ++picturesRun_;
    pictureJob_->start(
        *folder_, *result_, cameraSources(), player_ ? player_->previewOutlook() : nullptr,
        [this, run](double f, bool waiting) {
            if (run != picturesRun_) return;
            picturesProgress_ = f;
            picturesWaiting_ = waiting;
            notify(Field::pictures);
        },
        [this, run](analysis::MeasuresByPath measures) {
            if (run != picturesRun_) return;
            pictureMeasures_ = std::move(measures);
            picturesProgress_.reset();
            Log::write("Analyse des images : " + std::to_string(pictureMeasures_.size()) + " fichiers");
            refreshAnalysis();
        });
}

void AppModel::stopAnalysis() {
    if (pictureJob_) pictureJob_->stop();
    ++picturesRun_;
    pictureMeasures_.clear();
    pictures_.clear();
    picturesProgress_.reset();
    notify(Field::pictures);
}

void AppModel::refreshAnalysis() {
    pictures_ = result_ ? analysis::picturesOf(*result_, cameraSources(), pictureMeasures_) : analysis::CameraPictures{};
    notify(Field::pictures);
}

std::string AppModel::picturesLine() const {
    if (!picturesProgress_) return {};
    std::string line = "Analyse des images : " + std::to_string(static_cast<int>(*picturesProgress_ * 100)) + " %";
    // The chunks of the preview are read in place of the originals, once made.
    if (picturesWaiting_) line += " · après l'aperçu";
    return line;
}

analysis::CameraPictures AppModel::picturesForAuto(const AutoSettings& settings) const {
    return settings.avoidUnusable ? pictures_ : analysis::CameraPictures{};
}

}  // namespace qv
