#include "ui/ScreenModel.h"

#include "base/Format.h"

namespace qv::ui {

AngleStatus angleStatus(const AngleInfo& angle, double t) {
    if (!angle.hasPicture) return {QStringLiteral("NON CALÉE"), false};
    std::optional<double> nextStart;
    for (const TimeRange& r : angle.ranges) {
        if (r.start <= t && t < r.end) {
            double left = r.end - t;
            return {QStringLiteral("COUPE DANS %1").arg(QString::fromStdString(Format::countdown(left))), left < 15};
        }
        if (r.start > t && (!nextStart || r.start < *nextStart)) nextStart = r.start;
    }
    if (nextStart)
        return {QStringLiteral("DÉMARRE DANS %1").arg(QString::fromStdString(Format::countdown(*nextStart - t))), false};
    return {QStringLiteral("TERMINÉE"), false};
}

ScreenModel::ScreenModel(EditModel& edit, std::shared_ptr<ScreenPlayer> player, std::vector<MediaSource> sources)
    : edit_(edit), player_(std::move(player)), sources_(std::move(sources)) {
    std::vector<Uuid> ids;
    for (size_t i = 0; i < sources_.size(); ++i)
        if (sources_[i].kind == SourceKind::camera) {
            cameraSources_.push_back(int(i));
            ids.push_back(sources_[i].id);
        }
    edit_.setCameraIds(ids);
    edit_.setPlayer(player_);
    edit_.setOnChange([this](EditModel::Change c) { emit changed(Part::edit, int(c)); });
}

QString ScreenModel::cameraName(int camera) const {
    if (camera < 0 || camera >= cameraCount()) return QStringLiteral("Cette caméra");
    return QString::fromStdString(sources_[size_t(cameraSources_[size_t(camera)])].name);
}

PixelSize ScreenModel::cameraSize(int camera) const {
    if (camera >= 0 && camera < cameraCount())
        for (const MediaItem& item : sources_[size_t(cameraSources_[size_t(camera)])].items)
            if (item.hasVideo && item.width > 0 && item.height > 0) return {double(item.width), double(item.height)};
    return {1920, 1080};
}

PixelSize ScreenModel::outputSize(int camera) const {
    if (auto fixed = fixedSize(format_)) return *fixed;
    return cameraSize(camera);
}

void ScreenModel::setFormat(OutputFormat format) {
    if (format == format_) return;
    format_ = format;
    emit changed(Part::format, -1);
}

CameraFrame ScreenModel::framing(int camera) const {
    auto it = frames_.find(camera);
    return it == frames_.end() ? CameraFrame{} : it->second;
}

void ScreenModel::setFraming(int camera, CameraFrame frame) {
    frame.zoom = std::clamp(frame.zoom, 1.0, 4.0);
    frame.x = std::clamp(frame.x, -1.0, 1.0);
    frame.y = std::clamp(frame.y, -1.0, 1.0);
    if (framing(camera) == frame) return;
    frames_[camera] = frame;
    emit changed(Part::framing, -1);
}

bool ScreenModel::gradeIsNeutral(int camera) const {
    auto it = gradeNeutral_.find(camera);
    return it == gradeNeutral_.end() || it->second;
}

void ScreenModel::setGradeNeutral(int camera, bool neutral) {
    gradeNeutral_[camera] = neutral;
    emit changed(Part::panel, -1);
}

void ScreenModel::openCrop(int camera) {
    cropCamera_ = camera;
    edit_.setRightPanel(RightPanel::crop);
    emit changed(Part::panel, -1);
}

void ScreenModel::openGrade(int camera) {
    cropCamera_.reset();
    (void)camera;
    edit_.setRightPanel(RightPanel::color);
    emit changed(Part::panel, -1);
}

void ScreenModel::copyGradeToAll(int camera) {
    bool neutral = gradeIsNeutral(camera);
    for (int c = 0; c < cameraCount(); ++c) gradeNeutral_[c] = neutral;
    edit_.showToast("Étalonnage copié sur toutes les caméras");
    emit changed(Part::panel, -1);
}

bool ScreenModel::showsCropWindow(int camera) const {
    return format_ != OutputFormat::landscape || !framing(camera).isNeutral() || cropCamera_ == camera;
}

TrackMix ScreenModel::mix(int source) const {
    auto it = mix_.find(source);
    return it == mix_.end() ? TrackMix{} : it->second;
}

void ScreenModel::toggleMute(int source) {
    mix_[source].muted = !mix(source).muted;
    emit changed(Part::mix, -1);
}

void ScreenModel::applyAudio(int source, double levelDb) {
    TrackMix m = mix(source);
    if (m.levelDb == levelDb) return;
    m.levelDb = levelDb;
    mix_[source] = m;
    emit changed(Part::mix, -1);
}

}  // namespace qv::ui
