// The demonstration scenes the command line can ask for (--demo-...,
// --tuto): a set shown in a given state, for screenshots and the tour.
#include "app/AppModel.h"

namespace qv {

bool AppModel::hasArgument(const std::string& flag) const {
    const auto& args = services_.arguments;
    return std::find(args.begin(), args.end(), flag) != args.end();
}

void AppModel::applyDemoArguments() {
    static const std::pair<const char*, RightPanel> panels[] = {
        {"--demo-son", RightPanel::sound},         {"--demo-effets", RightPanel::effects},
        {"--demo-drops", RightPanel::drops},       {"--demo-auto", RightPanel::automatic},
        {"--demo-etalo", RightPanel::color},       {"--demo-recadrage", RightPanel::crop},
        {"--demo-export", RightPanel::exportPanel}, {"--demo-parametres", RightPanel::settings}};
    for (const auto& [flag, panel] : panels)
        if (hasArgument(flag)) {
            edit_.setRightPanel(panel);
            break;
        }
    if (hasArgument("--demo-vertical")) format_ = OutputFormat::portrait;
    tutoPending_ = hasArgument("--tuto");
    demoPending_ = hasArgument("--demo") || hasArgument("--demo-vertical") || hasArgument("--demo-auto") ||
                   hasArgument("--demo-looks");
}

void AppModel::applyDemoScene() {
    demoPending_ = false;
    const int cameras = cameraCount();
    if (cameras == 0) return;
    player_->seek(120);
    std::vector<Cut> cuts;
    const double times[] = {95, 106, 120, 131, 150};
    const PlanEffect effects[] = {PlanEffect::zoomIn, PlanEffect::automatic, PlanEffect::shake, PlanEffect::zoomOut,
                                  PlanEffect::automatic};
    for (int k = 0; k < 5; ++k) {
        if (times[k] > duration()) break;
        Cut c;
        c.time = times[k];
        c.camera = k % cameras;
        c.effect = effects[k];
        cuts.push_back(c);
    }
    edit_.setCuts(std::move(cuts));
    edit_.setZoom(4, 120, 0.5);
    EffectSettings e = effects_;
    e.shakeEnabled = true;
    if (auto id = cameraId(cameras > 1 ? 1 : 0)) e.shakeCameras.insert(*id);
    setEffects(std::move(e));
    setFraming(CameraFrame{1.3, 0.25, 0}, 0);
    if (hasArgument("--demo-looks")) {
        ColorGrade warm = ColorGrade::neutral;
        warm.temperature = 25;
        warm.contrast = 15;
        warm.vignette = 30;
        setGrade(warm, 0);
        ColorGrade cold = ColorGrade::neutral;
        cold.temperature = -20;
        cold.saturation = 80;
        if (cameras > 1) setGrade(cold, 1);
    }
    if (hasArgument("--demo-auto")) runAuto(false);
}

void AppModel::applyTutoScene() {
    if (!tutoPending_ || !result_ || !player_) return;
    tutoPending_ = false;
    // The guided first steps: a short range to cut, the automatic panel open.
    const double end = std::min(60.0, duration());
    edit_.setRange(0, end);
    edit_.setRightPanel(RightPanel::automatic);
    showToast("Tutoriel : lance la lecture puis appuie sur 1 à " + std::to_string(std::min(8, cameraCount())) +
              " pour couper");
}

}  // namespace qv
