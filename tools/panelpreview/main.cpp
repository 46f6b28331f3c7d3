// quorvel-panelpreview: the workspace with its side panel open, over the
// application model and a real set folder. The model opens the folder as the
// program does (scan, stored or fresh synchronisation), the automatic editor
// cuts the set, and the chosen panel shows on the right. The real player
// decodes the rushes (silently) through the renderer the model hands it, so a
// grade set in the colour panel shows in the monitors. Used by
// scripts/screenshots.sh.
//
//   quorvel-panelpreview <dossier du set> --panneau son|effets|drops|auto|etalo|recadrage|export|parametres
//                        [--taille LxH] [--temps s] [--format 9:16] [--camera n] [--etalo-fort]
//                        [--roues] [--cadrage x] [--decalage images]
//                        [--capture png [--capture-quand-export fraction]]
//
// `--decalage` moves the picture of the camera given by `--camera` against
// its sound by that many frames.
// `--roues` opens the colour panel's wheels, vignette and presets instead of
// its first two sections. `--capture` photographs the window into a PNG once
// it shows its pictures. `--capture-quand-export` starts a real video export
// of the whole set (into the downloads folder) and photographs the window as
// the export passes that fraction, then cancels it, which leaves no file.
// With `--panneau drops` the export is the clips of the drops instead.
// Once the window shows its pictures (and any photograph is taken) it prints
// "prêt" on standard output.
#include <QApplication>
#include <QTimer>
#include <clocale>
#include <iostream>
#include <utility>

#include "app/AppModel.h"
#include "app/MulticamAppPlayer.h"
#include "app/RenderVideoExporter.h"
#include "base/Text.h"
#include "ui/Capture.h"
#include "ui/ColorPanel.h"
#include "ui/MainWindow.h"
#include "ui/Monitors.h"
#include "ui/Panels.h"
#include "ui/QtPorts.h"
#include "ui/ScreenModel.h"
#include "ui/Theme.h"
#include "ui/Workspace.h"

namespace {

using namespace qv;

struct Options {
    std::filesystem::path folder;
    int width = 1600, height = 1000;
    RightPanel panel = RightPanel::none;
    std::optional<double> time;
    OutputFormat format = OutputFormat::landscape;
    int camera = 0;
    bool strongGrade = false;
    bool wheels = false;
    std::optional<double> cropX;
    std::optional<double> offsetFrames;
    std::filesystem::path capture;
    std::optional<double> captureWhenExporting;
};

std::optional<Options> parse(const QStringList& args) {
    static const std::pair<const char*, RightPanel> panels[] = {
        {"son", RightPanel::sound},         {"effets", RightPanel::effects}, {"drops", RightPanel::drops},
        {"auto", RightPanel::automatic},    {"etalo", RightPanel::color},    {"recadrage", RightPanel::crop},
        {"export", RightPanel::exportPanel}, {"parametres", RightPanel::settings}};
    Options o;
    for (int i = 1; i < args.size(); ++i) {
        const QString a = args[i];
        auto next = [&]() -> std::string { return i + 1 < args.size() ? args[++i].toStdString() : std::string(); };
        if (a == "--scene-pret") {
            // The program's own flag; this tool always says "prêt".
        } else if (a == "--taille" || a == "--scene-taille") {
            auto wh = split(next(), 'x');
            if (wh.size() != 2) return std::nullopt;
            o.width = int(parseInteger(wh[0]).value_or(1600));
            o.height = int(parseInteger(wh[1]).value_or(1000));
        } else if (a == "--panneau") {
            const std::string name = next();
            bool found = false;
            for (auto [n, p] : panels)
                if (name == n) o.panel = p, found = true;
            if (!found) return std::nullopt;
        } else if (a == "--temps") {
            o.time = parseDouble(next());
        } else if (a == "--format") {
            auto f = outputFormatFromRaw(next());
            if (!f) return std::nullopt;
            o.format = *f;
        } else if (a == "--camera") {
            o.camera = int(parseInteger(next()).value_or(1)) - 1;
        } else if (a == "--etalo-fort") {
            o.strongGrade = true;
        } else if (a == "--roues") {
            o.wheels = true;
        } else if (a == "--cadrage") {
            o.cropX = parseDouble(next());
        } else if (a == "--decalage") {
            o.offsetFrames = parseDouble(next());
            if (!o.offsetFrames) return std::nullopt;
        } else if (a == "--capture") {
            o.capture = next();
        } else if (a == "--capture-quand-export") {
            o.captureWhenExporting = parseDouble(next());
            if (!o.captureWhenExporting) return std::nullopt;
        } else if (o.folder.empty() && !a.startsWith("--")) {
            o.folder = a.toStdString();
        } else {
            return std::nullopt;
        }
    }
    if (o.folder.empty() || (o.captureWhenExporting && o.capture.empty())) return std::nullopt;
    return o;
}

// A grade no one can miss: warm, contrasted, saturated, with a vignette.
ColorGrade strongGrade() {
    ColorGrade g = ColorGrade::neutral;
    g.temperature = 70;
    g.tint = 25;
    g.exposure = 0.35;
    g.contrast = 45;
    g.shadows = -20;
    g.saturation = 160;
    g.vignette = 1.6;
    g.wheelShadows = {230, 0.45, -10};
    g.wheelHighlights = {45, 0.5, 10};
    return g;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    ui::Theme::apply(app);
    const auto options = parse(app.arguments());
    if (!options) {
        std::cerr << "Usage : quorvel-panelpreview <dossier du set> --panneau son|effets|drops|auto|etalo|recadrage|"
                     "export|parametres [--taille LxH] [--temps s] [--format 9:16] [--camera n] [--etalo-fort] "
                     "[--roues] [--cadrage x] [--decalage images] [--capture png [--capture-quand-export fraction]]\n";
        return 2;
    }

    ui::QtMainThread main;
    ui::QtDialogs dialogs;
    ui::QtFileViewer viewer;
    AppPlayer* player = nullptr;
    PlayerFactory factory = [&player, make = MulticamAppPlayer::factory()](
                                const std::vector<MediaSource>& sources, const SyncResult& result,
                                MainThread& thread) -> std::shared_ptr<AppPlayer> {
        auto made = make(sources, result, thread);
        player = made.get();
        return made;
    };
    auto exporter = std::make_shared<RenderVideoExporter>(main);
    AppModel model(AppModel::Services{main, dialogs, viewer, AppSettings::shared(), factory, exporter, {}});
    ui::ModelObject object(model);
    ui::ScreenModel screen(model, object);

    std::unique_ptr<ui::Workspace> window;
    ui::SidePanel* side = nullptr;
    auto fail = [&app](const std::string& message) {
        std::cerr << message << std::endl;
        app.exit(1);
    };
    auto sayReady = [] { std::cout << "prêt" << std::endl; };

    // During a real export: photographed part-way, then cancelled; "prêt"
    // once the export has ended and taken its unfinished file away.
    std::unique_ptr<ui::UnderWayCapture> capture;
    QTimer ending;
    ending.setInterval(50);
    QObject::connect(&ending, &QTimer::timeout, [&] {
        if (exporter->isRunning()) return;
        ending.stop();
        sayReady();
    });
    // With the drops panel open the job is the clips of the drops.
    const bool clips = options && options->panel == RightPanel::drops;
    auto captureDuringExport = [&] {
        if (clips) model.exportDropClips();
        else model.exportVideo();
        ui::UnderWayCapture::Job job{[&]() -> std::optional<double> {
                                         if (clips) {
                                             if (!model.isExportingClips()) return std::nullopt;
                                             return model.clipsProgress();
                                         }
                                         if (!exporter->isRunning()) return std::nullopt;
                                         return exporter->progress();
                                     },
                                     [&] { side->refresh(); }};
        capture = std::make_unique<ui::UnderWayCapture>(*window, options->capture, *options->captureWhenExporting,
                                                        std::move(job), [&](const Status& taken) {
                                                            if (clips) model.cancelDropClips();
                                                            else exporter->cancel();
                                                            if (!taken)
                                                                return fail(taken.error().message + " " +
                                                                            model.errorMessage().value_or(""));
                                                            ending.start();
                                                        });
    };
    // The window has settled with its pictures.
    auto settled = [&] {
        if (options->captureWhenExporting) return captureDuringExport();
        if (!options->capture.empty())
            if (Status taken = ui::grabToPng(*window, options->capture); !taken) return fail(taken.error().message);
        sayReady();
    };

    QTimer wait;
    wait.setInterval(50);
    QObject::connect(&wait, &QTimer::timeout, [&] {
        if (model.isWorking() || !player) {
            if (!model.isWorking() && !model.result() && !model.sources().empty()) {
                std::cerr << "Aucun fichier calé dans ce dossier.\n";
                app.exit(1);
            }
            return;
        }
        wait.stop();

        // The scene: an automatic edit, shake on one camera, the format and crops asked.
        model.runAuto(false);
        EffectSettings e = model.effects();
        e.shakeEnabled = true;
        if (auto id = model.cameraId(std::min(1, model.cameraCount() - 1))) e.shakeCameras.insert(*id);
        model.setEffects(e);
        model.setFormat(options->format);
        if (options->cropX)
            for (int c = 0; c < model.cameraCount(); ++c) model.setFraming({1, *options->cropX * (c % 2 ? -1 : 1), 0}, c);
        if (options->strongGrade && model.cameraCount() > 1) model.setGrade(strongGrade(), 1);
        model.setEditedCamera(std::clamp(options->camera, 0, std::max(0, model.cameraCount() - 1)));
        if (options->offsetFrames)
            model.setPictureOffset(model.editedCamera(),
                                   *options->offsetFrames / model.cameraFrameRate(model.editedCamera()));
        if (options->panel == RightPanel::drops && !model.drops().empty()) model.edit().focusDrop(model.drops()[0]);
        if (options->captureWhenExporting) model.settings().setExportTarget(ExportTarget::video);
        model.setRightPanel(options->panel);

        window = std::make_unique<ui::Workspace>(screen);
        side = new ui::SidePanel(model, object);
        window->setSidePanel(side);
        if (auto* color = qobject_cast<ui::ColorPanel*>(side->page()); color && options->wheels) {
            color->setSectionOpen("base", false);
            color->setSectionOpen("creatif", false);
            color->setSectionOpen("roues", true);
            color->setSectionOpen("vignette", true);
            color->setSectionOpen("presets", true);
        }
        QObject::connect(&object, &ui::ModelObject::framesChanged, window.get(),
                         [&] { window->monitors()->update(); });
        window->setWindowTitle(QStringLiteral("Quorvel"));
        window->resize(options->width, options->height);
        window->move(0, 0);
        window->show();

        // Unless told, the moment where the most cameras film, the edited one among them.
        double t = model.duration() * 0.4;
        int best = -1;
        for (double at = 1; at < model.duration() - 1; at += 0.5) {
            int score = 0;
            for (int c = 0; c < model.cameraCount(); ++c)
                if (model.edit().hasFeed(c, at)) score += c == model.editedCamera() ? 100 : 1;
            if (score > best) best = score, t = at;
        }
        if (options->time) t = *options->time;
        // On the drops panel, just after the first drop that a camera films.
        if (options->panel == RightPanel::drops)
            for (const Drop& d : model.drops()) {
                bool filmed = false;
                for (int c = 0; c < model.cameraCount(); ++c) filmed = filmed || model.edit().hasFeed(c, d.time + 1.5);
                if (!filmed) continue;
                t = d.time + 1.5;
                break;
            }
        player->seek(t);
        model.applyLooks();
        QObject::connect(&object, &ui::ModelObject::framesChanged, window.get(), [&] {
            static bool seen = false;
            if (seen) return;
            seen = true;
            QTimer::singleShot(800, settled);
        });
    });
    model.open(options->folder, true);
    wait.start();
    const int status = app.exec();
    window.reset();
    return status;
}
