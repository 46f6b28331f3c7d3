#include "ui/ScreenModel.h"

#include <cmath>

#include <memory>

#include "base/Format.h"
#include "playback/TrackReader.h"
#include "ui/MainWindow.h"

namespace qv::ui {

ScreenModel::ScreenModel(AppModel& app, ModelObject& object) : app_(app) {
    connect(&object, &ModelObject::changed, this, &ScreenModel::changed);
}

QImage ScreenModel::picture(int camera) const {
    const AppPlayer* player = app_.player();
    if (!player) return {};
    auto frame = player->shownFrame(camera);
    if (!frame || frame->width <= 0 || frame->height <= 0 ||
        frame->rgba.size() < size_t(frame->width) * size_t(frame->height) * 4)
        return {};
    // The image keeps the frame alive rather than copying its pixels: the
    // holder is handed to QImage, which gives it back to the cleanup.
    using Held = std::shared_ptr<const PreviewFrame>;
    auto holder = std::make_unique<Held>(frame);
    QImage image(frame->rgba.data(), frame->width, frame->height, frame->width * 4, QImage::Format_RGBA8888,
                 [](void* held) { std::unique_ptr<Held>(static_cast<Held*>(held)); }, holder.get());
    if (image.isNull()) return {};
    holder.release();
    return image;
}

PixelSize ScreenModel::outputSize(int camera) const {
    if (auto fixed = fixedSize(format())) return *fixed;
    return cameraSize(camera);
}

CameraFrame ScreenModel::framing(int camera) const {
    if (auto id = app_.cameraId(camera)) {
        auto it = app_.framing().find(*id);
        if (it != app_.framing().end()) return it->second;
    }
    return {};
}

void ScreenModel::openCrop(int camera) {
    app_.setEditedCamera(camera);
    app_.setRightPanel(RightPanel::crop);
}

void ScreenModel::openGrade(int camera) {
    app_.setEditedCamera(camera);
    app_.setRightPanel(RightPanel::color);
}

bool ScreenModel::showsCropWindow(int camera) const {
    return format() != OutputFormat::landscape || !framing(camera).isNeutral() ||
           (app_.rightPanel() == RightPanel::crop && app_.editedCamera() == camera);
}

QString ScreenModel::offsetText(int camera, bool brief) const {
    const double seconds = app_.pictureOffset(camera);
    if (seconds == 0) return {};
    const double frames = seconds * app_.cameraFrameRate(camera);
    const long whole = std::lround(frames);
    // A minus sign, not a hyphen, as the panels write numbers.
    auto sign = [](double v) { return v < 0 ? QStringLiteral("−") : QStringLiteral("+"); };
    const QString ms = sign(seconds) + QString::number(std::lround(std::abs(seconds) * 1000)) + QStringLiteral(" ms");
    if (std::abs(frames - static_cast<double>(whole)) > 0.01) return ms;
    const QString count = sign(frames) + QString::number(std::abs(whole));
    if (brief) return count + QStringLiteral(" i");
    return count + (std::abs(whole) > 1 ? QStringLiteral(" images (") : QStringLiteral(" image (")) + ms +
           QStringLiteral(")");
}

void ScreenModel::openOffset(int camera) {
    app_.setEditedCamera(camera);
    app_.setRightPanel(RightPanel::sound);
}

TrackMix ScreenModel::mix(int source) const {
    if (source < 0 || size_t(source) >= sources().size()) return {};
    const Uuid& id = sources()[size_t(source)].id;
    TrackMix m;
    m.muted = app_.muted().count(id) > 0;
    auto it = app_.levels().find(id);
    if (it != app_.levels().end()) m.levelDb = it->second;
    return m;
}

void ScreenModel::toggleMute(int source) {
    if (source >= 0 && size_t(source) < sources().size()) app_.toggleMute(sources()[size_t(source)].id);
}

void ScreenModel::applyAudio(int source, double levelDb) {
    if (source < 0 || size_t(source) >= sources().size()) return;
    if (mix(source).levelDb == levelDb) return;
    app_.setLevel(sources()[size_t(source)].id, levelDb);
}

}  // namespace qv::ui
