// The operations of the side panels on the application model: the output
// format and each camera's framing, the effects and the cameras they apply
// to, the grades and the imported LUTs and presets.
#include "app/AppModel.h"
#include "looks/LookLibrary.h"

namespace qv {

void AppModel::setFormat(OutputFormat format) {
    format_ = format;
    notify(Field::format);
    scheduleLooks();
    if (format != OutputFormat::landscape)
        showToast(std::string("Format ") + rawValue(format) + " : glisse sur une vignette pour recadrer la caméra");
}

void AppModel::setFraming(const CameraFrame& frame, int camera) {
    auto id = cameraId(camera);
    if (!id) return;
    framing_[*id] = CameraFrame{std::clamp(frame.zoom, 1.0, 4.0), std::clamp(frame.x, -1.0, 1.0),
                                std::clamp(frame.y, -1.0, 1.0)};
    notify(Field::framing);
    scheduleLooks();
}

void AppModel::resetCrop(int camera) {
    if (auto id = cameraId(camera)) framing_.erase(*id);
    notify(Field::framing);
    scheduleLooks();
    showToast(cameraName(camera) + " : recadrage remis à zéro");
}

PixelSize AppModel::cameraSize(int camera) const {
    if (player_)
        if (auto size = player_->pictureSize(camera)) return *size;
    return PixelSize{1920, 1080};
}

bool AppModel::cropCanMove(int camera, bool vertical) const {
    PixelSize source = cameraSize(camera);
    PixelSize output = fixedSize(format_).value_or(source);
    CameraFrame frame;
    if (auto id = cameraId(camera)) {
        auto it = framing_.find(*id);
        if (it != framing_.end()) frame = it->second;
    }
    auto placement = Reframe::place(source, output, frame);
    return vertical ? placement.windowHeight < 0.999 : placement.windowWidth < 0.999;
}

std::string AppModel::outputSizeLabel() const {
    // The size the finished video will have, by the render's own rule.
    VideoJob job;
    job.sources = sources_;
    if (result_) job.result = *result_;
    job.cameraSources = cameraSources();
    job.format = format_;
    const PixelSize size = VideoRender::outputSize(job);
    return std::to_string(std::llround(size.width)) + " × " + std::to_string(std::llround(size.height));
}

LookRenderer::Snapshot AppModel::lookSnapshot(bool enabled) const {
    LookRenderer::Snapshot snapshot;
    snapshot.enabled = enabled;
    for (int c = 0; c < cameraCount(); ++c) {
        ColorGrade g = grade(c);
        if (g != ColorGrade::neutral) snapshot.grades[c] = g;
    }
    const auto& plans = edit_.segments();
    snapshot.plans.reserve(plans.size());
    for (const Segment& plan : plans)
        snapshot.plans.push_back({plan.start, plan.end, plan.camera, edit_.resolvedEffect(plan)});
    snapshot.effects = effects_;
    return snapshot;
}

void AppModel::toggleIn(std::set<Uuid>& set, int camera) {
    auto id = cameraId(camera);
    if (!id) return;
    if (!set.erase(*id)) set.insert(*id);
}

void AppModel::toggleZoomCamera(int camera) {
    EffectSettings e = effects_;
    toggleIn(e.zoomCameras, camera);
    setEffects(std::move(e));
}

void AppModel::toggleShakeCamera(int camera) {
    EffectSettings e = effects_;
    toggleIn(e.shakeCameras, camera);
    setEffects(std::move(e));
}

void AppModel::toggleEffectCamera(LookKind kind, int camera) {
    EffectSettings e = effects_;
    toggleIn(kind == LookKind::lens ? e.lensCameras : kind == LookKind::shutter ? e.shutterCameras : e.vhsCameras,
             camera);
    setEffects(std::move(e));
}

void AppModel::toggleAutoCamera(int camera) {
    AutoSettings a = auto_;
    toggleIn(a.cameras, camera);
    setAutoSettings(std::move(a));
}

void AppModel::reshuffleEffects() {
    EffectSettings e = effects_;
    e.seed = freshSeed();
    setEffects(std::move(e));
}

ColorGrade AppModel::grade(int camera) const {
    if (auto id = cameraId(camera)) {
        auto it = grades_.find(*id);
        if (it != grades_.end()) return it->second;
    }
    return ColorGrade::neutral;
}

void AppModel::setGrade(const ColorGrade& grade, int camera) {
    auto id = cameraId(camera);
    if (!id) return;
    auto grades = grades_;
    if (grade == ColorGrade::neutral) grades.erase(*id);
    else grades[*id] = grade;
    setGrades(std::move(grades));
}

void AppModel::copyGradeToAll(int fromCamera) {
    ColorGrade g = grade(fromCamera);
    for (int c = 0; c < cameraCount(); ++c) setGrade(g, c);
    showToast("Étalonnage de " + cameraName(fromCamera) + " copié sur toutes les caméras");
}

void AppModel::importLUT(int camera) {
    auto file = services_.dialogs.chooseFile("Choisis une LUT .cube", {"cube"});
    if (!file) return;
    auto name = LookLibrary::importLUT(*file);
    if (!name) {
        showToast(name.error().message);
        return;
    }
    ColorGrade g = grade(camera);
    g.lut = *name;
    setGrade(g, camera);
}

void AppModel::importPresets() {
    auto file = services_.dialogs.chooseFile("Choisis un préréglage (.quorvellook ou .cube)", {"quorvellook", "cube"});
    if (!file) return;
    auto preset = LookLibrary::importPreset(*file);
    showToast(preset ? "Préréglage « " + preset->name + " » importé" : preset.error().message);
}

}  // namespace qv
