// live_cut_bench <set folder>: the editing screen plays a set and the keys
// 1, 2 and 3 are pressed at known moments, as a user cutting live. Prints how
// far each cut lands from the play head at its press, and the event loop's
// lateness while playing against the same loop standing still (the
// reference, measured in the same run). Run it on the offscreen platform or
// under Xvfb; it writes its projects into a temporary folder.
#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "app/AppModel.h"
#include "app/MulticamAppPlayer.h"
#include "ui/ContentView.h"
#include "ui/MainWindow.h"
#include "ui/QtPorts.h"
#include "ui/Theme.h"
#include "ui/Workspace.h"

namespace {

// Lateness of a 5 ms timer of the event loop, in milliseconds, while it runs.
class LatencyProbe {
public:
    LatencyProbe() {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setInterval(5);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            const qint64 now = clock_.nsecsElapsed();
            if (last_) late_.push_back(std::max(0.0, double(now - last_) / 1e6 - 5));
            last_ = now;
        });
        clock_.start();
        timer_.start();
    }
    const std::vector<double>& late() const { return late_; }

private:
    QTimer timer_;
    QElapsedTimer clock_;
    qint64 last_ = 0;
    std::vector<double> late_;
};

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(p * double(v.size())))];
}

void wait(double seconds) {
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

std::string load() {
    std::ifstream in("/proc/loadavg");
    std::string a, b, c;
    in >> a >> b >> c;
    return a + " " + b + " " + c;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "Usage : live_cut_bench <dossier du set>\n");
        return 2;
    }
    char pattern[] = "/tmp/quorvel-livecut-XXXXXX";
    const std::string home = ::mkdtemp(pattern);
    ::setenv("QUORVEL_PROJECTS_DIR", (home + "/projets").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (home + "/state").c_str(), 1);

    QApplication app(argc, argv);
    qv::ui::Theme::apply(app);
    qv::ui::QtMainThread main;
    qv::ui::QtDialogs dialogs;
    qv::ui::QtFileViewer viewer;
    qv::AppSettings settings(home + "/settings.json");
    qv::AppModel model(qv::AppModel::Services{main, dialogs, viewer, settings, qv::MulticamAppPlayer::factory(), nullptr, {}});
    qv::ui::ModelObject object(model);
    qv::ui::MainWindow window(model, object);
    window.resize(1600, 1000);
    window.show();

    model.open(argv[1], true);
    QElapsedTimer waited;
    waited.start();
    while ((model.isWorking() || !model.player() || !window.content()->workspace()) && waited.elapsed() < 300000)
        wait(0.05);
    qv::ui::Workspace* workspace = window.content()->workspace();
    if (!workspace) {
        std::fprintf(stderr, "Le set n'a pas pu être ouvert.\n");
        return 1;
    }
    qv::AppPlayer& player = *model.player();
    const int cameras = model.cameraCount();
    std::printf("Set : %s, %d caméras, %.0f s · charge de la machine : %s\n", argv[1], cameras, model.duration(),
                load().c_str());

    // The reference: the same loop with the screen standing still.
    player.seek(model.duration() * 0.25);
    std::vector<double> still;
    {
        LatencyProbe probe;
        wait(2);
        still = probe.late();
    }

    // Play, and press 1, 2, 3 (on cameras that film then) at known moments.
    player.play();
    std::vector<std::pair<double, int>> presses;
    auto probe = std::make_unique<LatencyProbe>();
    for (int k = 0; k < 3; ++k) {
        wait(1.5);
        const double t = player.currentTime();
        // Key k + 1, or the next camera that films and is not on screen.
        int camera = -1;
        for (int c = 0; c < cameras && camera < 0; ++c) {
            const int candidate = (k + c) % cameras;
            if (model.edit().hasFeed(candidate, t) && candidate != model.edit().activeCamera(t)) camera = candidate;
        }
        if (camera < 0) continue;
        presses.push_back({t, camera});
        const QString text = QString::number(camera + 1);
        QCoreApplication::postEvent(workspace, new QKeyEvent(QEvent::KeyPress, Qt::Key_1 + camera, Qt::NoModifier, text));
    }
    wait(2);
    const std::vector<double> playing = probe->late();
    probe.reset();
    player.pause();

    const double frame = 1.0 / 30;
    std::printf("Coupes en direct (période d'image du lecteur %.1f ms) :\n", frame * 1000);
    int within = 0;
    for (const auto& [t, camera] : presses) {
        double best = 1e9;
        for (const qv::Cut& c : model.cuts())
            if (c.camera == camera) best = std::min(best, std::abs(c.time - t));
        within += best <= frame + 1e-9;
        std::printf("  touche %d à %.3f s : coupe à %+.1f ms\n", camera + 1, t, best * 1000);
    }
    std::printf("  %d sur %zu dans une période d'image\n", within, presses.size());
    std::printf("Retard de la boucle d'événements (minuterie de 5 ms) :\n");
    std::printf("  à l'arrêt  : p50 %.2f ms, p95 %.2f ms, max %.2f ms (%zu mesures)\n", percentile(still, 0.5),
                percentile(still, 0.95), percentile(still, 1), still.size());
    std::printf("  en lecture : p50 %.2f ms, p95 %.2f ms, max %.2f ms (%zu mesures)\n", percentile(playing, 0.5),
                percentile(playing, 0.95), percentile(playing, 1), playing.size());
    const double ref = std::max(0.01, percentile(still, 0.95));
    std::printf("  p95 en lecture / à l'arrêt : %.1f\n", percentile(playing, 0.95) / ref);
    std::system(("rm -rf '" + home + "'").c_str());
    return 0;
}
