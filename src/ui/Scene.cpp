#include "ui/Scene.h"

#include <QCoreApplication>
#include <QMenu>
#include <QTimer>
#include <algorithm>
#include <iostream>

#include "app/AppModel.h"
#include "base/Text.h"
#include "ui/Capture.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/TimelineEditor.h"
#include "ui/Workspace.h"

namespace qv::ui {

std::unique_ptr<Scene> Scene::start(AppModel& model, ModelObject& object, MainWindow& window,
                                    const std::vector<std::string>& arguments) {
    if (std::none_of(arguments.begin(), arguments.end(), [](const std::string& a) { return a.rfind("--scene-", 0) == 0; }))
        return nullptr;
    std::unique_ptr<Scene> scene(new Scene(model, object, window, arguments));
    connect(&object, &ModelObject::changed, scene.get(), &Scene::step);
    connect(&object, &ModelObject::framesChanged, scene.get(), &Scene::framesShown);
    QTimer::singleShot(800, scene.get(), &Scene::step);
    return scene;
}

Scene::Scene(AppModel& model, ModelObject& object, MainWindow& window, std::vector<std::string> arguments)
    : model_(model), object_(object), window_(window), args_(std::move(arguments)) {
    const std::string size = value("--scene-taille");
    if (auto x = size.find('x'); x != std::string::npos) {
        auto w = parseDouble(size.substr(0, x)), h = parseDouble(size.substr(x + 1));
        if (w && h) window_.resize(int(*w), int(*h));
    }
    window_.move(0, 0);
    if (has("--scene-synchro")) {
        // Watched on the model itself: the synchronisation of a small set is
        // over in a second or two, before anyone outside could look.
        UnderWayCapture::Job job{[this]() -> std::optional<double> {
                                     if (!model_.isWorking()) return std::nullopt;
                                     return model_.progress();
                                 },
                                 [this] { emit object_.changed(); }};
        synchro_ = std::make_unique<UnderWayCapture>(window_, value("--scene-capture"), 0.3, std::move(job),
                                                     [this](const Status& s) {
                                                         if (s) ready();
                                                         else fail(s.error().message);
                                                     });
    }
}

Scene::~Scene() = default;

bool Scene::has(const char* flag) const { return std::find(args_.begin(), args_.end(), flag) != args_.end(); }

std::string Scene::value(const char* flag) const {
    for (size_t i = 0; i + 1 < args_.size(); ++i)
        if (args_[i] == flag) return args_[i + 1];
    return {};
}

void Scene::step() {
    if (has("--scene-synchro")) return;
    if (!has("--open")) {
        QTimer::singleShot(600, this, &Scene::ready);
        return;
    }
    if (!applied_ && model_.player() && !model_.isWorking()) {
        applied_ = true;
        // After the model's own changes of this turn have reached the screens.
        QTimer::singleShot(100, this, &Scene::apply);
    }
}

void Scene::apply() {
    EditModel& edit = model_.edit();
    AppPlayer* player = model_.player();
    if (!player) return;
    if (has("--scene-auto")) {
        EffectSettings effects = model_.effects();
        effects.vhsEnabled = true;
        for (int c = 0; c < model_.cameraCount(); ++c)
            if (auto id = model_.cameraId(c)) effects.vhsCameras.insert(*id);
        model_.setEffects(effects);
        AutoSettings automatic = model_.autoSettings();
        for (int c = 0; c < model_.cameraCount(); ++c)
            if (auto id = model_.cameraId(c)) automatic.cameras.insert(*id);
        model_.setAutoSettings(automatic);
        model_.runAuto(false);
    }
    if (auto f = outputFormatFromRaw(value("--scene-format"))) model_.setFormat(*f);
    const std::string crop = value("--scene-cadrage");
    if (auto comma = crop.find(','); comma != std::string::npos) {
        auto x = parseDouble(crop.substr(0, comma)), y = parseDouble(crop.substr(comma + 1));
        if (x && y)
            for (int c = 0; c < model_.cameraCount(); ++c) model_.setFraming({1, c % 2 ? -*x : *x, *y}, c);
    }
    double t = parseDouble(value("--scene-temps")).value_or(player->currentTime());
    if (has("--scene-zoom-plan"))
        for (const Segment& s : edit.segments()) {
            const double at = s.start + (s.end - s.start) * 0.5;
            if (s.start >= t && edit.resolvedEffect(s).zoom != 0 && edit.hasFeed(s.camera, at)) {
                t = at;
                break;
            }
        }
    player->seek(t);
    edit.revealPlayhead();
    if (auto n = parseDouble(value("--scene-drop")); n && *n >= 1 && size_t(*n) <= edit.drops().size()) {
        const Drop drop = edit.drops()[size_t(*n) - 1];
        edit.focusDrop(drop);
        player->seek(drop.time + 1.5);
    }
    if (has("--scene-lecture")) player->play();
    if (has("--scene-calage")) QTimer::singleShot(600, this, &Scene::openHandMenu);
    // Pictures that do not come (a camera without video) must not hold the scene up.
    QTimer::singleShot(5000, this, &Scene::ready);
    set_ = true;
    Workspace* workspace = window_.content()->workspace();
    if (!workspace) return;
    workspace->tick();
}

void Scene::openHandMenu() {
    Workspace* workspace = window_.content()->workspace();
    if (!workspace) return;
    TimelineEditor* timeline = workspace->timeline();
    auto files = timeline->handFiles();
    // A file in doubt first, else one that waits.
    std::stable_partition(files.begin(), files.end(), [](const TimelineEditor::HandFile& f) { return f.start; });
    if (files.empty()) return fail("--scene-calage : aucun fichier à placer à la main");
    const TimelineEditor::HandFile& file = files.front();
    const QRectF shown = file.rect.intersected(QRectF(timeline->laneLeft(), 0, timeline->laneWidth(), timeline->height()));
    // The timeline owns it; it goes when closed.
    QMenu* menu = timeline->handMenu(file).release();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(timeline->mapToGlobal(QPointF(shown.left() + 12, shown.bottom()).toPoint()));
}

void Scene::framesShown() {
    // The first pictures after the scene is set, given a moment to settle.
    if (!set_ || framed_) return;
    framed_ = true;
    QTimer::singleShot(500, this, &Scene::ready);
}

void Scene::ready() {
    if (said_) return;
    said_ = true;
    // With --scene-synchro the picture was taken at its moment already.
    const std::string png = value("--scene-capture");
    if (!png.empty() && !synchro_)
        if (Status grabbed = grabToPng(window_, png); !grabbed) return fail(grabbed.error().message);
    if (has("--scene-pret")) std::cout << "prêt" << std::endl;
}

void Scene::fail(const std::string& message) {
    std::cerr << message << std::endl;
    QCoreApplication::exit(1);
}

}  // namespace qv::ui
